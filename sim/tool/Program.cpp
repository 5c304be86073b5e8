#include "sim/tool/Program.h"

#include "sim/tool/Commands.h"
#include "sim/tool/Control.h"
#include "sim/tool/Help.h"
#include "sim/tool/LineBuffer.h"
#include "sim/tool/Picture.h"
#include "sim/tool/RackFile.h"
#include "sim/tool/Scenario.h"
#include "sim/tool/Terminal.h"
#include "sim/tool/TraceFiles.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

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
  RESULT PrepareTraces();
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
  void Complain(const std::string& errors);

  const PROGRAM_OPTIONS m_options;
  const DESCRIPTOR m_signals;  // before the simulation, whose threads are to have them blocked
  TIME m_ready{};              // when the adapter was: of a scenario
  REPLAYER m_replayer;
  RECORDER m_recorder;
  SIMULATION m_simulation;  // after all that its threads use
  SCENARIO m_scenario;
  CONTROL_SERVER m_control;
  LINE_BUFFER m_input;
  bool m_inputOpen = true;
  bool m_failed = false;
  std::unique_ptr<TERMINAL> m_terminal;
};

int PROGRAM::BlockSignals() {
  signal(SIGPIPE, SIG_IGN);
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
    sigaddset(&set, number);
  }
  sigprocmask(SIG_BLOCK, &set, nullptr);
  return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

RESULT PROGRAM::Prepare() {
  RESULT rack = m_options.rackFile.empty()
                    ? LoadRack(DefaultRackText(), "built-in rack", m_simulation.Rack())
                    : LoadRackFile(m_options.rackFile, m_simulation.Rack());
  m_simulation.Events().Take();  // that the cards are there is no event yet
  if (!rack) {
    return rack;
  }
  if (!m_options.scriptFile.empty()) {
    std::string text;
    RESULT result = ReadTextFile(m_options.scriptFile, text);
    if (result) {
      result = m_scenario.Parse(text, m_options.scriptFile);
    }
    if (!result) {
      return result;
    }
  }
  if (RESULT result = PrepareTraces(); !result) {
    return result;
  }
  if (!m_options.controlPath.empty()) {
    if (RESULT result = m_control.Listen(m_options.controlPath); !result) {
      return result;
    }
  }
  RESULT plugged = m_simulation.Plug(m_options.number);
  if (!plugged && access(m_options.adapter.devDir.c_str(), W_OK) != 0) {
    plugged.text += "; --dev-dir DIR takes another folder";
  }
  return plugged;
}

RESULT PROGRAM::PrepareTraces() {
  ADAPTER& adapter = m_simulation.Adapter();
  RESULT result = RESULT::Good();
  if (!m_options.replayFile.empty()) {
    result = m_replayer.Begin(m_options.replayFile, adapter, [this](const std::string& line) {
      m_simulation.Events().Push(line);
    });
  }
  if (result && !m_options.recordFile.empty()) {
    result = m_recorder.Begin(m_options.recordFile, adapter, m_simulation.Now());
  }
  return result;
}

/// Of a scenario there may be several, a line each.
void PROGRAM::Complain(const std::string& errors) {
  m_failed = true;
  std::istringstream lines(errors);
  for (std::string error; std::getline(lines, error);) {
    std::fprintf(stderr, "vornsim: %s\n", error.c_str());
  }
}

int PROGRAM::Run() {
  const RESULT prepared = Prepare();
  if (!prepared) {
    Complain(prepared.text);
    return 1;
  }
  if (!m_options.plain && TerminalAvailable()) {
    m_terminal = std::make_unique<TERMINAL>(
        [this](const std::string& line) { Print(ExecuteLine(line)); }, Complete);
  }
  Loop();
  m_terminal.reset();
  if (m_simulation.Adapter().Plugged()) {
    static_cast<void>(m_simulation.Adapter().Unplug());
  }
  PrintEvents();
  WriteTrace();
  if (const RESULT outcome = m_replayer.Outcome(); !outcome) {
    Complain(outcome.text);
  }
  return m_failed ? 1 : 0;
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
    if (m_terminal != nullptr) {
      m_terminal->Draw(Picture(m_simulation, glyphs));
    }
    EndWhenNothingIsLeft();
    if (m_simulation.Quitting()) {
      return;
    }
    watched = {{m_signals.Get(), POLLIN, 0},
               {m_inputOpen ? STDIN_FILENO : -1, POLLIN, 0},
               {m_simulation.Events().Descriptor(), POLLIN, 0},
               {m_recorder.Descriptor(), POLLIN, 0}};
    m_control.Watch(watched);
    if (poll(watched.data(), watched.size(), PollLimit(moving)) < 0) {
      continue;
    }
    if (watched[0].revents != 0 && ReadSignals()) {
      return;
    }
    if (watched[1].revents != 0) {
      ReadInput();
    }
    m_control.Handle(watched.data() + kOwn, watched.size() - kOwn,
                     [this](const std::string& line) { return ExecuteLine(line); });
  }
}

int PROGRAM::PollLimit(bool moving) const {
  MILLISECONDS limit = MILLISECONDS::max();
  if (moving) {
    limit = kMovingStep;
  }
  if (m_terminal != nullptr) {
    limit = std::min(limit, kPictureStep);
  }
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
  while (read(m_signals.Get(), &info, sizeof info) == sizeof info) {
    end = end || info.ssi_signo != SIGWINCH;
  }
  return end;
}

void PROGRAM::ReadInput() {
  if (m_terminal != nullptr) {
    m_terminal->ReadInput();
    if (m_terminal->Ended()) {
      m_simulation.Quit();
    }
    return;
  }
  std::array<char, 4096> buffer{};
  const ssize_t count = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count > 0) {
    ExecuteInput(m_input.Feed({buffer.data(), static_cast<std::size_t>(count)}));
    return;
  }
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
    return;
  }
  ExecuteInput(m_input.Finish());
  m_inputOpen = false;
}

/// Without input a scenario still goes on to its end.
void PROGRAM::EndWhenNothingIsLeft() {
  if (!m_inputOpen && !m_options.stay && !m_scenario.Next()) {
    m_simulation.Quit();
  }
}

void PROGRAM::ExecuteInput(const std::vector<LINE_BUFFER::LINE>& lines) {
  for (const LINE_BUFFER::LINE& line : lines) {
    if (m_simulation.Quitting()) {
      return;
    }
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
    if (m_simulation.Quitting()) {
      return;
    }
    PrintEvents();  // what came before the command stands before it
    Print("script: " + step.command + "\n");
    const RESULT result = Execute(m_simulation, step.command);
    PrintEvents();
    if (!result || !result.text.empty()) {
      Print(ResponseText(result));
    }
    m_failed = m_failed || !result;
  }
}

void PROGRAM::PrintEvents() {
  std::string text;
  for (const std::string& line : m_simulation.Events().Take()) {
    text += line + "\n";
  }
  if (const std::size_t lost = m_simulation.Events().TakeLost(); lost > 0) {
    text += std::to_string(lost) + " events lost\n";
  }
  if (!text.empty()) {
    Print(text);
  }
}

void PROGRAM::WriteTrace() {
  if (const RESULT written = m_recorder.Write(); !written) {
    Complain(written.text);
  }
}

/// When who reads this is gone, nothing is left to do.
void PROGRAM::Print(const std::string& text) {
  if (m_terminal != nullptr) {
    m_terminal->Print(text);
  } else if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
    m_simulation.Quit();
  }
}

}  // namespace

int RunProgram(const PROGRAM_OPTIONS& options) {
  return PROGRAM(options).Run();
}

}  // namespace sim
