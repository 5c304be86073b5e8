#include "sim/tool/Arguments.h"
#include "sim/tool/RackFile.h"
#include "tests/unit/sim/SimSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <fstream>

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr winsize kTerminal{40, 100, 0, 0};

/// A vornsim with its input and outputs in pipes, or all on a terminal of its own. Its arguments
/// are separated by blanks.
class VORNSIM {
 public:
  explicit VORNSIM(const std::string& commandLine, std::optional<winsize> terminal = {}) {
    std::array<int, 2> in{-1, -1};
    std::array<int, 2> out{-1, -1};
    std::array<int, 2> error{-1, -1};
    if (terminal) {
      EXPECT_EQ(openpty(out.data(), in.data(), nullptr, nullptr, &*terminal), 0);
      fcntl(out[0], F_SETFD, FD_CLOEXEC);
      in[1] = fcntl(out[0], F_DUPFD_CLOEXEC, 0);
      out[1] = dup(in[0]);
    } else {
      EXPECT_EQ(pipe2(in.data(), O_CLOEXEC), 0);
      EXPECT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
    }
    EXPECT_EQ(pipe2(error.data(), O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, error[1], STDERR_FILENO);
    std::vector<std::string> words = SplitWords("vornsim " + commandLine);
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&m_pid, VORNSIM_PROGRAM, &actions, nullptr, arguments.data(), environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
    for (const int given : {in[0], out[1], error[1]}) {
      close(given);
    }
    m_in = DESCRIPTOR(in[1]);
    m_out = DESCRIPTOR(out[0]);
    m_error = DESCRIPTOR(error[0]);
  }
  ~VORNSIM() {
    if (m_pid > 0) {
      kill(m_pid, SIGKILL);
      Status();
    }
  }
  VORNSIM(const VORNSIM&) = delete;
  VORNSIM& operator=(const VORNSIM&) = delete;

  bool Type(const std::string& text) {
    return write(m_in.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  void Resize(const winsize& size) const {
    EXPECT_EQ(ioctl(m_in.Get(), TIOCSWINSZ, &size), 0);
    Signal(SIGWINCH);
  }
  void EndInput() { m_in.Close(); }
  void CloseOutput() { m_out.Close(); }
  void Signal(int number) const { kill(m_pid, number); }

  /// Reads until the output so far contains the text; takes it and what was before it away.
  std::string ReadUntil(const std::string& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    std::size_t at = 0;
    while ((at = m_text.find(wanted)) == std::string::npos) {
      if (!Fill(m_out, deadline)) {
        ADD_FAILURE() << "'" << wanted << "' did not come, but: " << m_text;
        return {};
      }
    }
    const std::string taken = m_text.substr(0, at + wanted.size());
    m_text.erase(0, at + wanted.size());
    return taken;
  }
  /// One command and its response, events in between included.
  std::string Command(const std::string& line) {
    EXPECT_TRUE(Type(line + "\n"));
    return ReadUntil("OK\n");
  }
  std::string RestOfOutput() {
    while (Fill(m_out, std::chrono::steady_clock::now() + kLimit)) {
    }
    return std::exchange(m_text, {});
  }
  std::string Errors() {
    m_text.clear();
    while (Fill(m_error, std::chrono::steady_clock::now() + kLimit)) {
    }
    return std::exchange(m_text, {});
  }
  /// Waits for the end; the exit status, or -1.
  int Status() {
    int status = 0;
    if (waitpid(m_pid, &status, 0) != m_pid) {
      return -1;
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  bool Fill(const DESCRIPTOR& from, std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd watched{from.Get(), POLLIN, 0};
    if (poll(&watched, 1, std::max(0, static_cast<int>(left.count()))) <= 0) {
      return false;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = read(from.Get(), buffer.data(), buffer.size());
    if (count <= 0) {
      return false;
    }
    m_text.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
  }

  pid_t m_pid = -1;
  DESCRIPTOR m_in;
  DESCRIPTOR m_out;
  DESCRIPTOR m_error;
  std::string m_text;
};

class Vornsim : public ::testing::Test {
 protected:
  Vornsim() {
    setenv("TERM", "xterm", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread
    setenv("LC_ALL", "C", 1);    // NOLINT(concurrency-mt-unsafe)
  }

  std::string With(const std::string& more = {}) {
    return "--dev-dir " + folder.Path() + " " + more;
  }
  std::string Link(int number = 0) { return folder.File("ttyUSB" + std::to_string(number)); }
  std::string Ready(int number = 0) { return "adapter " + Link(number) + " ready\n"; }
  std::string Unplugged(int number = 0) { return "adapter " + Link(number) + " unplugged\n"; }
  std::string Write(const std::string& name, const std::string& text) {
    vorn::unit::WriteFile(folder.File(name), text);
    return folder.File(name);
  }
  /// Ends by itself, having written just that.
  static void Ends(const std::string& commandLine, int status, const std::string& output,
                   const std::string& errors) {
    VORNSIM program(commandLine);
    EXPECT_EQ(program.RestOfOutput(), output) << commandLine;
    EXPECT_EQ(program.Errors(), errors) << commandLine;
    EXPECT_EQ(program.Status(), status) << commandLine;
  }

  vorn::unit::FOLDER folder;
};

TEST_F(Vornsim, SaysReadyServesAndEndsWithItsInput) {
  VORNSIM program(With("--number 12"));
  program.ReadUntil(Ready(12));
  NEAR_END near(Link(12));
  EXPECT_EQ(near.Ask("10 05 02 FF FB"), "41 05");
  program.ReadUntil("adapter " + Link(12) + " opened\ncard 5 block 1 = FB\n");
  EXPECT_EQ(program.Command("press 3.6"), "card 3 input block 0 = 40\nOK\n");
  ASSERT_TRUE(program.Type(std::string(10000, 'x') + "\n"));
  program.ReadUntil("error: the line is too long\n");
  ASSERT_TRUE(program.Type("version"));  // a last line without an end
  program.EndInput();
  EXPECT_EQ(program.RestOfOutput(), "2.04\nOK\n" + Unplugged(12));
  EXPECT_EQ(program.Status(), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(Link(12)));
}

TEST_F(Vornsim, EndsOnEachOfItsSignalsAndRemovesItsLink) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    VORNSIM program(With("--stay"));
    program.EndInput();
    program.ReadUntil(Ready());
    program.Signal(number);
    EXPECT_EQ(program.Status(), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(Link()));
  }
}

TEST_F(Vornsim, EndsWhenNobodyReadsItsOutputAnyMore) {
  VORNSIM program(With());
  program.ReadUntil(Ready());
  program.CloseOutput();
  ASSERT_TRUE(program.Type("press 3.6\n"));
  EXPECT_EQ(program.Status(), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(Link()));
}

TEST_F(Vornsim, PrintsTheBuiltInRackAndTakesItBack) {
  Ends("--print-rack", 0, DefaultRackText(), "");
  VORNSIM program(With("--rack " + Write("rack.xml", DefaultRackText())));
  program.ReadUntil(Ready());
  EXPECT_NE(program.Command("list").find("E lcd 'alphanumeric LCD controller'"), std::string::npos);
}

TEST_F(Vornsim, CtlSendsOneCommandAndEndsWithItsResult) {
  const std::string ctl = "ctl --control " + folder.File("c") + " ";
  const std::string notOneLine =
      "error: a command is one line, and no word of it holds a double quote\n";
  VORNSIM program(With("--stay --control " + folder.File("c")));
  program.ReadUntil(Ready());
  program.EndInput();
  Ends(ctl + "press 3.6", 0, "OK\n", "");
  Ends(ctl + "name 3 \"my keys\"", 0, "OK\n", "");
  Ends(ctl + "show 3", 0, "card 3 digital-in 'my keys'\n  blocks: 40 00\n  pressed: 6\nOK\n", "");
  Ends(ctl + "press 5.1", 1, "", "error: card 5 (digital-out) has no keys\n");
  Ends(ctl + "name 3 a\nquit", 1, "", notOneLine);
  Ends(ctl + "name 3 a\"b", 1, "", notOneLine);
  Ends(ctl + "quit", 0, "OK\n", "");
  EXPECT_EQ(program.Status(), 0);
}

TEST_F(Vornsim, SaysWhatIsWrongAndEnds) {
  const auto fails = [](const std::string& commandLine, const std::string& error) {
    Ends(commandLine, 1, "", "vornsim: " + error + "\n");
  };
  const auto isWrong = [](const std::string& commandLine, const std::string& error) {
    const std::string program = commandLine.starts_with("ctl") ? "vornsim ctl" : "vornsim";
    Ends(commandLine, 2, "", "vornsim: " + error + " ('" + program + " --help' explains)\n");
  };
  const std::string none = folder.File("none");
  const std::string noneText = none + ": No such file or directory";
  const std::string rack = Write("rack.xml", "<Rack>\n  <Card address='3'/>\n</Rack>\n");
  const std::string trace = Write("trace", "0.1 > 01 30\nsoon\n");
  const std::string script = Write("script", "at 0 list\nat 1 bogus\nat 2\n");
  std::filesystem::create_symlink("/dev/null", Link(3));
  fails(With("--number 3"), "cannot make " + Link(3) + ": File exists (take another number)");
  EXPECT_EQ(std::filesystem::read_symlink(Link(3)), "/dev/null");
  fails("--dev-dir " + none, "cannot make " + none +
                                 "/ttyUSB0: No such file or directory; "
                                 "--dev-dir DIR takes another folder");
  fails(With("--rack " + rack), rack + ":2:3: Card needs the attribute type");
  fails(With("--replay " + trace), trace + ": line 2: expected seconds, found 'soon'");
  fails(With("--replay " + none), none + ": cannot read " + noneText);
  fails(With("--script " + none), "cannot read " + noneText);
  fails(With("--script " + script), script +
                                        ":2: there is no command 'bogus'; 'help' lists them\n" +
                                        "vornsim: " + script + ":3: expected a command");
  fails(With("--record " + none + "/x"), "cannot write " + none + "/x: No such file or directory");
  fails(With("--control " + none + "/x"),
        "cannot listen at " + none + "/x: No such file or directory");
  isWrong("--bogus", "The following argument was not expected: --bogus");
  isWrong("bogus", "The following argument was not expected: bogus");
  isWrong("--number 1000", "--number: Value 1000 not in range 0 to 999");
  isWrong("--baud fast", "--baud: Value fast not in range 50 to 12000000");
  isWrong("--latency-timer -1", "--latency-timer: Value -1 not in range 0 to 255");
  isWrong("--rack", "--rack: 1 required FILE missing");
  for (const char* unfinished : {"ctl", "ctl list", "ctl --control /nobody"}) {
    isWrong(unfinished, "ctl needs --control PATH (or VORNSIM_CONTROL) and a command");
  }
  isWrong("ctl --control", "--control: 1 required PATH missing");
  isWrong("ctl --control /nobody --bogus", "ctl has no option --bogus");
  Ends("ctl --control " + none + " list", 2, "", "vornsim: no rack answers at " + noneText + "\n");
}

TEST_F(Vornsim, PacesTheLine) {
  VORNSIM program(With("--baud 1200 --latency-timer 20"));
  program.ReadUntil(Ready());
  NEAR_END near(Link());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(near.Ask("20 03 02"), "21 03 00 00");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 95ms);  // 9 bytes at 120 a second, and 20 ms
}

TEST_F(Vornsim, RecordsATraceThatItReplays) {
  const std::string file = folder.File("trace");
  {
    VORNSIM program(With("--record " + file));
    program.ReadUntil(Ready());
    program.Command("press 3.6");
    NEAR_END near(Link());
    EXPECT_EQ(near.Ask("40 6F 9A"), "40 32 2E 30 34");
    EXPECT_EQ(near.Ask("20 03 02"), "21 03 40 00");
    program.EndInput();
    EXPECT_EQ(program.Status(), 0);
  }
  std::string trace;
  ASSERT_TRUE(ReadTextFile(file, trace));
  for (const char* part :
       {"> 03 40 6F 9A ", "; handshake\n", "< 05 40 32 2E 30 34", "; controller version '2.04'\n",
        "> 03 20 03 02 ", "; poll card 3, 2 bytes\n", "< 04 21 03 40 00 ",
        "; card 3 input 40 00\n"}) {
    EXPECT_NE(trace.find(part), std::string::npos) << part;
  }

  VORNSIM replay(With("--replay " + file));
  replay.ReadUntil(Ready());
  NEAR_END near(Link());
  EXPECT_EQ(near.Ask("40 6F 9A"), "40 32 2E 30 34");
  EXPECT_EQ(near.Ask("20 03 02"), "21 03 40 00");
  replay.ReadUntil("replay complete: 2 requests\n");
  replay.EndInput();
  EXPECT_EQ(replay.Status(), 0);
}

TEST_F(Vornsim, SaysWhenTheTraceCannotBeWrittenAndFails) {
  VORNSIM program(With("--record /dev/full"));
  program.ReadUntil(Ready());
  NEAR_END near(Link());
  EXPECT_EQ(near.Ask("20 03 02"), "21 03 00 00");
  EXPECT_EQ(near.Ask("20 03 02"), "21 03 00 00");  // the rack goes on without the trace
  program.EndInput();
  EXPECT_EQ(program.Errors(), "vornsim: cannot write /dev/full\n");
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, AReplayThatDiffersOrEndsEarlyFails) {
  const std::string trace = Write("trace", "0.1 > 01 30\n0.2 < 02 31 00\n");
  for (const bool differs : {true, false}) {
    VORNSIM program(With("--replay " + trace));
    program.ReadUntil(Ready());
    NEAR_END near(Link());
    if (differs) {
      ASSERT_TRUE(near.Write({0x03, 0x20, 0x03, 0x02}));
      program.ReadUntil("replay: request 1 differs: expected 01 30, received 03 20 03 02\n");
    }
    program.EndInput();
    EXPECT_EQ(program.Errors(), differs ? "" : "vornsim: the replay ended after 0 of 1 requests\n");
    EXPECT_EQ(program.Status(), 1);
  }
}

TEST_F(Vornsim, RunsAScriptToItsEndWithoutInput) {
  for (const bool isGood : {true, false}) {
    const std::string last = isGood ? "release 3.6" : "press 5.1";
    const std::string said =
        isGood ? "card 3 input block 0 = 00\n" : "error: card 5 (digital-out) has no keys\n";
    VORNSIM program(
        With("--script " + Write("script", "at 0.05 press 3.6\nafter 0.05 " + last + "\n")));
    program.EndInput();
    EXPECT_EQ(program.RestOfOutput(),
              Ready() + "script: press 3.6\ncard 3 input block 0 = 40\nscript: " + last + "\n" +
                  said + Unplugged());
    EXPECT_EQ(program.Status(), isGood ? 0 : 1);
  }
}

/// The manual's test looks at the options.
TEST_F(Vornsim, HelpNamesItsArgumentsAndVersionTheVersion) {
  EXPECT_EQ(VORNSIM("--version").RestOfOutput().substr(0, 9), "vornsim 1");
  EXPECT_NE(VORNSIM("--help").RestOfOutput().find("vornsim ctl --control"), std::string::npos);
  for (const char* asked : {"ctl --help", "ctl -h"}) {
    VORNSIM help(asked);
    const std::string text = help.RestOfOutput();
    EXPECT_NE(text.find("Usage: vornsim ctl [OPTIONS] COMMAND [ARGUMENT]...\n"), std::string::npos);
    EXPECT_NE(text.find("--control PATH"), std::string::npos) << text;
    EXPECT_EQ(help.Status(), 0);
  }
}

TEST_F(Vornsim, OnATerminalDrawsThePictureInPlaceAndCompletes) {
  VORNSIM program(With(), kTerminal);
  program.ReadUntil("rack> ");
  program.ReadUntil("\033[1;1H" + Link() + "   0 requests");
  program.ReadUntil("3 digital-in   keys   0. 1. 2. 3. 4. 5. 6. 7.");
  ASSERT_TRUE(program.Type("pres\t3.6\n"));
  program.ReadUntil("card 3 input block 0 = 40");
  program.ReadUntil("3 digital-in   keys   0. 1. 2. 3. 4. 5. 6* 7.");
  ASSERT_TRUE(program.Type("\033[A"));  // the last line again, out of the history
  program.ReadUntil("press 3.6");
  ASSERT_TRUE(program.Type("\025"));  // away with it
  ASSERT_TRUE(program.Type("\004"));  // Ctrl-D
  program.ReadUntil("\033[r");        // the whole screen scrolls again
  program.ReadUntil("unplugged");
  EXPECT_EQ(program.Status(), 0);
}

TEST_F(Vornsim, ATerminalTooSmallForThePictureIsToldSoUntilItGrows) {
  const std::string note = "too small for the picture: 77 columns and 21 lines would do\r\n";
  const winsize justLargeEnough{21, 77, 0, 0};
  for (const winsize& tooSmall : {winsize{40, 76, 0, 0}, winsize{20, 100, 0, 0}}) {
    VORNSIM program(With(), tooSmall);
    program.ReadUntil(note);
    ASSERT_TRUE(program.Type("press 3.6\n"));
    EXPECT_EQ(program.ReadUntil("OK").find("digital-in"), std::string::npos);
    program.Resize(justLargeEnough);
    EXPECT_EQ(program.ReadUntil("3 digital-in   keys   0. 1. 2. 3. 4. 5. 6* 7.").find("too small"),
              std::string::npos);
    program.Resize(tooSmall);
    program.ReadUntil(note);
    // The picture itself can become what there is room for, and too large again.
    program.Resize({15, 77, 0, 0});
    program.ReadUntil(note);
    ASSERT_TRUE(program.Type("pull E\n"));
    program.ReadUntil("card E pulled");
    program.ReadUntil("5 digital-out  lamps  0.");
    ASSERT_TRUE(program.Type("plug E lcd\n"));
    program.ReadUntil(note);
    ASSERT_TRUE(program.Type("quit\n"));
    program.ReadUntil("unplugged");
    EXPECT_EQ(program.Status(), 0);
  }
}

TEST_F(Vornsim, OnATerminalWithoutPictureWhenTold) {
  VORNSIM program(With("--plain"), kTerminal);
  program.ReadUntil("ready");
  ASSERT_TRUE(program.Type("press 3.6\nquit\n"));
  EXPECT_EQ(program.ReadUntil("unplugged").find('\033'), std::string::npos);
  EXPECT_EQ(program.Status(), 0);
}

}  // namespace
}  // namespace sim
