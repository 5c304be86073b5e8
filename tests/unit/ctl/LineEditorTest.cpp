#include "client/Descriptor.h"
#include "tests/support/Screen.h"
#include "tests/support/Wait.h"
#include "tests/support/unit/Folder.h"
#include "vornctl/LineEditor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <optional>
#include <tuple>

namespace {

using client::DESCRIPTOR;
using ctl::LINE_EDITOR;
using support::SCREEN;
using support::WaitUntil;
using vorn::unit::FOLDER;
using vorn::unit::ReadLines;
using vorn::unit::WriteFile;
using LINES = std::vector<std::string>;

constexpr char kUp[] = "\033[A";
constexpr char kLeft[] = "\033[D";

struct SETTINGS {
  std::string kind = "xterm";
  unsigned short columns = 30;
  unsigned short lines = 12;
  std::string history{};
  bool survivesSignals = false;  ///< SIGHUP and SIGINT
  bool hasShell = false;         ///< the program was started by one that can stop and continue it
};

/// The lines that have come by a pipe.
LINES TakeLines(int from, std::string& partial) {
  std::array<char, 4096> bytes{};
  for (ssize_t count = 0; (count = read(from, bytes.data(), bytes.size())) > 0;) {
    partial.append(bytes.data(), static_cast<std::size_t>(count));
  }
  LINES lines;
  for (std::size_t end = 0; (end = partial.find('\n')) != std::string::npos;) {
    lines.push_back(partial.substr(0, end));
    partial.erase(0, end + 1);
  }
  return lines;
}

void Tell(int to, const std::string& line) {
  const std::string text = line + '\n';
  EXPECT_EQ(write(to, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

LINES Words(const std::string& before) {
  if (before.starts_with("set ")) {
    return {"lamp=", "lantern=", "door/"};
  }
  return {"cards", "cae", "set", "stop", "\u00FCber1", "\u00FCber2"};
}

/// The program at the terminal. Its lines are told by one pipe, and what it shall do comes by the
/// other; the line "work" has it hide the prompt.
int RunProgram(const std::string& terminalPath, const SETTINGS& settings, int orders, int report) {
  if (settings.survivesSignals) {
    signal(SIGHUP, SIG_IGN);
    signal(SIGINT, SIG_IGN);
  }
  setenv("TERM", settings.kind.c_str(), 1);
  setenv("LC_ALL", "C", 1);
  FILE* terminal = fopen(terminalPath.c_str(), "r+e");
  FILE* out = fopen(terminalPath.c_str(), "we");
  if (terminal == nullptr || out == nullptr) {
    return 1;
  }
  {
    std::optional<LINE_EDITOR> editor;
    const auto takeLine = [&](const std::string& line) {
      if (line == "work") {
        editor->HidePrompt();
      }
      Tell(report, line);
    };
    editor.emplace("> ", settings.history, takeLine, Words, terminal, out, out);
    Tell(report, "ready");
    std::string partial;
    for (bool ended = false; !ended;) {
      std::array<pollfd, 2> waits = {{{editor->Descriptor(), POLLIN, 0}, {orders, POLLIN, 0}}};
      if (poll(waits.data(), waits.size(), -1) < 0) {
        continue;
      }
      if (waits[1].revents != 0) {
        for (const std::string& order : TakeLines(orders, partial)) {
          if (order == "hide") {
            editor->HidePrompt();
          } else if (order == "show") {
            editor->ShowPrompt();
          } else if (order == "end") {
            ended = true;
          } else {
            editor->Print(order);
          }
          Tell(report, "done");
        }
      }
      if (waits[0].revents != 0) {
        editor->Handle();
      }
      if (editor->Ended()) {
        Tell(report, "ended");
        ended = true;
      }
    }
  }
  fclose(terminal);
  fclose(out);
  return 0;
}

/// The session's first program: opens the terminal, and with it has it for its own.
int RunSession(const std::string& terminalPath, const SETTINGS& settings, int orders, int report) {
  setsid();
  if (!settings.hasShell) {
    return RunProgram(terminalPath, settings, orders, report);
  }
  // What a shell does for its job: puts it into the foreground, waits, and continues it when told.
  const DESCRIPTOR terminal(open(terminalPath.c_str(), O_RDWR | O_CLOEXEC));
  signal(SIGTTOU, SIG_IGN);
  sigset_t told;
  sigemptyset(&told);
  sigaddset(&told, SIGUSR1);
  sigprocmask(SIG_BLOCK, &told, nullptr);
  const pid_t job = fork();
  if (job == 0) {
    setpgid(0, 0);
    tcsetpgrp(terminal.Get(), getpid());
    signal(SIGTTOU, SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &told, nullptr);
    return RunProgram(terminalPath, settings, orders, report);
  }
  for (int status = 0; waitpid(job, &status, WUNTRACED) == job && WIFSTOPPED(status);) {
    Tell(report, "stopped");
    int number = 0;
    sigwait(&told, &number);
    kill(-job, SIGCONT);
  }
  return 0;
}

/// The editor in a program of its own at a terminal of its own, and the person before it.
class LineEditor : public testing::Test {
 protected:
  void Start(const SETTINGS& settings = {}) {
    m_master = DESCRIPTOR(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    ASSERT_EQ(grantpt(m_master.Get()), 0);
    ASSERT_EQ(unlockpt(m_master.Get()), 0);
    const std::string path = ptsname(m_master.Get());
    // Held open, so that what the program leaves can be seen.
    m_slave = DESCRIPTOR(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    Resize(settings.columns, settings.lines);
    ASSERT_EQ(tcgetattr(m_slave.Get(), &m_before), 0);
    m_screen.emplace(settings.columns, settings.lines);
    std::array<int, 2> orders{};
    std::array<int, 2> report{};
    ASSERT_EQ(pipe2(orders.data(), O_CLOEXEC | O_NONBLOCK), 0);
    ASSERT_EQ(pipe2(report.data(), O_CLOEXEC | O_NONBLOCK), 0);
    std::fflush(nullptr);
    m_child = fork();
    ASSERT_GE(m_child, 0);
    if (m_child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // it is left to nobody
      m_master.Close();
      m_slave.Close();
      close(orders[1]);
      std::exit(RunSession(path, settings, orders[0], report[1]));
    }
    close(orders[0]);
    close(report[1]);
    m_orders = DESCRIPTOR(orders[1]);
    m_report = DESCRIPTOR(report[0]);
    ASSERT_EQ(Line(), "ready");
  }

  void TearDown() override {
    if (m_child > 0) {
      if (m_master) {
        EXPECT_EQ(m_screen->Unknown(), "");
      }
      kill(m_child, SIGKILL);
      waitpid(m_child, nullptr, 0);
    }
  }

  void Type(const std::string& keys) {
    ASSERT_EQ(write(m_master.Get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Done when this returns.
  void Order(const std::string& order) {
    Tell(m_orders.Get(), order);
    ASSERT_EQ(Line(), "done");
  }

  /// The next that the program tells; "nothing" if it does not.
  std::string Line() {
    WaitUntil([&] {
      Look();
      for (std::string& line : TakeLines(m_report.Get(), m_partial)) {
        m_told.push_back(std::move(line));
      }
      return m_told.size() > m_taken;
    });
    return m_told.size() > m_taken ? m_told[m_taken++] : "nothing";
  }

  LINES NextLines(std::size_t count) {
    LINES lines;
    for (std::size_t i = 0; i < count; ++i) {
      lines.push_back(Line());
    }
    return lines;
  }

  /// Waits until all of the screen is so.
  testing::AssertionResult Shows(const LINES& rows) {
    const bool isSo = WaitUntil([&] {
      Look();
      return m_screen->Rows() == rows;
    });
    return Judge(isSo);
  }

  testing::AssertionResult CursorIsAt(std::size_t row, std::size_t column) {
    const bool isSo = WaitUntil([&] {
      Look();
      return m_screen->CursorRow() == row && m_screen->CursorColumn() == column;
    });
    return Judge(isSo);
  }

  void Resize(unsigned short columns, unsigned short lines) {
    const winsize size{lines, columns, 0, 0};
    ASSERT_EQ(ioctl(m_master.Get(), TIOCSWINSZ, &size), 0);
  }

  termios Modes() const {
    termios now{};
    EXPECT_EQ(tcgetattr(m_slave.Get(), &now), 0);
    return now;
  }

  bool HasModesOfBefore() const {
    const termios now = Modes();
    return std::tie(now.c_iflag, now.c_oflag, now.c_lflag) ==
               std::tie(m_before.c_iflag, m_before.c_oflag, m_before.c_lflag) &&
           std::equal(std::begin(now.c_cc), std::end(now.c_cc), std::begin(m_before.c_cc));
  }

  /// The program's end; its status as waitpid has it.
  int End() {
    int status = -1;
    EXPECT_TRUE(WaitUntil([&] {
      Look();
      return waitpid(m_child, &status, WNOHANG) == m_child;
    }));
    m_child = -1;
    return status;
  }

  void Look() {
    std::array<char, 4096> bytes{};
    for (ssize_t count = 0;
         m_master && (count = read(m_master.Get(), bytes.data(), bytes.size())) > 0;) {
      m_bytes.append(bytes.data(), static_cast<std::size_t>(count));
      m_screen->Write({bytes.data(), static_cast<std::size_t>(count)});
    }
  }

  DESCRIPTOR m_master;
  DESCRIPTOR m_slave;
  DESCRIPTOR m_orders;
  DESCRIPTOR m_report;
  pid_t m_child = -1;
  termios m_before{};
  std::optional<SCREEN> m_screen;
  std::string m_bytes;

 private:
  testing::AssertionResult Judge(bool isSo) const {
    if (isSo) {
      return testing::AssertionSuccess();
    }
    testing::AssertionResult result = testing::AssertionFailure() << "the screen:\n";
    for (const std::string& row : m_screen->Rows()) {
      result << "|" << row << "\n";
    }
    return result << "cursor at " << m_screen->CursorRow() << ", " << m_screen->CursorColumn();
  }

  std::string m_partial;
  LINES m_told;
  std::size_t m_taken = 0;
};

TEST_F(LineEditor, DeliversATypedLineAndPromptsAgain) {
  Start();
  Type("cards");
  ASSERT_TRUE(Shows({"> cards"}));
  Type("\r");
  EXPECT_EQ(Line(), "cards");
  EXPECT_TRUE(Shows({"> cards", ">"}));
  EXPECT_TRUE(CursorIsAt(1, 2));
}

TEST_F(LineEditor, DeliversAnEmptyLine) {
  Start();
  Type("\r");
  EXPECT_EQ(Line(), "");
}

TEST_F(LineEditor, EditsWithTheKeysOfEmacs) {
  Start();
  Type("ard\001c\005sx\177\002\002\013ds\033[D\033[3~S\r");
  EXPECT_EQ(Line(), "cardS");
}

TEST_F(LineEditor, KeepsSignsOfSeveralBytes) {
  Start();
  Type("\u00E4\u65E5\U0001F600x");
  Type(kLeft);
  Type("\u00DF\r");
  EXPECT_EQ(Line(), "\u00E4\u65E5\U0001F600\u00DFx");
}

TEST_F(LineEditor, PassesOverBytesThatAreNoText) {
  Start();
  Type(
      "a\xFF"
      "b\r");
  EXPECT_EQ(Line(), "ab");
}

TEST_F(LineEditor, GoesBackInTheHistory) {
  Start();
  Type("one\rtwo\r");
  EXPECT_EQ(NextLines(2), (LINES{"one", "two"}));
  Type(std::string(kUp) + kUp);
  EXPECT_TRUE(Shows({"> one", "> two", "> one"}));
  Type("\033[B");
  EXPECT_TRUE(Shows({"> one", "> two", "> two"}));
  Type("\r");
  EXPECT_EQ(Line(), "two");
}

TEST_F(LineEditor, FindsOlderLinesThatContainWhatIsTyped) {
  Start();
  Type("set lamp=1\rset door=1\rcards\r");
  NextLines(3);
  Type("lamp\022");
  EXPECT_TRUE(Shows({"> set lamp=1", "> set door=1", "> cards", "> set lamp=1"}));
}

TEST_F(LineEditor, ReadsAndWritesTheHistoryFile) {
  const FOLDER folder;
  WriteFile(folder.File("history"), "older \u00E4\n");
  SETTINGS settings;
  settings.history = folder.File("history");
  Start(settings);
  Type(kUp);
  ASSERT_TRUE(Shows({"> older \u00E4"}));
  Type("x\r secret\r");
  EXPECT_EQ(NextLines(2), (LINES{"older \u00E4x", " secret"}));
  Order("end");
  EXPECT_EQ(End(), 0);
  EXPECT_EQ(ReadLines(folder.File("history")), (LINES{"older \u00E4", "older \u00E4x"}));
}

TEST_F(LineEditor, CompletesTheOnlyWordAndAddsABlank) {
  Start();
  Type("car\t");
  EXPECT_TRUE(Shows({"> cards"}));
  EXPECT_TRUE(CursorIsAt(0, 8));
}

TEST_F(LineEditor, AddsNoBlankWhereTheWordGoesOn) {
  Start();
  Type("set lam\t1\r");
  EXPECT_EQ(Line(), "set lamp=1");
  Type("set d\t1\r");
  EXPECT_EQ(Line(), "set door/1");
}

TEST_F(LineEditor, CompletesWithinALine) {
  Start();
  Type("set d 7");
  Type(std::string(kLeft) + kLeft + "\t\r");
  EXPECT_EQ(Line(), "set door/ 7");
}

TEST_F(LineEditor, CompletesAsFarAsAllWordsAgreeThenListsThem) {
  Start();
  Type("set l\t");
  ASSERT_TRUE(Shows({"> set la"}));
  Type("\t");
  EXPECT_TRUE(Shows({"lamp=     lantern=", "> set la"}));
  EXPECT_TRUE(CursorIsAt(1, 8));
  Type("m\t\r");
  EXPECT_EQ(Line(), "set lamp=");
}

TEST_F(LineEditor, ListsAllWordsAtOnceWhereNothingCanBeAdded) {
  SETTINGS settings;
  settings.columns = 20;
  Start(settings);
  Type("\t");
  EXPECT_TRUE(Shows({"cards  stop", "cae    \u00FCber1", "set    \u00FCber2", ">"}));
}

TEST_F(LineEditor, CompletesSignsOfSeveralBytes) {
  Start();
  Type("\u00FC\t2\r");
  EXPECT_EQ(Line(), "\u00FCber2");
}

TEST_F(LineEditor, RingsWhereThereIsNoSuchWord) {
  Start();
  Type("xyz\t");
  EXPECT_TRUE(WaitUntil([&] {
    Look();
    return m_screen->Bells() == 1;
  }));
  EXPECT_TRUE(Shows({"> xyz"}));
}

TEST_F(LineEditor, PrintsAboveWhatIsBeingTyped) {
  Start();
  Type("cards");
  Type(std::string(kLeft) + kLeft);
  ASSERT_TRUE(CursorIsAt(0, 5));
  Order("3/0 on");
  EXPECT_TRUE(Shows({"3/0 on", "> cards"}));
  EXPECT_TRUE(CursorIsAt(1, 5));
  Order("3/1 on");
  EXPECT_TRUE(Shows({"3/0 on", "3/1 on", "> cards"}));
  Type("X\r");
  EXPECT_EQ(Line(), "carXds");
}

TEST_F(LineEditor, PrintsAboveALineOfSeveralRows) {
  SETTINGS settings;
  settings.columns = 10;
  Start(settings);
  Type("0123456789abcdefghij");
  ASSERT_TRUE(Shows({"> 01234567", "89abcdefgh", "ij"}));
  Order("news");
  EXPECT_TRUE(Shows({"news", "> 01234567", "89abcdefgh", "ij"}));
  Type(std::string("\001") + "X");
  ASSERT_TRUE(Shows({"news", "> X0123456", "789abcdefg", "hij"}));
  Order("more");
  EXPECT_TRUE(Shows({"news", "more", "> X0123456", "789abcdefg", "hij"}));
  EXPECT_TRUE(CursorIsAt(2, 3));
  Type("\r");
  EXPECT_EQ(Line(), "X0123456789abcdefghij");
  EXPECT_TRUE(Shows({"news", "more", "> X0123456", "789abcdefg", "hij", ">"}));
}

TEST_F(LineEditor, PrintsAboveALineThatFillsItsRow) {
  SETTINGS settings;
  settings.columns = 10;
  Start(settings);
  Type("01234567");
  ASSERT_TRUE(Shows({"> 01234567"}));
  Order("news");
  EXPECT_TRUE(Shows({"news", "> 01234567"}));
  Type("8\r");
  EXPECT_EQ(Line(), "012345678");
  EXPECT_TRUE(Shows({"news", "> 01234567", "8", ">"}));
}

TEST_F(LineEditor, PrintsAboveWideSignsAtTheEndOfARow) {
  SETTINGS settings;
  settings.columns = 9;
  Start(settings);
  Type("\u65E5\u65E5\u65E5\u65E5x");
  ASSERT_TRUE(Shows({"> \u65E5\u65E5\u65E5", "\u65E5x"}));
  Order("news");
  EXPECT_TRUE(Shows({"news", "> \u65E5\u65E5\u65E5", "\u65E5x"}));
  Type(std::string(kLeft) + kLeft);
  ASSERT_TRUE(CursorIsAt(2, 0));
  Order("more");
  EXPECT_TRUE(Shows({"news", "more", "> \u65E5\u65E5\u65E5", "\u65E5x"}));
}

TEST_F(LineEditor, PrintsAtTheLowerEndOfTheWindow) {
  SETTINGS settings;
  settings.columns = 10;
  settings.lines = 4;
  Start(settings);
  Type("0123456789abc");
  ASSERT_TRUE(Shows({"> 01234567", "89abc"}));
  LINES rows;
  for (int i = 0; i < 6; ++i) {
    Order("news " + std::to_string(i));
    rows.push_back("news " + std::to_string(i));
  }
  rows.insert(rows.end(), {"> 01234567", "89abc"});
  EXPECT_TRUE(Shows(rows));
}

TEST_F(LineEditor, DropsTheLineAtCtrlC) {
  Start();
  Type("one\r");
  EXPECT_EQ(Line(), "one");
  Type("half\003");
  EXPECT_TRUE(Shows({"> one", "> half^C", ">"}));
  Type(kUp);
  EXPECT_TRUE(Shows({"> one", "> half^C", "> one"}));
  Type("\r");
  EXPECT_EQ(Line(), "one");
}

TEST_F(LineEditor, EndsAtCtrlDOnAnEmptyLineOnly) {
  Start();
  Type("ab\001\004\r");
  EXPECT_EQ(Line(), "b");
  Type("\004");
  EXPECT_EQ(Line(), "ended");
  EXPECT_EQ(End(), 0);
  EXPECT_TRUE(HasModesOfBefore());
  EXPECT_TRUE(CursorIsAt(2, 0));
}

TEST_F(LineEditor, EndsWhenTheTerminalGoesAway) {
  SETTINGS settings;
  settings.survivesSignals = true;
  Start(settings);
  m_master.Close();
  EXPECT_EQ(Line(), "ended");
  EXPECT_EQ(End(), 0);
}

TEST_F(LineEditor, EndsWhenTheTerminalGoesAwayWhileALineIsCarriedOut) {
  SETTINGS settings;
  settings.survivesSignals = true;
  Start(settings);
  Type("work\r");
  EXPECT_EQ(Line(), "work");
  m_master.Close();
  EXPECT_EQ(Line(), "ended");
  EXPECT_EQ(End(), 0);
}

TEST_F(LineEditor, DeliversEachLineOfWhatIsPasted) {
  Start();
  Type("one\rtwo\rthree\rfo");
  EXPECT_EQ(NextLines(3), (LINES{"one", "two", "three"}));
  EXPECT_TRUE(Shows({"> one", "> two", "> three", "> fo"}));
}

TEST_F(LineEditor, DeliversALongPasteWhole) {
  Start();
  LINES lines;
  std::string keys;
  for (int i = 0; i < 400; ++i) {
    lines.push_back("line " + std::to_string(i));
  }
  LINES came;
  for (std::size_t i = 0; i < lines.size(); i += 50) {
    keys.clear();
    for (std::size_t k = i; k < i + 50; ++k) {
      keys += lines[k] + "\r";
    }
    Type(keys);
    for (const std::string& line : NextLines(50)) {
      came.push_back(line);
    }
  }
  EXPECT_EQ(came, lines);
}

TEST_F(LineEditor, KeepsWhatIsPastedForTheNextPrompt) {
  Start();
  Type("work\rtwo\rwork\rthr");
  EXPECT_EQ(Line(), "work");
  Order("result");
  EXPECT_TRUE(Shows({"> work", "result"}));
  Order("show");
  EXPECT_EQ(NextLines(2), (LINES{"two", "work"}));
  EXPECT_TRUE(Shows({"> work", "result", "> two", "> work"}));
  Type("ee\r");
  Order("show");
  EXPECT_EQ(Line(), "three");
  EXPECT_TRUE(Shows({"> work", "result", "> two", "> work", "> three", ">"}));
}

TEST_F(LineEditor, KeepsAHalfTypedLineWhileThereIsNoPrompt) {
  Start();
  Type("cards");
  Type(kLeft);
  ASSERT_TRUE(CursorIsAt(0, 6));
  Order("hide");
  Order("no connection");
  EXPECT_TRUE(Shows({"no connection"}));
  Type("X");
  Order("show");
  EXPECT_TRUE(Shows({"no connection", "> cardXs"}));
  EXPECT_TRUE(CursorIsAt(1, 7));
}

TEST_F(LineEditor, CtrlCInterruptsWhileALineIsCarriedOut) {
  Start();
  Type("work\r");
  EXPECT_EQ(Line(), "work");
  Type("\003");
  const int status = End();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  EXPECT_TRUE(HasModesOfBefore());
}

class LineEditorKilled : public LineEditor, public testing::WithParamInterface<int> {};

TEST_P(LineEditorKilled, GivesTheTerminalBack) {
  Start();
  Type("half");
  ASSERT_TRUE(Shows({"> half"}));
  ASSERT_FALSE(HasModesOfBefore());
  kill(m_child, GetParam());
  const int status = End();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
  EXPECT_TRUE(HasModesOfBefore());
}

INSTANTIATE_TEST_SUITE_P(Signals, LineEditorKilled, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(LineEditor, GivesTheTerminalBackAtItsEnd) {
  Start();
  Type("half");
  ASSERT_TRUE(Shows({"> half"}));
  Order("end");
  EXPECT_EQ(End(), 0);
  EXPECT_TRUE(HasModesOfBefore());
}

TEST_F(LineEditor, GoesOnAfterItWasStopped) {
  Start();
  Type("half");
  ASSERT_TRUE(Shows({"> half"}));
  kill(m_child, SIGSTOP);
  int status = 0;
  ASSERT_EQ(waitpid(m_child, &status, WUNTRACED), m_child);
  // As a shell does.
  ASSERT_EQ(tcsetattr(m_slave.Get(), TCSANOW, &m_before), 0);
  m_screen->Write("\r\n$ fg\r\n");
  kill(m_child, SIGCONT);
  EXPECT_TRUE(Shows({"> half", "$ fg", "> half"}));
  Type("X\003");
  EXPECT_TRUE(Shows({"> half", "$ fg", "> halfX^C", ">"}));
}

TEST_F(LineEditor, StopsAtCtrlZAndGivesTheTerminalBackMeanwhile) {
  SETTINGS settings;
  settings.hasShell = true;
  Start(settings);
  for (const std::string typed : {"a", "ab"}) {  // more than once
    Type(typed.substr(typed.size() - 1));
    ASSERT_TRUE(Shows({"> " + typed}));
    Type("\032");
    EXPECT_EQ(Line(), "stopped");
    EXPECT_TRUE(HasModesOfBefore());
    kill(m_child, SIGUSR1);
    EXPECT_TRUE(WaitUntil([&] { return !HasModesOfBefore(); }));
  }
  Type("c\r");
  EXPECT_EQ(Line(), "abc");
}

TEST_F(LineEditor, CtrlCThrowsAwayWhatWasTypedAhead) {
  SETTINGS settings;
  settings.survivesSignals = true;
  Start(settings);
  Type("work\r");
  EXPECT_EQ(Line(), "work");
  // What is typed comes to the terminal's other side a little later.
  const auto waiting = [this] {
    int count = 0;
    return ioctl(m_slave.Get(), FIONREAD, &count) == 0 ? count : -1;
  };
  Type("two\r");
  ASSERT_TRUE(WaitUntil([&] { return waiting() == 4; }));
  Type("\003");
  ASSERT_TRUE(WaitUntil([&] { return waiting() == 0; }));
  Order("show");
  Type("three\r");
  EXPECT_EQ(Line(), "three");
}

TEST_F(LineEditor, DeliversALineThatIsLongerThanTheWindow) {
  SETTINGS settings;
  settings.columns = 10;
  settings.lines = 4;
  Start(settings);
  const std::string text(2500, 'x');
  Type(text);
  Order("news");
  Type("\001y\r");
  EXPECT_EQ(Line(), "y" + text);
}

TEST_F(LineEditor, DrawsTheLineAnewInAWindowOfAnotherSize) {
  SETTINGS settings;
  settings.columns = 40;
  Start(settings);
  Type("0123456789abcdef");
  ASSERT_TRUE(Shows({"> 0123456789abcdef"}));
  m_screen.emplace(10, 12);
  Resize(10, 12);
  EXPECT_TRUE(Shows({"> 01234567", "89abcdef"}));
  Order("news");
  EXPECT_TRUE(Shows({"news", "> 01234567", "89abcdef"}));
}

TEST_F(LineEditor, ALoneEscapeDoesNotHoldItUp) {
  Start();
  Type("a\033");
  ASSERT_TRUE(Shows({"> a"}));
  Order("news");
  EXPECT_TRUE(Shows({"news", "> a"}));
  // The rest of a key is waited for, but not for ever; what comes too late stands for itself.
  Type("b\r");
  EXPECT_EQ(Line(), "ab");
}

TEST_F(LineEditor, WorksWithoutEscapeCodesOnADumbTerminal) {
  SETTINGS settings;
  settings.kind = "dumb";
  Start(settings);
  Type("cart\177ds");
  Type("\002\002");
  ASSERT_TRUE(Shows({"> cards"}));
  ASSERT_TRUE(CursorIsAt(0, 5));
  Order("news");
  EXPECT_TRUE(Shows({"news", "> cards"}));
  Type("\005\rsto\t");
  EXPECT_EQ(Line(), "cards");
  EXPECT_TRUE(Shows({"news", "> cards", "> stop"}));
  Type("\003");
  EXPECT_TRUE(Shows({"news", "> cards", "> stop ^C", ">"}));
  EXPECT_EQ(m_bytes.find('\033'), std::string::npos);
}

}  // namespace
