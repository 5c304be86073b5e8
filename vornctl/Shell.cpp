#include "vornctl/Shell.h"

#include "vornctl/Batch.h"
#include "vornctl/Changes.h"
#include "vornctl/Completion.h"
#include "vornctl/Finally.h"
#include "vornctl/Interpreter.h"
#include "vornctl/LineEditor.h"
#include "vornctl/Words.h"
#include "vornctl/commands/Commands.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <deque>
#include <nlohmann/json.hpp>

namespace ctl {

namespace {

using client::INTERFACE;
using client::kInterfaces;

constexpr const char* kPrompt = "vorn> ";

/// $XDG_STATE_HOME/vornctl/history, in ~/.local/state without that.
std::string HistoryFile() {
  const char* folder = std::getenv("XDG_STATE_HOME");
  if (folder != nullptr && *folder == '/') {
    return std::string(folder) + "/vornctl/history";
  }
  const char* home = std::getenv("HOME");
  return home == nullptr || *home == '\0' ? std::string()
                                          : std::string(home) + "/.local/state/vornctl/history";
}

class SHELL {
 public:
  explicit SHELL(CONTEXT& context)
      : m_context(context),
        m_interpreter(context, USE::kInSeries),
        m_changes(context.link, {}),
        m_editor(
            kPrompt, HistoryFile(), [this](const std::string& line) { m_lines.push_back(line); },
            [this](const std::string& before) { return Complete(before, Facts()); }) {}

  EXIT_STATUS Run() {
    LetSignalEndCommand(SIGINT);
    const FINALLY silence([this] { m_context.output.PrintBy({}); });
    m_context.output.PrintBy([this](const std::string& lines) { m_editor.Print(lines); });
    m_context.link.KeepTrying();
    const LINK::LISTENER listener = m_context.link.Listen(
        [this](const client::BLOCK_VALUE& value, const std::string& line) { Hear(value, line); });
    m_editor.HidePrompt();
    Try([this] { m_context.link.Open({}, {std::begin(kInterfaces), std::end(kInterfaces)}); });
    while (!m_isOver && !(m_lines.empty() && m_editor.Ended())) {
      Try([this] { Learn(); });
      if (m_lines.empty()) {
        Try([this] { AwaitLine(); });
      } else {
        const std::string line = std::move(m_lines.front());
        m_lines.pop_front();
        RunLine(line);
      }
    }
    return m_status;
  }

 private:
  /// Changes while a command is carried out are news for later: it says what it has to say.
  void Hear(const client::BLOCK_VALUE& value, const std::string& line) {
    if (!m_isAtPrompt) {
      m_changes.Learn(value);
      return;
    }
    for (const CHANGE& change : m_changes.Take(value)) {
      m_context.output.Put(ChangeText(change), ChangeRecord(change, line));
    }
  }

  bool SeesInputs() const {
    return m_context.link.IsReady(INTERFACE::kIo) || m_context.link.IsReady(INTERFACE::kMon);
  }

  /// Says it where inputs are seen no more, or again, and learns their states then.
  void Learn() {
    const bool seesInputs = SeesInputs();
    if (seesInputs != m_seesInputs) {
      m_seesInputs = seesInputs;
      m_context.output.Note(seesInputs ? "changes of inputs are shown"
                                       : "neither IO nor MON is there: changes of inputs are not "
                                         "shown; trying on");
    }
    const bool couldAsk = std::exchange(m_canAsk, m_context.link.IsReady(INTERFACE::kCae));
    const bool hadIo = std::exchange(m_hasIo, m_context.link.IsReady(INTERFACE::kIo));
    if (m_canAsk && !couldAsk) {
      m_context.link.ForgetCards();
      m_context.link.Cards();
    }
    if (m_canAsk && m_hasIo && !(couldAsk && hadIo)) {
      TellStates(m_context, {});
    }
  }

  bool IsAnythingNew() const {
    return SeesInputs() != m_seesInputs || m_context.link.IsReady(INTERFACE::kCae) != m_canAsk ||
           m_context.link.IsReady(INTERFACE::kIo) != m_hasIo;
  }

  /// At the prompt: until a line is there, or an interface is or is not.
  void AwaitLine() {
    m_context.link.AddSource(
        {m_editor.Descriptor(), POLLIN, [this](short /*events*/) { m_editor.Handle(); }});
    const FINALLY clear([this] {
      m_context.link.ClearSources();
      m_isAtPrompt = false;
    });
    m_isAtPrompt = true;
    m_editor.ShowPrompt();
    m_context.link.RunUntil(
        [this] { return !m_lines.empty() || m_editor.Ended() || IsAnythingNew(); },
        client::TIME::max());
  }

  void RunLine(const std::string& line) {
    m_editor.HidePrompt();
    m_status = EXIT_STATUS::kDone;
    Try([&] {
      const std::vector<std::string> words = SplitWords(line);
      if (words.empty()) {
        return;
      }
      if (words.size() == 1 && (words[0] == "exit" || words[0] == "quit")) {
        m_isOver = true;
      } else if (words[0] == "help") {
        Help(words);
      } else {
        m_interpreter.Run(words);
      }
    });
    m_context.refused.clear();
  }

  void Help(const std::vector<std::string>& words) {
    if (words.size() > 1) {
      m_interpreter.Run({words[1], "--help"});
      return;
    }
    constexpr std::size_t kWidth = 12;
    for (const COMMAND& command : CommandTable()) {
      if (command.use != USE::kAlone) {
        std::string name = command.name;
        name.resize(kWidth, ' ');
        m_context.output.PutText(name + command.about);
      }
    }
    m_context.output.PutText("help COMMAND tells more; exit, or Ctrl-D, ends.");
  }

  template <class DO>
  void Try(const DO& act) {
    try {
      act();
    } catch (const FAILURE& failure) {
      m_context.output.Fail(failure);
      m_status = failure.Status();
    } catch (const INTERRUPTED& interrupted) {
      if (interrupted.signal != SIGINT) {
        throw;  // which ends the program, as it would have done before a command let it in
      }
      // The user has seen it.
    }
  }

  COMPLETION_FACTS Facts() const {
    COMPLETION_FACTS facts;
    for (int address = 0; address < client::kAddresses; ++address) {
      const auto kind = m_context.link.KnownKindOf(address);
      if (kind && *kind != client::CARD_KIND::kEmpty) {
        facts.cards[address] = *kind;
      }
    }
    for (const auto& [name, place] : m_context.link.Settings().names) {
      facts.names.push_back(name);
    }
    return facts;
  }

  CONTEXT& m_context;
  INTERPRETER m_interpreter;
  CHANGES m_changes;
  std::deque<std::string> m_lines;  // typed, or pasted, and not carried out yet
  LINE_EDITOR m_editor;
  bool m_isOver = false;
  bool m_isAtPrompt = false;
  // What has been told and learnt.
  bool m_seesInputs = true;
  bool m_canAsk = false;
  bool m_hasIo = false;
  EXIT_STATUS m_status = EXIT_STATUS::kDone;
};

}  // namespace

EXIT_STATUS RunShell(CONTEXT& context) {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    return RunBatch(context, "", true);
  }
  return SHELL(context).Run();
}

}  // namespace ctl
