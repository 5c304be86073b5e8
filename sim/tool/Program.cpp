#include "sim/tool/Program.h"

#include "sim/line/Trace.h"
#include "sim/tool/Commands.h"
#include "sim/tool/Control.h"
#include "sim/tool/Help.h"
#include "sim/tool/LineBuffer.h"
#include "sim/tool/Picture.h"
#include "sim/tool/RackFile.h"
#include "sim/tool/Scenario.h"
#include "sim/tool/Terminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

namespace sim {

namespace {

using MILLISECONDS = std::chrono::milliseconds;

/// How often moving cards are looked at, so that what they reach is reported while nobody asks.
constexpr MILLISECONDS kMovingStep{20};
/// How often the picture is drawn anew.
constexpr MILLISECONDS kPictureStep{100};

class PROGRAM {
 public:
  explicit PROGRAM(const PROGRAM_OPTIONS& options)
      : m_options(options), m_signals(BlockSignals()), m_simulation(options.adapter) {}

  int Run();

 private:
  static int BlockSignals();
  RESULT Prepare();
  RESULT PrepareTrace();
  RESULT PrepareReplay();
  void Loop();
  int PollLimit(bool moving) const;
  bool ReadSignals();
  void ReadInput();
  void ExecuteInput(const std::vector<LINE_BUFFER::LINE>& lines);
  std::string ExecuteLine(const std::string& line);
  void RunScenario();
  void EndWhenNothingIsLeft();
  void PrintEvents();
  void WriteTrace();
  void Print(const std::string& text);
  int ReplayStatus();

  const PROGRAM_OPTIONS m_options;
  const DESCRIPTOR m_signals;  // before the simulation, whose threads are to have them blocked
  const TIME m_begin = m_options.adapter.clock();  // of a trace
  TIME m_ready{};                                  // when the adapter was: of a scenario
  std::unique_ptr<REPLAY> m_replay;
  WAKE_QUEUE<TRACE_ENTRY> m_traced;
  std::ofstream m_trace;
  SIMULATION m_simulation;  // after all that its threads use
  SCENARIO m_scenario;
  CONTROL_SERVER m_control;
  LINE_BUFFER m_input;
  bool m_inputOpen = true;
  bool m_failed = false;
  std::unique_ptr<TERMINAL> m_terminal;
};

int PROGRAM::BlockSignals() {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t set;
  ::sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH})
    ::sigaddset(&set, number);
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
  return ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

RESULT PROGRAM::Prepare() {
  RESULT rack = m_options.rackFile.empty()
                    ? LoadRack(DefaultRackText(), "built-in rack", m_simulation.Rack())
                    : LoadRackFile(m_options.rackFile, m_simulation.Rack());
  m_simulation.Events().Take();  // that the cards are there is no event yet
  if (!rack)
    return rack;
  if (!m_options.scriptFile.empty()) {
    std::string text;
    RESULT result = ReadTextFile(m_options.scriptFile, text);
    if (result)
      result = m_scenario.Parse(text, m_options.scriptFile);
    if (!result)
      return result;
  }
  if (RESULT result = PrepareReplay(); !result)
    return result;
  if (RESULT result = PrepareTrace(); !result)
    return result;
  if (!m_options.controlPath.empty()) {
    if (RESULT result = m_control.Listen(m_options.controlPath); !result)
      return result;
  }
  RESULT plugged = m_simulation.Plug(m_options.number);
  if (!plugged && ::access(m_options.adapter.devDir.c_str(), W_OK) != 0)
    plugged.text += "; --dev-dir DIR takes another folder";
  return plugged;
}

RESULT PROGRAM::PrepareTrace() {
  if (m_options.recordFile.empty())
    return RESULT::Good();
  m_trace.open(m_options.recordFile);
  if (!m_trace)
    return RESULT::Error("cannot write " + m_options.recordFile + ": " +
                         std::generic_category().message(errno));
  m_trace << TraceHeader();
  m_simulation.Adapter().SetTap([this](DIRECTION direction, TIME when, const Bytes& bytes) {
    m_traced.Push(
        {std::chrono::duration_cast<std::chrono::microseconds>(when - m_begin), direction, bytes});
  });
  return RESULT::Good();
}

RESULT PROGRAM::PrepareReplay() {
  if (m_options.replayFile.empty())
    return RESULT::Good();
  std::string text;
  std::vector<TRACE_ENTRY> entries;
  RESULT result = ReadTextFile(m_options.replayFile, text);
  if (result)
    result = ParseTrace(text, entries);
  if (!result)
    return RESULT::Error(m_options.replayFile + ": " + result.text);
  m_replay = std::make_unique<REPLAY>(entries);
  m_replay->SetListener([this](const std::string& line) { m_simulation.Events().Push(line); });
  m_simulation.Adapter().SetReplyHook(m_replay->Hook());
  return RESULT::Good();
}

int PROGRAM::Run() {
  const RESULT prepared = Prepare();
  if (!prepared) {
    std::istringstream errors(prepared.text);  // of a scenario there may be several
    for (std::string error; std::getline(errors, error);)
      std::fprintf(stderr, "vornsim: %s\n", error.c_str());
    return 1;
  }
  if (!m_options.plain && TerminalAvailable()) {
    m_terminal = std::make_unique<TERMINAL>(
        [this](const std::string& line) { Print(ExecuteLine(line)); }, Complete);
  }
  Loop();
  m_terminal.reset();
  if (m_simulation.Adapter().Plugged())
    static_cast<void>(m_simulation.Adapter().Unplug());
  PrintEvents();
  WriteTrace();
  return std::max(m_failed ? 1 : 0, ReplayStatus());
}

int PROGRAM::ReplayStatus() {
  if (m_replay == nullptr || m_replay->Complete())
    return 0;
  if (m_replay->Difference().empty()) {
    std::fprintf(stderr, "vornsim: the replay ended after %zu of %zu requests\n",
                 m_replay->Answered(), m_replay->Expected());
  }
  return 1;
}

void PROGRAM::Loop() {
  const GLYPHS& glyphs = TerminalKnowsUtf8() ? kUtf8Glyphs : kAsciiGlyphs;
  // cppcheck-suppress variableScope ; its storage is used again in the next pass
  std::vector<pollfd> watched;
  constexpr std::size_t kOwn = 4;
  m_ready = m_simulation.Now();
  while (!m_simulation.Quitting()) {
    RunScenario();
    const bool moving = m_simulation.Rack().Advance();
    PrintEvents();
    WriteTrace();
    if (m_terminal != nullptr)
      m_terminal->Draw(Picture(m_simulation, glyphs));
    EndWhenNothingIsLeft();
    if (m_simulation.Quitting())
      return;
    watched = {{m_signals.Get(), POLLIN, 0},
               {m_inputOpen ? STDIN_FILENO : -1, POLLIN, 0},
               {m_simulation.Events().Descriptor(), POLLIN, 0},
               {m_traced.Descriptor(), POLLIN, 0}};
    m_control.Watch(watched);
    if (::poll(watched.data(), watched.size(), PollLimit(moving)) < 0)
      continue;
    if (watched[0].revents != 0 && ReadSignals())
      return;
    if (watched[1].revents != 0)
      ReadInput();
    m_control.Handle(watched.data() + kOwn, watched.size() - kOwn,
                     [this](const std::string& line) { return ExecuteLine(line); });
  }
}

int PROGRAM::PollLimit(bool moving) const {
  MILLISECONDS limit = MILLISECONDS::max();
  if (moving)
    limit = kMovingStep;
  if (m_terminal != nullptr)
    limit = std::min(limit, kPictureStep);
  if (const auto next = m_scenario.Next()) {
    const auto passed = m_simulation.Now() - m_ready;
    limit =
        std::min(limit, std::max(MILLISECONDS(0), std::chrono::ceil<MILLISECONDS>(*next - passed)));
  }
  return limit == MILLISECONDS::max()
             ? -1
             : static_cast<int>(std::min(limit, MILLISECONDS(60000)).count());
}

/// True for one that ends the program; a new size of the window only wakes the loop.
bool PROGRAM::ReadSignals() {
  signalfd_siginfo info{};
  bool end = false;
  while (::read(m_signals.Get(), &info, sizeof info) == sizeof info)
    end = end || info.ssi_signo != SIGWINCH;
  return end;
}

void PROGRAM::ReadInput() {
  if (m_terminal != nullptr) {
    m_terminal->ReadInput();
    if (m_terminal->Ended())
      m_simulation.Quit();
    return;
  }
  std::array<char, 4096> buffer{};
  const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count > 0) {
    ExecuteInput(m_input.Feed({buffer.data(), static_cast<std::size_t>(count)}));
    return;
  }
  if (count < 0 && (errno == EINTR || errno == EAGAIN))
    return;
  ExecuteInput(m_input.Finish());
  m_inputOpen = false;
}

/// Without input a scenario still goes on to its end.
void PROGRAM::EndWhenNothingIsLeft() {
  if (!m_inputOpen && !m_options.stay && !m_scenario.Next())
    m_simulation.Quit();
}

void PROGRAM::ExecuteInput(const std::vector<LINE_BUFFER::LINE>& lines) {
  for (const LINE_BUFFER::LINE& line : lines) {
    if (m_simulation.Quitting())
      return;
    Print(line.tooLong ? ResponseText(RESULT::Error("the line is too long"))
                       : ExecuteLine(line.text));
  }
}

/// The response; what the command did is printed before it.
std::string PROGRAM::ExecuteLine(const std::string& line) {
  const RESULT result = Execute(m_simulation, line);
  PrintEvents();
  return ResponseText(result);
}

void PROGRAM::RunScenario() {
  const auto passed = m_simulation.Now() - m_ready;
  for (const SCENARIO::STEP& step :
       m_scenario.Take(std::chrono::duration_cast<MILLISECONDS>(passed))) {
    if (m_simulation.Quitting())
      return;
    PrintEvents();  // what came before the command stands before it
    Print("script: " + step.command + "\n");
    const RESULT result = Execute(m_simulation, step.command);
    PrintEvents();
    if (!result || !result.text.empty())
      Print(ResponseText(result));
    m_failed = m_failed || !result;
  }
}

void PROGRAM::PrintEvents() {
  std::string text;
  for (const std::string& line : m_simulation.Events().Take())
    text += line + "\n";
  if (const std::size_t lost = m_simulation.Events().TakeLost(); lost > 0)
    text += std::to_string(lost) + " events lost\n";
  if (!text.empty())
    Print(text);
}

void PROGRAM::WriteTrace() {
  if (!m_trace.is_open())
    return;
  const std::vector<TRACE_ENTRY> entries = m_traced.Take();
  for (const TRACE_ENTRY& entry : entries)
    m_trace << TraceLine(entry) << '\n';
  if (const std::size_t lost = m_traced.TakeLost(); lost > 0)
    m_trace << "# " << lost << " entries lost here\n";
  if (entries.empty() || m_trace.flush())
    return;
  std::fprintf(stderr, "vornsim: cannot write %s\n", m_options.recordFile.c_str());
  m_trace.close();
  m_failed = true;
}

/// When who reads this is gone, nothing is left to do.
void PROGRAM::Print(const std::string& text) {
  if (m_terminal != nullptr)
    m_terminal->Print(text);
  else if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    m_simulation.Quit();
}

}  // namespace

int RunProgram(const PROGRAM_OPTIONS& options) {
  return PROGRAM(options).Run();
}

}  // namespace sim
