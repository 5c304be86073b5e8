#include "sim/tool/Commands.h"
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
#include <nlohmann/json.hpp>
#include <sstream>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// A vornsim with its input and outputs in pipes, or all on a terminal of its own.
class VORNSIM {
 public:
  enum class ON { kPipes, kTerminal };

  explicit VORNSIM(std::vector<std::string> arguments, ON on = ON::kPipes,
                   winsize size = {40, 100, 0, 0}) {
    arguments.insert(arguments.begin(), VORNSIM_PROGRAM);
    std::array<int, 2> in{-1, -1};
    std::array<int, 2> out{-1, -1};
    std::array<int, 2> error{-1, -1};
    if (on == ON::kTerminal) {
      int master = -1;
      int slave = -1;
      EXPECT_EQ(::openpty(&master, &slave, nullptr, nullptr, &size), 0);
      ::fcntl(master, F_SETFD, FD_CLOEXEC);
      in = {slave, ::fcntl(master, F_DUPFD_CLOEXEC, 0)};
      out = {master, ::dup(slave)};
    } else {
      EXPECT_EQ(::pipe2(in.data(), O_CLOEXEC), 0);
      EXPECT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    }
    EXPECT_EQ(::pipe2(error.data(), O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, error[1], STDERR_FILENO);
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
      pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    std::string term = "TERM=xterm";
    std::string locale = "LC_ALL=C";
    std::vector<char*> environment{term.data(), locale.data()};
    for (char** each = environ; *each != nullptr; ++each) {
      if (std::string(*each).rfind("TERM=", 0) != 0 && std::string(*each).rfind("LC_ALL=", 0) != 0)
        environment.push_back(*each);
    }
    environment.push_back(nullptr);
    EXPECT_EQ(::posix_spawn(&m_pid, VORNSIM_PROGRAM, &actions, nullptr, pointers.data(),
                            environment.data()),
              0);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(error[1]);
    m_in = DESCRIPTOR(in[1]);
    m_out = DESCRIPTOR(out[0]);
    m_error = DESCRIPTOR(error[0]);
  }
  ~VORNSIM() {
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      Status();
    }
  }
  VORNSIM(const VORNSIM&) = delete;
  VORNSIM& operator=(const VORNSIM&) = delete;

  bool Type(const std::string& text) {
    return ::write(m_in.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  void Resize(const winsize& size) const {
    EXPECT_EQ(::ioctl(m_in.Get(), TIOCSWINSZ, &size), 0);
    Signal(SIGWINCH);
  }
  void EndInput() { m_in.Close(); }
  void CloseOutput() { m_out.Close(); }
  void Signal(int number) const { ::kill(m_pid, number); }

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
    if (::waitpid(m_pid, &status, 0) != m_pid)
      return -1;
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  bool Fill(const DESCRIPTOR& from, std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd watched{from.Get(), POLLIN, 0};
    if (::poll(&watched, 1, std::max(0, static_cast<int>(left.count()))) <= 0)
      return false;
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(from.Get(), buffer.data(), buffer.size());
    if (count <= 0)
      return false;
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
  std::vector<std::string> With(std::vector<std::string> more) {
    more.insert(more.begin(), {"--dev-dir", folder.Path()});
    return more;
  }
  std::string Link(int number = 0) { return folder.File("ttyUSB" + std::to_string(number)); }
  std::string Ready(int number = 0) { return "adapter " + Link(number) + " ready\n"; }
  std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(folder.File(name)) << text;
    return folder.File(name);
  }
  std::string ReadFile(const std::string& name) {
    std::string text;
    EXPECT_TRUE(ReadTextFile(folder.File(name), text));
    return text;
  }

  TEMPORARY_FOLDER folder;
};

TEST_F(Vornsim, SaysReadyServesAndEndsWithItsInput) {
  VORNSIM program(With({}));
  program.ReadUntil(Ready());
  NEAR_END near(Link());
  EXPECT_EQ(near.Exchange({0x10, 0x05, 0x02, 0xFF, 0xFB}), (Bytes{0x41, 0x05}));
  program.ReadUntil("adapter " + Link() + " opened\ncard 5 block 1 = FB\n");
  EXPECT_EQ(program.Command("press 3.6"), "card 3 input block 0 = 40\nOK\n");
  program.EndInput();
  EXPECT_EQ(program.RestOfOutput(), "adapter " + Link() + " unplugged\n");
  EXPECT_EQ(program.Status(), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(Link()));
}

TEST_F(Vornsim, EndsOnEachOfItsSignalsAndRemovesItsLink) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    VORNSIM program(With({"--stay"}));
    program.EndInput();
    program.ReadUntil(Ready());
    program.Signal(number);
    EXPECT_EQ(program.Status(), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(Link()));
  }
}

TEST_F(Vornsim, StaysWithoutInputWhenTold) {
  VORNSIM program(With({"--stay", "--control", folder.File("c")}));
  program.ReadUntil(Ready());
  program.EndInput();
  VORNSIM control({"ctl", "--control", folder.File("c"), "quit"});
  EXPECT_EQ(control.Status(), 0);
  EXPECT_EQ(program.Status(), 0);
}

TEST_F(Vornsim, EndsWhenNobodyReadsItsOutputAnyMore) {
  VORNSIM program(With({}));
  program.ReadUntil(Ready());
  program.CloseOutput();
  ASSERT_TRUE(program.Type("press 3.6\n"));
  EXPECT_EQ(program.Status(), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(Link()));
}

TEST_F(Vornsim, RefusesALinkThatExists) {
  std::filesystem::create_symlink("/dev/null", Link());
  VORNSIM program(With({}));
  EXPECT_EQ(program.Errors(),
            "vornsim: cannot make " + Link() + ": File exists (take another number)\n");
  EXPECT_EQ(program.Status(), 1);
  EXPECT_EQ(std::filesystem::read_symlink(Link()), "/dev/null");
}

TEST_F(Vornsim, NamesTheOptionWhenItsFolderCannotBeWritten) {
  VORNSIM program({"--dev-dir", folder.File("nowhere")});
  EXPECT_EQ(program.Errors(), "vornsim: cannot make " + folder.File("nowhere") +
                                  "/ttyUSB0: No such file or directory; --dev-dir DIR takes "
                                  "another folder\n");
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, TakesAnotherNumber) {
  VORNSIM program(With({"--number", "12"}));
  program.ReadUntil(Ready(12));
}

TEST_F(Vornsim, AnswersALineThatIsTooLong) {
  VORNSIM program(With({}));
  ASSERT_TRUE(program.Type(std::string(10000, 'x') + "\n"));
  program.ReadUntil("error: the line is too long\n");
  program.Command("list");
}

TEST_F(Vornsim, PrintsTheBuiltInRackAndTakesItBack) {
  VORNSIM printer({"--print-rack"});
  const std::string text = printer.RestOfOutput();
  EXPECT_EQ(text, DefaultRackText());
  EXPECT_EQ(printer.Status(), 0);
  VORNSIM program(With({"--rack", Write("rack.xml", text)}));
  program.ReadUntil(Ready());
  EXPECT_NE(program.Command("list").find("E lcd 'alphanumeric LCD controller'"), std::string::npos);
}

TEST_F(Vornsim, SaysWhatIsWrongWithARackFile) {
  const std::string file = Write("rack.xml", "<Rack>\n  <Card address='3'/>\n</Rack>\n");
  VORNSIM program(With({"--rack", file}));
  EXPECT_EQ(program.Errors(), "vornsim: " + file + ":2:3: Card needs the attribute type\n");
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, CtlSendsOneCommandAndEndsWithItsResult) {
  const std::string path = folder.File("control");
  VORNSIM program(With({"--control", path}));
  program.ReadUntil(Ready());
  VORNSIM press({"ctl", "--control", path, "press", "3.6"});
  EXPECT_EQ(press.RestOfOutput(), "OK\n");
  EXPECT_EQ(press.Status(), 0);
  program.ReadUntil("card 3 input block 0 = 40\n");
  VORNSIM name({"ctl", "--control", path, "name", "3", "my keys"});
  EXPECT_EQ(name.Status(), 0);
  VORNSIM show({"ctl", "--control", path, "show", "3", "--json"});
  const std::string shown = show.RestOfOutput();
  const auto card = nlohmann::json::parse(shown.substr(0, shown.find('\n')));
  EXPECT_EQ(card["name"], "my keys");
  EXPECT_EQ(card["blocks"], nlohmann::json::array({0x40, 0}));
  VORNSIM wrong({"ctl", "--control", path, "press", "5.1"});
  EXPECT_EQ(wrong.Errors(), "error: card 5 (digital-out) has no keys\n");
  EXPECT_EQ(wrong.Status(), 1);
}

TEST_F(Vornsim, CtlRefusesWordsThatNoCommandLineCanHold) {
  const std::string path = folder.File("control");
  VORNSIM program(With({"--control", path}));
  program.ReadUntil(Ready());
  for (const char* word : {"a\nquit", "say \"hi\" to me"}) {
    VORNSIM control({"ctl", "--control", path, "name", "3", word});
    EXPECT_EQ(control.Errors(),
              "error: a command is one line, and no word of it holds a double quote\n");
    EXPECT_EQ(control.Status(), 1);
  }
  VORNSIM list({"ctl", "--control", path, "list"});
  EXPECT_EQ(list.Status(), 0);
}

TEST_F(Vornsim, CtlSaysWhenNobodyIsThere) {
  const std::string path = folder.File("control");
  VORNSIM program({"ctl", "--control", path, "list"});
  EXPECT_EQ(program.Errors(),
            "vornsim: no rack answers at " + path + ": No such file or directory\n");
  EXPECT_EQ(program.Status(), 2);
}

TEST_F(Vornsim, PacesTheLine) {
  VORNSIM program(With({"--baud", "1200", "--latency-timer", "20"}));
  program.ReadUntil(Ready());
  NEAR_END near(Link());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}).size(), 4U);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 95ms);  // 9 bytes at 120 a second, and 20 ms
}

TEST_F(Vornsim, RecordsATraceThatItReplays) {
  {
    VORNSIM program(With({"--record", folder.File("trace")}));
    program.ReadUntil(Ready());
    program.Command("press 3.6");
    NEAR_END near(Link());
    EXPECT_EQ(near.Exchange({0x40, 0x6F, 0x9A}).size(), 5U);
    EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}).size(), 4U);
    program.EndInput();
    EXPECT_EQ(program.Status(), 0);
  }
  const std::string trace = ReadFile("trace");
  for (const char* part :
       {"> 03 40 6F 9A ", "; handshake\n", "< 05 40 32 2E 30 34", "; controller version '2.04'\n",
        "> 03 20 03 02 ", "; poll card 3, 2 bytes\n", "< 04 21 03 40 00 ",
        "; card 3 input 40 00\n"})
    EXPECT_NE(trace.find(part), std::string::npos) << part;

  VORNSIM replay(With({"--replay", folder.File("trace")}));
  replay.ReadUntil(Ready());
  NEAR_END near(Link());
  EXPECT_EQ(near.Exchange({0x40, 0x6F, 0x9A}), (Bytes{0x40, '2', '.', '0', '4'}));
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x40, 0x00}));
  replay.ReadUntil("replay complete: 2 requests\n");
  replay.EndInput();
  EXPECT_EQ(replay.Status(), 0);
}

TEST_F(Vornsim, SaysWhenTheTraceCannotBeWrittenAndFails) {
  VORNSIM program(With({"--record", "/dev/full"}));
  program.ReadUntil(Ready());
  NEAR_END near(Link());
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}).size(), 4U);
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}).size(), 4U);  // the rack goes on without the trace
  program.EndInput();
  EXPECT_EQ(program.Errors(), "vornsim: cannot write /dev/full\n");
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, ReplayReportsTheFirstDifferenceAndFails) {
  VORNSIM program(With({"--replay", Write("trace", "0.1 > 01 30\n0.2 < 02 31 00\n")}));
  program.ReadUntil(Ready());
  NEAR_END near(Link());
  ASSERT_TRUE(near.Write({0x03, 0x20, 0x03, 0x02}));
  program.ReadUntil("replay: request 1 differs: expected 01 30, received 03 20 03 02\n");
  program.EndInput();
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, ReplayThatEndsEarlyFails) {
  VORNSIM program(With({"--replay", Write("trace", "0.1 > 01 30\n0.2 < 02 31 00\n")}));
  program.ReadUntil(Ready());
  program.EndInput();
  EXPECT_EQ(program.Errors(), "vornsim: the replay ended after 0 of 1 requests\n");
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, RefusesATraceOrScriptThatIsWrong) {
  const std::string trace = Write("trace", "0.1 > 01 30\nsoon\n");
  VORNSIM replay(With({"--replay", trace}));
  EXPECT_EQ(replay.Errors(), "vornsim: " + trace + ": line 2: expected seconds, found 'soon'\n");
  EXPECT_EQ(replay.Status(), 1);
  const std::string script = Write("script", "at 0 list\nat 1 bogus\nat 2\n");
  VORNSIM scripted(With({"--script", script}));
  EXPECT_EQ(scripted.Errors(), "vornsim: " + script +
                                   ":2: there is no command 'bogus'; 'help' lists them\n"
                                   "vornsim: " +
                                   script + ":3: expected a command\n");
  EXPECT_EQ(scripted.Status(), 1);
  VORNSIM unwritable(With({"--record", folder.File("no/such/folder")}));
  EXPECT_EQ(unwritable.Status(), 1);
}

TEST_F(Vornsim, RunsAScriptToItsEndWithoutInput) {
  const std::string script = Write("script", "at 0.05 press 3.6\nafter 0.05 release 3.6\n");
  VORNSIM program(With({"--script", script}));
  program.EndInput();
  EXPECT_EQ(program.RestOfOutput(), Ready() +
                                        "script: press 3.6\ncard 3 input block 0 = 40\n"
                                        "script: release 3.6\ncard 3 input block 0 = 00\n"
                                        "adapter " +
                                        Link() + " unplugged\n");
  EXPECT_EQ(program.Status(), 0);
}

TEST_F(Vornsim, FailsWhenACommandOfItsScriptFails) {
  VORNSIM program(With({"--script", Write("script", "at 0 press 5.1\n")}));
  program.EndInput();
  EXPECT_NE(program.RestOfOutput().find("error: card 5 (digital-out) has no keys\n"),
            std::string::npos);
  EXPECT_EQ(program.Status(), 1);
}

TEST_F(Vornsim, HelpNamesEachOptionAndVersionTheVersion) {
  VORNSIM help({"--help"});
  const std::string text = help.RestOfOutput();
  for (const char* option : {"--help", "--version", "--dev-dir", "--number", "--rack",
                             "--print-rack", "--control", "--baud", "--latency-timer", "--record",
                             "--replay", "--script", "--stay", "--plain", "ctl"})
    EXPECT_NE(text.find(option), std::string::npos) << option;
  EXPECT_EQ(help.Status(), 0);
  VORNSIM version({"--version"});
  EXPECT_EQ(version.RestOfOutput().rfind("vornsim ", 0), 0U);
}

TEST_F(Vornsim, HelpOfCtlNamesItsArgument) {
  for (const std::vector<std::string>& asked :
       {std::vector<std::string>{"ctl", "--help"}, {"ctl", "-h"}}) {
    VORNSIM help(asked);
    const std::string text = help.RestOfOutput();
    EXPECT_NE(text.find("Usage: vornsim ctl [OPTIONS] COMMAND [ARGUMENT]...\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find("--control PATH"), std::string::npos) << text;
    EXPECT_EQ(help.Status(), 0);
  }
}

TEST_F(Vornsim, EndsWithStatus2AndOneLineWhereTheCommandLineIsWrong) {
  struct WRONG {
    std::vector<std::string> arguments;
    std::string error;
  };
  const std::string path = folder.File("nobody");
  for (const WRONG& wrong : {
           WRONG{{"--bogus"}, "The following argument was not expected: --bogus"},
           WRONG{{"bogus"}, "The following argument was not expected: bogus"},
           WRONG{{"--number", "1000"}, "--number: Value 1000 not in range 0 to 999"},
           WRONG{{"--baud", "fast"}, "--baud: Value fast not in range 50 to 12000000"},
           WRONG{{"--latency-timer", "-1"}, "--latency-timer: Value -1 not in range 0 to 255"},
           WRONG{{"--rack"}, "--rack: 1 required FILE missing"},
       }) {
    VORNSIM program(With(wrong.arguments));
    EXPECT_EQ(program.Errors(), "vornsim: " + wrong.error + " ('vornsim --help' explains)\n");
    EXPECT_EQ(program.Status(), 2) << wrong.error;
  }
  const std::string needs = "ctl needs --control PATH (or VORNSIM_CONTROL) and a command";
  for (const WRONG& wrong : {
           WRONG{{"ctl"}, needs},
           WRONG{{"ctl", "list"}, needs},
           WRONG{{"ctl", "--control", path}, needs},
           WRONG{{"ctl", "--control"}, "--control: 1 required PATH missing"},
           WRONG{{"ctl", "--control", path, "--bogus"}, "ctl has no option --bogus"},
       }) {
    VORNSIM program(wrong.arguments);
    EXPECT_EQ(program.Errors(), "vornsim: " + wrong.error + " ('vornsim ctl --help' explains)\n");
    EXPECT_EQ(program.Status(), 2) << wrong.error;
  }
}

TEST_F(Vornsim, OnATerminalDrawsThePictureInPlaceAndCompletes) {
  VORNSIM program(With({}), VORNSIM::ON::kTerminal);
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
    VORNSIM program(With({}), VORNSIM::ON::kTerminal, tooSmall);
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
  VORNSIM program(With({"--plain"}), VORNSIM::ON::kTerminal);
  program.ReadUntil("ready");
  ASSERT_TRUE(program.Type("press 3.6\nquit\n"));
  EXPECT_EQ(program.ReadUntil("unplugged").find('\033'), std::string::npos);
  EXPECT_EQ(program.Status(), 0);
}

}  // namespace
}  // namespace sim
