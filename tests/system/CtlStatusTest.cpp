#include "tests/support/Text.h"
#include "tests/system/CtlTest.h"

#include <signal.h>

#include <nlohmann/json.hpp>

/// Each exit status, by the situation that is behind it.

namespace {

class CtlStatus : public CTL_TEST {
 protected:
  struct CASE {
    std::vector<std::string> arguments;
    std::string text;
  };

  /// Each, on one connection, fails with that status and a message with its text.
  void ExpectFailures(int status, const std::vector<CASE>& cases) {
    std::string lines;
    for (const CASE& wrong : cases) {
      for (const std::string& argument : wrong.arguments) {
        lines += argument + " ";
      }
      lines += "\n";
    }
    const CTL_RESULT result = Run({"--json", "batch", "--keep-going"}, lines);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    const LINES errors = support::Lines(result.error);
    ASSERT_EQ(errors.size(), cases.size()) << result.error;
    for (std::size_t i = 0; i < cases.size(); ++i) {
      const nlohmann::json error = nlohmann::json::parse(errors[i]);
      EXPECT_EQ(error["type"], "error");
      EXPECT_EQ(error["status"], status) << error;
      EXPECT_EQ(error["at"], "standard input:" + std::to_string(i + 1));
      EXPECT_NE(error["message"].get<std::string>().find(cases[i].text), std::string::npos)
          << error;
    }
  }
  /// The daemon is gone without a word.
  void KillDaemon() {
    isEndExpected = false;
    daemon.Signal(SIGKILL);
    ASSERT_TRUE(daemon.WaitForEnd());
  }
};

TEST_F(CtlStatus, Is1WhereTheDaemonRefusesALine) {
  StartRack();
  EXPECT_TRUE(Fails(Run({"io", "hello"}), 1, "vorn refused the IO line 'hello'"));
  EXPECT_TRUE(Fails(Run({"io", "a5b1dFB", "a5lCL", "a5b0d00"}), 1, "'a5lCL'"));
  const CTL_RESULT result = Run({"cae", "NONSENSE"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "CIE: UNKNOWN COMMAND \n");
  const CTL_RESULT told = Run({"--json", "io", "hello"});
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(
      nlohmann::json::parse(told.error),
      (nlohmann::json{
          {"type", "error"}, {"status", 1}, {"message", "vorn refused the IO line 'hello'"}}));
}

TEST_F(CtlStatus, Is1WhereACardDoesNotAnswer) {
  StartRack();
  rack.Remove(0xF);
  EXPECT_TRUE(Fails(Run({"param", "F", "mask"}), 1, "MASK READ ERROR"));
  EXPECT_TRUE(Fails(Run({"reboot", "F"}), 1, "BUS WRITE ERROR"));
}

TEST_F(CtlStatus, Is2ForWrongUseAndBadValuesBeforeItConnects) {
  StartRack();
  const CASE kCases[] = {
      {{}, "no command"},
      {{"frobnicate"}, "no command 'frobnicate'"},
      {{"set"}, "set WHAT=VALUE... [--others HEX]"},
      {{"lcd", "E"}, "lcd CARD TEXT [--at COL,ROW]"},
      {{"set", "--frobnicate", "5.b1=FB"}, "--frobnicate"},
      {{"set", "5.b1"}, "is no assignment"},
      {{"set", "55=on"}, "'55' is no channel"},
      {{"set", "5.10=on", "--others", "F"}, "--others"},
      {{"pulse", "5.10", "0"}, "is no length"},
      {{"lcd", "E", std::string(32, 'x')}, "at most 31"},
      {{"lcd", "E", "hi", "--at", "3"}, "is no position"},
      {{"ir", "9", "434"}, "two digits each"},
      {{"ir", "9", std::string(48, '0')}, "1 to 23"},
      {{"io", std::string(300, 'x')}, "300"},
      {{"io", "a5b1dFB\r\na5b1d00"}, "a line end within"},
      {{"watch", "--count", "0"}, "--count"},
      {{"wait", "3.6"}, "is no condition"},
      {{"poll", "maybe"}, "is neither on nor off"},
      {{"speed", "101"}, "1 to 100"},
      {{"--timeout", "-1", "version"}, "--timeout"},
      {{"--host", ":5000", "version"}, "is no host"},
      {{"batch", "/nonexistent"}, "/nonexistent"},
  };
  for (const CASE& wrong : kCases) {
    EXPECT_TRUE(Fails(Run(wrong.arguments), 2, wrong.text)) << wrong.text;
  }
  Settings("[names]\nlamp = 5\n");
  EXPECT_TRUE(Fails(Run({"set", "5.b1=FB"}), 2, SettingsPath() + ":3: names.lamp"));
  Settings("colour = 'red'\n");
  EXPECT_TRUE(Fails(Run({"set", "5.b1=FB"}), 2, SettingsPath() + ":2: no setting 'colour'"));
  for (const support::INTERFACE& interface : {config.cae, config.io, config.mon}) {
    EXPECT_EQ(Connections(interface), 0) << interface.name;
  }
}

TEST_F(CtlStatus, Is2ForValuesThatTheCardDoesNotTakeAndNothingIsSent) {
  StartRack();
  const std::uint64_t before = adapter.Requests().Last();
  EXPECT_TRUE(Fails(Run({"set", "0.1=50%", "0.2=101%"}), 2, "0 to 100 %"));
  ExpectFailures(2, {{{"set", "5.b1=FG"}, "'FG' is no byte"},
                     {{"set", "5.10=on"}, "--others HEX"},
                     {{"set", "5.10=maybe", "--others", "FF"}, "'maybe' is no value"},
                     {{"set", "0.1=50"}, "is no value for it"},
                     {{"get", "8.key"}, "cannot be asked for"},
                     {{"wait", "3.6=maybe"}, "is neither on nor off"},
                     {{"param", "F", "mask=40"}, "3F"}});
  EXPECT_EQ(Commands(before), LINES{});
}

TEST_F(CtlStatus, Is10ForACardAChannelAParameterOrANameThatIsNotThereAndNothingIsSent) {
  StartRack();
  const std::uint64_t before = adapter.Requests().Last();
  EXPECT_TRUE(Fails(Run({"set", "5.b1=FB", "0.9=50%"}), 10, "no channel 0.9"));
  ExpectFailures(10, {{{"set", "3.1=on"}, "inputs are read"},
                      {{"pulse", "0.1"}, "is no digital output"},
                      {{"get", "5.1"}, "cannot be read"},
                      {{"poll", "on", "5"}, "only input cards"},
                      {{"set", "7.0=on"}, "no card at 7"},
                      {{"set", "5.b2=FB"}, "no block 5.b2"},
                      {{"set", "lamp=on"}, "no name 'lamp'"},
                      {{"get", "3.16"}, "has channels 0 to 15"},
                      {{"get", "8.0"}, "has key and encoder"},
                      {{"stop", "5"}, "card 5 is digital-out, not motor"},
                      {{"lcd", "5", "hi"}, "card 5 is digital-out, not lcd"},
                      {{"param", "F", "colour"}, "no parameter 'colour'"},
                      {{"param", "5"}, "no parameters"},
                      {{"store", "5"}, "nothing to store"},
                      {{"reboot", "7"}, "no card at 7"}});
  EXPECT_EQ(Commands(before), LINES{});
}

TEST_F(CtlStatus, Is0WithoutAnyStreamAndTheDaemonGetsNothingOfWhatWasForThem) {
  StartRack();
  TCP_CLIENT& monitor = Take(config.mon);
  const std::vector<std::string> kCommands[] = {{"get", "3.6"}, {"set", "5.b1=FB"}};
  for (const std::vector<std::string>& command : kCommands) {
    WaitUntilFree();
    CTL_START start = With({command});
    start.hasNoStreams = true;
    CTL_PROCESS process(start);
    EXPECT_EQ(process.WaitForEnd(), 0);
  }
  EXPECT_TRUE(monitor.Receives("a3b0d00\r\n\ra5b1dFB\r\n"));
}

TEST_F(CtlStatus, Is2WhereTheResultCannotBeWritten) {
  StartRack();
  WaitUntilFree();
  CTL_START start = With({{"version"}});
  start.outputPath = "/dev/full";
  CTL_PROCESS version(start);
  EXPECT_EQ(version.WaitForEnd(), 2);
  EXPECT_EQ(version.Error(),
            "vornctl: the standard output cannot be written: No space left on device\n");
}

TEST_F(CtlStatus, Is3WhereTheDaemonStands) {
  StartRack();
  CTL_PROCESS batch(
      With({{"--timeout", support::kInstrumented ? "15" : "3", "batch"}, std::nullopt}));
  batch.Write("version\n");
  ASSERT_TRUE(batch.WaitForLines(1));
  daemon.Signal(SIGSTOP);
  batch.Write("version\n");
  EXPECT_EQ(batch.WaitForEnd(), 3);
  EXPECT_EQ(batch.Error(),
            "vornctl: standard input:2: DRVVER: no answer in time; it may have been carried out\n");
  daemon.Signal(SIGCONT);
}

TEST_F(CtlStatus, Is4WhereTheInterfaceThatIsNeededIsTaken) {
  StartRack();
  Take(config.cae);
  Take(config.io);
  Take(config.mon);
  EXPECT_TRUE(Fails(Run({"--wait", "0.5", "version"}), 4, "CAE is taken by another client"));
  EXPECT_TRUE(Fails(Run({"--wait", "0.5", "set", "5.b1=FB"}), 4, "IO is taken by another client"));
  EXPECT_TRUE(
      Fails(Run({"--wait", "0.5", "watch", "--monitor"}), 4, "MON is taken by another client"));
}

TEST_F(CtlStatus, IsThatOfTheCommandWhereTheInterfaceComesFreeAndATerminalTellsTheWait) {
  StartRack();
  Take(config.cae);
  CTL_PROCESS version(With({{"--wait", "300", "version"}, std::nullopt, {}, true}));
  EXPECT_TRUE(version.WaitUntil([&] {
    const LINES rows = version.Screen().Rows();
    EXPECT_TRUE(rows.empty() ||
                rows.front().starts_with("vornctl: CAE has not answered yet; trying for ") ||
                rows.front().starts_with("vornctl: CAE is taken by another client; trying for "))
        << rows.front();
    return !rows.empty() && rows.front().starts_with("vornctl: CAE is taken");
  }));
  Release(config.cae);
  EXPECT_EQ(version.WaitForEnd(), 0);
  EXPECT_EQ(version.Screen().Rows(), LINES{"1.20"});
  EXPECT_EQ(version.Screen().Unknown(), "");
}

TEST_F(CtlStatus, Is4WhereSoManyWaitForTheInterfaceThatNoMoreAreLetIn) {
  StartRack();
  Take(config.cae);
  std::vector<TCP_CLIENT> waiting;
  for (int i = 0; i < 2; ++i) {
    waiting.emplace_back(config.cae.port);
  }
  EXPECT_TRUE(Fails(Run({"--wait", "0.5", "version"}), 4, "CAE is taken by another client"));
  EXPECT_TRUE(Fails(Run({"version"}), 4, "CAE is taken by another client"));
}

TEST_F(CtlStatus, Is8WhereThereIsNoDaemon) {
  EXPECT_TRUE(Fails(Run({"version"}), 8, "nothing listens on the port of CAE"));
  EXPECT_TRUE(Fails(Run({"--wait", "0.2", "set", "5.b1=FB"}), 8, "the port of IO refuses"));
  EXPECT_TRUE(Fails(Run({"--host", "no-such-machine.invalid", "version"}), 8, "no-such-machine"));
}

TEST_F(CtlStatus, Is8WhereTheDaemonDiesInTheMiddleOfAWatch) {
  StartRack();
  CTL_PROCESS watch(With({{"watch"}}));
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE")));
  KillDaemon();
  EXPECT_EQ(watch.WaitForEnd(), 8);
  EXPECT_EQ(watch.Error(), "vornctl: 127.0.0.1: the connection to IO was lost (127.0.0.1:" +
                               std::to_string(config.io.port) + ")\n");
}

TEST_F(CtlStatus, Is8WhereTheDaemonDiesInTheMiddleOfABatch) {
  StartRack();
  CTL_PROCESS batch(With({{"batch"}, std::nullopt}));
  batch.Write("set 5.b1=FB\n");
  ASSERT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  KillDaemon();
  batch.Write("set 5.b1=00\n");
  EXPECT_EQ(batch.WaitForEnd(), 8);
  EXPECT_NE(batch.Error().find("vornctl: standard input:"), std::string::npos) << batch.Error();
}

TEST_F(CtlStatus, Is8WhereTheDaemonDiesWithLinesOfABatchOnTheirWay) {
  StartRack();
  std::string lines;
  for (int i = 0; i < 20000; ++i) {
    lines += i % 2 == 0 ? "set 0.b0=01\n" : "set 0.b0=02\n";
  }
  CTL_PROCESS batch(With({{"batch"}, lines}));
  ASSERT_TRUE(batch.WaitUntil([&] { return Commands().size() > 100; }));
  KillDaemon();
  EXPECT_EQ(batch.WaitForEnd(), 8);
  EXPECT_TRUE(batch.Error().starts_with("vornctl: standard input:")) << batch.Error();
  EXPECT_NE(batch.Error().find("was lost"), std::string::npos) << batch.Error();
}

TEST_F(CtlStatus, Is8WhereTheDaemonDiesBeforeItsAnswer) {
  StartRack();
  rack.Remove(0xF);
  pauses.Hold(1);  // in which the daemon waits for the card
  const std::uint64_t before = adapter.Requests().Last();
  CTL_PROCESS asked(With({{"param", "F", "mask"}}));
  ASSERT_TRUE(WaitForFrame("04 50 0F 40 01", before));
  KillDaemon();
  EXPECT_EQ(asked.WaitForEnd(), 8);
  EXPECT_EQ(asked.Error(),
            "vornctl: GETANMASK:F: the connection was lost before the answer; it may have been "
            "carried out\n");
}

}  // namespace
