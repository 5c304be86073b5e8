// The central object: start-up lines, the master loop with its four workers, and their release.

#include "tests/support/ConfigFile.h"
#include "tests/support/ReservedPort.h"
#include "tests/support/TcpClient.h"
#include "tests/support/Wait.h"
#include "tests/support/unit/FakePauses.h"
#include "tests/support/unit/FarEnd.h"
#include "tests/support/unit/Folder.h"
#include "tests/support/unit/Gate.h"
#include "vorn/master/Vorn.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>
#include <memory>
#include <optional>
#include <thread>

namespace vorn {

namespace unit {
namespace {

using support::TCP_CLIENT;
using support::WaitUntil;
using LINES = std::vector<std::string>;

constexpr const char* kCaeGreeting =
    "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r";
constexpr const char* kIoGreeting = "VORN IO interface is ready\r\n\r";
constexpr const char* kMonGreeting = "VORN MON interface is ready\r\n\r";

/// A central object with its configuration, and with the test's pauses and line: a far end that
/// identifies a digital input card at 3 and a digital output card at 5.
class Vorn : public testing::Test {
 protected:
  Vorn() {
    config.logFile = folder.File("log");
    config.cae.port = caePort.Port();
    config.io.port = ioPort.Port();
    config.mon.port = monPort.Port();
    pauses.SetLength(1, support::milliseconds(10));  // in which cards answer
    pauses.SetLength(2, support::milliseconds(1));
    line.List({line.Path()});
    line.AnswerWith([this](const BYTES& body) { return Answer(body); });
  }

  ~Vorn() override {
    Stop(SIGTERM);
    vorn.reset();
  }

  BYTES Answer(const BYTES& body) {
    switch (body.front()) {
      case '@':
        return Hex("05 6F 31 2E 30 37");
      case '0':
        return Hex("11 31 00 00 00 04 00 03 00 00 00 00 00 00 00 00 00 00");
      case 0x20:
        if (changesAtEachPoll) {
          const auto value = static_cast<std::uint8_t>(++changes);
          return Frame({'!', body[1], value, static_cast<std::uint8_t>(~value)});
        }
        return Frame({'!', body[1], firstGroup.load(), 0});
      case 'P':
        return Frame({'Q', body[1], 0, 0});
      default:
        return Hex("01 06");
    }
  }

  VORN& Make() {
    WriteFile(folder.File("vornconf.xml"), config.Text());
    vorn.emplace(flag, line, pauses, folder.File("vornconf.xml"));
    return *vorn;
  }

  /// Runs the master loop on a thread of its own.
  void Start() {
    Make();
    ASSERT_TRUE(vorn->InitProgramData());
    vorn->InitInterfaces();
    loop = std::thread([this] { vorn->MasterThread(); });
  }

  void Stop(int signalNumber) {
    if (loop.joinable()) {
      flag = signalNumber;
      loop.join();
    }
  }

  /// A client that has received its greeting. One that comes in the moment when the worker sees its
  /// predecessor leave is dropped, and comes again.
  static TCP_CLIENT Connect(int port, const char* greeting) {
    for (;;) {
      TCP_CLIENT client(port);
      if (client.WaitForFirstByte()) {
        EXPECT_TRUE(client.Receives(greeting));
        return client;
      }
    }
  }
  TCP_CLIENT ConnectCae() const { return Connect(config.cae.port, kCaeGreeting); }
  TCP_CLIENT ConnectIo() const { return Connect(config.io.port, kIoGreeting); }
  TCP_CLIENT ConnectMon() const { return Connect(config.mon.port, kMonGreeting); }

  struct CLIENTS {
    TCP_CLIENT cae;
    TCP_CLIENT io;
    TCP_CLIENT mon;
  };
  /// All three clients, and the cards in the table.
  CLIENTS StartWithAll() {
    Start();
    CLIENTS all = {ConnectCae(), ConnectIo(), ConnectMon()};
    WaitForCards(all.cae);
    return all;
  }

  /// One exact CAE command and its replies, by which the loop has made a pass or more.
  static void Ask(TCP_CLIENT& cae, const std::string& command, const LINES& replies) {
    cae.Send(command + "\r\n");
    for (const std::string& reply : replies) {
      EXPECT_TRUE(cae.Receives(reply + "\r\n\r"));
    }
    EXPECT_TRUE(cae.Receives(">\r\n\r"));
  }
  static void AskVersion(TCP_CLIENT& cae) { Ask(cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}); }

  /// The client ends its connection. The second before the close lasts until it has its farewell.
  void Exit(TCP_CLIENT& client, const std::string& separator) {
    pauses.Hold(1);
    client.Send("EXIT" + separator);
    EXPECT_TRUE(client.Receives("VORN: Bye Bye..." + separator + "\r"));
    pauses.Release(1);
  }

  /// A read of 255 bytes with a dozen commands, all answered at once: no card is at address 2.
  static std::string AskedAtOnce() {
    const std::string read =
        "SETANMASK:2=0 LCDSELFTEST: LCDINITLIGHT: STORESRVPOS: MOVESTRPOS: SETSC GETSC SETMSR "
        "GETMSR STOREMSRS POLLON: POLLOFF: GETLASTINPST:\r\n";
    return std::string(255 - read.size(), '-') + read;
  }

  /// Waits until the bus has asked for the cards and its answer is in the table.
  static void WaitForCards(TCP_CLIENT& cae) {
    EXPECT_TRUE(WaitUntil([&] {
      cae.Send("DISCOVER\r\n");
      const std::string list = cae.ReadUntil("\r\n\r>\r\n\r");
      return list.find("DTI:0x5:16 channel DIGITAL OUTPUT\r\n\r") != std::string::npos;
    }));
  }

  LINES Log() const { return ReadLog(config.logFile); }
  bool Logged(const std::string& text) const {
    const LINES log = Log();
    return std::find(log.begin(), log.end(), text) != log.end();
  }

  FOLDER folder;
  FAKE_PAUSES pauses{100};
  FAR_END line;
  const support::RESERVED_PORT caePort;
  const support::RESERVED_PORT ioPort;
  const support::RESERVED_PORT monPort;
  support::CONFIG config;
  std::atomic<std::uint8_t> firstGroup{0};
  std::atomic<bool> changesAtEachPoll{false};
  std::atomic<int> changes{0};
  SIGNAL_FLAG flag{kNoSignal};
  std::optional<VORN> vorn;
  std::thread loop;
};

// --- start-up -----------------------------------------------------------------------------------

TEST_F(Vorn, LogsItsSettingsWhenTheConfigurationIsGood) {
  config.speedPercent = "50";
  config.initPollState = "TRUE";
  config.autoDiscover = "FALSE";
  EXPECT_TRUE(Make().InitProgramData());
  EXPECT_EQ(Log(), LINES({"[INF] vorn is started", "[INF] Initparam Autodiscover: FALSE",
                          "[INF] Initparam Enablepoll: TRUE",
                          "[INF] Initparam Speed (ThreadDelay): 2525"}));
}

TEST_F(Vorn, LogsTheComputedDelayAlsoWhenItIsNegative) {
  config.speedPercent = "101";
  config.initPollState = "yes";
  config.autoDiscover = "True";
  EXPECT_TRUE(Make().InitProgramData());
  EXPECT_EQ(Log(), LINES({"[INF] vorn is started", "[INF] Initparam Autodiscover: TRUE",
                          "[INF] Initparam Enablepoll: FALSE",
                          "[INF] Initparam Speed (ThreadDelay): -49"}));
}

TEST_F(Vorn, LogsTheErrorAndStopsWhenAPortIsTooLow) {
  config.io.port = 1024;
  EXPECT_FALSE(Make().InitProgramData());
  EXPECT_EQ(Log(),
            LINES({"[INF] vorn is started", "[ERR] IO interface port number is less than 1025",
                   "[INF] vorn is stopped with error"}));
}

TEST_F(Vorn, StopsWithoutALogWhenTheConfigurationCannotBeRead) {
  const std::string path = folder.File("broken.xml");
  WriteFile(path, "<VORNConfig><Debuglog File=\"" + config.logFile + "\"/>");
  for (const std::string& unreadable : {folder.File("no-such-file.xml"), path}) {
    VORN unconfigured(flag, line, pauses, unreadable);
    EXPECT_FALSE(unconfigured.InitProgramData());
    EXPECT_EQ(Log(), LINES());
    EXPECT_EQ(unconfigured.ReadConfig().errorText,
              "Unable to load config, or unable to parse XML file!");
  }
}

TEST_F(Vorn, ReadsTheDaemonsConfigurationUnlessToldOtherwise) {
  EXPECT_STREQ(VORN::kConfigPath, "/etc/vorn/vornconf.xml");
}

TEST_F(Vorn, StartsItsWorkersInTheOrderCaeIoMonAndThenTheBus) {
  config.speedPercent = "90";
  config.autoDiscover = "FALSE";
  Start();
  ASSERT_TRUE(WaitUntil(
      [&] { return Logged("[INF] hardware found on " + line.Path() + " version: 1.07"); }));
  const LINES log = Log();
  const auto at = [&](const std::string& text) {
    return std::find(log.begin(), log.end(), text) - log.begin();
  };
  const auto listening = [&](const support::INTERFACE& interface) {
    return at("[INF] " + interface.name + " interface listening on port " +
              std::to_string(interface.port));
  };
  EXPECT_LT(at("[INF] Initparam Speed (ThreadDelay): 505"), listening(config.cae));
  EXPECT_LT(listening(config.cae), listening(config.io));
  EXPECT_LT(listening(config.io), listening(config.mon));
  EXPECT_LT(listening(config.mon), at("[INF] try to catch hardware on " + line.Path()));
}

TEST_F(Vorn, AMissingInterfaceElementStillGetsAWorker) {
  WriteFile(folder.File("vornconf.xml"),
            support::Document({support::DebuglogElement(config.logFile)}));
  vorn.emplace(flag, line, pauses, folder.File("vornconf.xml"));
  ASSERT_TRUE(vorn->InitProgramData());
  vorn->InitInterfaces();
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), "[INF]  interface listening on port 0"), 3);
}

// --- signals ------------------------------------------------------------------------------------

class VornStopped : public Vorn, public testing::WithParamInterface<int> {};

TEST_P(VornStopped, ByItsSignalTellsEachWorkerClosesThePortAndReturns) {
  const std::string number = std::to_string(GetParam());
  Start();
  ASSERT_TRUE(WaitUntil([&] { return line.Openings() > 0; }));
  Stop(GetParam());
  const LINES expected = {"[INF] signal " + number + " on CAE interface",
                          "[INF] signal " + number + " on IO interface",
                          "[INF] signal " + number + " on MON interface",
                          "[INF] signal " + number + " on serial interface",
                          "[INF] vorn is stopped by SIGTERM or SIGINT"};
  LINES found;
  for (const std::string& text : Log()) {
    if (text.find("signal") != std::string::npos || text.find("stopped") != std::string::npos) {
      found.push_back(text);
    }
  }
  EXPECT_EQ(found, expected);
  EXPECT_TRUE(WaitUntil([&] { return line.Openings() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(Signals, VornStopped, testing::Values(SIGINT, SIGTERM));

TEST_F(Vorn, AnyOtherNumberIsReportedInEveryPassAndTheLoopGoesOn) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  flag = SIGUSR1;
  EXPECT_TRUE(WaitUntil([&] {
    const LINES log = Log();
    return std::count(log.begin(), log.end(), "[INF] signal 10 on serial interface") > 2;
  }));
  AskVersion(cae);
  EXPECT_FALSE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
  Stop(SIGTERM);
  EXPECT_TRUE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
}

TEST_F(Vorn, ASignalOfTheProcessReachesTheLoopWhileWorkersRun) {
  pSignalFlag = &flag;
  std::signal(SIGTERM, SIGhandler);
  Start();
  kill(getpid(), SIGTERM);
  loop.join();
  EXPECT_EQ(flag, SIGTERM);
  EXPECT_TRUE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
  std::signal(SIGTERM, SIG_DFL);
}

// --- release ------------------------------------------------------------------------------------

TEST_F(Vorn, CanBeReleasedBeforeItHasStarted) {
  Make();
  vorn.reset();
  Make().InitProgramData();
  vorn.reset();
}

TEST_F(Vorn, CanBeReleasedWhileItsWorkersStart) {
  Make();
  ASSERT_TRUE(vorn->InitProgramData());
  vorn->InitInterfaces();
  vorn.reset();
  EXPECT_EQ(line.Openings(), 0);
}

TEST_F(Vorn, ReleasesEverythingInOrderWhileWorkersAreBusy) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  Start();
  {
    TCP_CLIENT cae = ConnectCae();
    TCP_CLIENT io = ConnectIo();
    TCP_CLIENT mon = ConnectMon();
    WaitForCards(cae);
    Stop(SIGTERM);
    // The workers go on: what clients send fills the queues that are released first.
    cae.Send("HELP\r\nHELP\r\n");
    io.Send("a5b1dFB\n");
    vorn.reset();
    EXPECT_TRUE(io.IsClosed());
    EXPECT_TRUE(mon.IsClosed());
  }
  EXPECT_EQ(line.Openings(), 0);
  EXPECT_TRUE(TCP_CLIENT::IsRefused(config.cae.port));
  EXPECT_TRUE(TCP_CLIENT::IsRefused(config.io.port));
  EXPECT_TRUE(TCP_CLIENT::IsRefused(config.mon.port));
}

// --- card input ---------------------------------------------------------------------------------

TEST_F(Vorn, AnInputChangeReachesTheIoClientAndTheMonitorWithTheIoSeparator) {
  config.initPollState = "TRUE";
  CLIENTS all = StartWithAll();
  firstGroup = 0x40;
  EXPECT_TRUE(all.io.Receives("a3b0d40\n\r"));
  EXPECT_TRUE(all.mon.Receives("a3b0d40\n\r"));
  firstGroup = 0x00;
  EXPECT_TRUE(all.io.Receives("a3b0d00\n\r"));
  EXPECT_TRUE(all.mon.Receives("a3b0d00\n\r"));
}

TEST_F(Vorn, AnInputChangeNeedsAnIoClientAndNoMonitor) {
  const LINES sent = {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"};
  Start();
  TCP_CLIENT cae = ConnectCae();
  WaitForCards(cae);
  TCP_CLIENT mon = ConnectMon();
  Ask(cae, "GETLASTINPST:3=0", sent);
  AskVersion(cae);  // a later pass: the line is gone, for the monitor too
  TCP_CLIENT io = ConnectIo();
  Ask(cae, "GETLASTINPST:3=1", sent);
  EXPECT_TRUE(io.Receives("a3b1d00\n\r"));
  EXPECT_TRUE(mon.Receives("a3b1d00\n\r"));
  mon.Close();
  Ask(cae, "GETLASTINPST:3=1", sent);
  EXPECT_TRUE(io.Receives("a3b1d00\n\r"));
}

TEST_F(Vorn, PausesPollingWhile24KibOfLinesWaitForAnIoClientThatDoesNotRead) {
  config.speedPercent = "100";
  config.io.outSeparator = std::string(200, '-') + "\n";  // long lines fill the connection sooner
  Start();
  TCP_CLIENT cae = ConnectCae();
  WaitForCards(cae);
  TCP_CLIENT io(config.io.port, {.smallBuffers = true});
  EXPECT_TRUE(io.Receives(kIoGreeting));
  changesAtEachPoll = true;
  Ask(cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"});
  // Lines of 209 bytes for the client, 24 KiB of them, and 24 KiB without separator, of eight, that
  // pause the polling; two at each poll.
  EXPECT_TRUE(WaitUntil([&] {
    const int before = changes;
    return before >= (24 * 1024 / 209 + 24 * 1024 / 8) / 2 &&
           !WaitUntil([&] { return changes > before; }, support::kSilence);
  }));
  AskVersion(cae);
  const int paused = changes;
  io.Close();
  EXPECT_TRUE(WaitUntil([&] { return changes > paused; }));
}

// --- the IO interface ---------------------------------------------------------------------------

TEST_F(Vorn, AnIoCommandReachesItsCardOrTheOperatorAndTheMonitorAsTyped) {
  CLIENTS all = StartWithAll();
  all.io.Send("a5b1dFB\n");
  EXPECT_TRUE(all.mon.Receives("a5b1dFB\n\r"));
  EXPECT_TRUE(WaitUntil([&] {
    const std::vector<BYTES> requests = line.Requests();
    return std::find(requests.begin(), requests.end(), Hex("05 10 05 02 FF FB")) != requests.end();
  }));
  all.io.SendAndWaitUntilRead("bad\n");
  EXPECT_TRUE(all.cae.Receives("COE:Illegal command -> bad\r\n\r>\r\n\r"));
  EXPECT_TRUE(all.mon.Receives("bad\n\r"));
}

TEST_F(Vorn, HoldsTheIoClientBackWhileTheBusIsBehindAndLosesNothing) {
  CLIENTS all = StartWithAll();
  const std::size_t before = line.Requests().size();
  GATE gate;
  line.AnswerWith([&](const BYTES& body) {
    gate.Pass();
    return Answer(body);
  });
  all.io.SendAndWaitUntilRead("a5b0d00\n");
  ASSERT_TRUE(all.mon.Receives("a5b0d00\n\r"));
  ASSERT_TRUE(gate.WaitUntilReached());
  // Six bytes a frame: behind the first, which is on the line, 683 are 4 KiB.
  std::string commandsOfOneRead;
  for (int i = 0; i < 31; ++i) {
    commandsOfOneRead += "a5b0d00\n";
  }
  for (int i = 0; i < 23; ++i) {
    all.io.SendAndWaitUntilRead(commandsOfOneRead);
    ASSERT_TRUE(all.mon.Receives(commandsOfOneRead + "\r"));
  }
  all.io.SendAndWaitUntilRead("a5b0d01\n");
  AskVersion(all.cae);
  AskVersion(all.cae);
  EXPECT_TRUE(all.mon.ReceivesNothing());
  gate.Open();
  EXPECT_TRUE(all.mon.Receives("a5b0d01\n\r"));
  EXPECT_TRUE(WaitUntil([&] { return line.Requests().size() == before + 1 + 23 * 31 + 1; }));
}

TEST_F(Vorn, GoesOnWithIoWithoutAnAdapterAndSendsEachCardTheLatestWhenThereIsOne) {
  CLIENTS all = StartWithAll();
  line.List({});
  line.AnswerWith([](const BYTES&) { return BYTES(); });
  all.io.Send("a5b0d00\n");
  ASSERT_TRUE(WaitUntil([&] { return Logged("[INF] comm timeout " + line.Path()); }));
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));
  std::vector<BYTES> frames;
  for (int read = 0; read < 40; ++read) {
    std::string commandsOfOneRead;
    for (int i = 0; i < 31; ++i) {
      const auto value = static_cast<std::uint8_t>(frames.size());
      commandsOfOneRead += "a5b0d" + ToHex(BYTES{value}) + "\n";
      frames.push_back({0x05, 0x10, 0x05, 0x02, value, 0xFF});
    }
    all.io.SendAndWaitUntilRead(commandsOfOneRead);
    ASSERT_TRUE(all.mon.Receives(commandsOfOneRead + "\r"));
  }
  AskVersion(all.cae);
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(),
                       "[ERR] too many messages wait for the card bus, the oldest are lost"),
            1);
  frames.erase(frames.begin(), frames.end() - 4096 / 6);  // six bytes each, as a queue counts them
  line.AnswerWith([this](const BYTES& body) { return Answer(body); });
  line.List({line.Path()});
  const auto sent = [&] {
    std::vector<BYTES> requests = line.Requests();
    std::erase_if(requests, [](const BYTES& frame) { return frame[1] != 0x10; });
    return std::vector<BYTES>(requests.begin() + 1, requests.end());  // the first cost the link
  };
  EXPECT_TRUE(WaitUntil([&] { return sent().size() >= frames.size(); }));
  EXPECT_EQ(sent(), frames);
}

TEST_F(Vorn, MakesNoCopiesWhile208KibWaitForAMonitorThatDoesNotReadAndSaysSoOnce) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon(config.mon.port, {.smallBuffers = true});
  EXPECT_TRUE(mon.Receives(kMonGreeting));
  constexpr const char* kFull =
      "[ERR] too many messages wait on MON interface, copies are not made";
  const std::string flood(830 * 255, '\n');  // 830 reads without a command for a card
  const auto sendFlood = [&] {
    io.Send(flood);
    io.SendAndWaitUntilRead("bad\n");
    return cae.ReadUntil("COE:Illegal command -> bad\r\n\r>\r\n\r");
  };
  EXPECT_TRUE(WaitUntil([&] {
    sendFlood();
    return Logged(kFull);
  }));
  sendFlood();
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), kFull), 1);
  std::string copies;
  for (std::string some; !(some = mon.Read(4096, support::kSilence)).empty();) {
    copies += some;
  }
  EXPECT_GE(copies.size(), 208U * 1024);
  io.Send("good\n");
  EXPECT_TRUE(mon.Receives("good\n\r"));
}

TEST_F(Vorn, ExitOnIoEndsOnlyThatConnection) {
  CLIENTS all = StartWithAll();
  Exit(all.io, "\n");
  EXPECT_TRUE(all.io.IsClosed());
  EXPECT_TRUE(Logged("[INF] connection is closed by command on IO interface"));
  AskVersion(all.cae);
  TCP_CLIENT again = ConnectIo();
  again.Send("a5b0d00\n");
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));  // EXIT was not copied
}

TEST_F(Vorn, AnExitThatWaitedEndsNobodyElsesConnection) {
  CLIENTS all = StartWithAll();
  // The master loop is in a command's second while both send their last words and leave.
  const int paused = pauses.CountBegun(1);
  pauses.Hold(1);
  all.cae.SendAndWaitUntilRead("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, paused + 1));
  all.io.SendAndWaitUntilRead("a5b0d00\n");
  all.io.SendAndWaitUntilRead("EXIT\n");
  all.cae.SendAndWaitUntilRead("EXIT\r\n");
  all.io.Close();
  all.cae.Close();
  TCP_CLIENT nextIo = ConnectIo();
  TCP_CLIENT nextCae = ConnectCae();
  pauses.Release(1);
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));  // commands of who has left are carried out
  EXPECT_TRUE(nextCae.Receives("CIA: Card is REBOOTED\r\n\rRBT:0x5:OK\r\n\r>\r\n\r"));
  AskVersion(nextCae);
  nextIo.Send("a5b0d01\n");
  EXPECT_TRUE(all.mon.Receives("a5b0d01\n\r"));
  EXPECT_TRUE(nextIo.ReceivesNothing());
  Exit(nextIo, "\n");
  EXPECT_TRUE(nextIo.IsClosed());
  EXPECT_FALSE(Logged("[INF] connection is closed by command on CAE interface"));
}

TEST_F(Vorn, ExitOnIoNeedsItsSeparatorAndNothingElse) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  io.SendAndWaitUntilRead("EXIT");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\n\r>\r\n\r"));
  io.SendAndWaitUntilRead("EXIT\r\n");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\r\n\r>\r\n\r"));
  io.SendAndWaitUntilRead("EXIT\nEXIT\n");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\n\r>\r\n\r"));
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\n\r>\r\n\r"));
  Exit(io, "\n");
}

// --- the CAE interface --------------------------------------------------------------------------

TEST_F(Vorn, CommandsOfThreeReadsAreAnsweredInTheirOrder) {
  config.autoDiscover = "FALSE";
  Start();
  TCP_CLIENT cae = ConnectCae();
  cae.SendAndWaitUntilRead("DRVVER\r\n");
  cae.SendAndWaitUntilRead("nonsense\r\n");
  cae.SendAndWaitUntilRead("POLLSTATE\r\n");
  EXPECT_TRUE(
      cae.Receives("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r"
                   "CIE: UNKNOWN COMMAND \r\n>\r\n\r"
                   "CIA: GLOBAL POLLING IS DISABLED\r\n\r>\r\n\r"));
}

TEST_F(Vorn, ExitOnCaeEndsOnlyThatConnectionAndLeavesItsPromptForTheNextClient) {
  CLIENTS all = StartWithAll();
  Exit(all.cae, "\r\n");
  EXPECT_TRUE(all.cae.IsClosed());
  EXPECT_TRUE(Logged("[INF] connection is closed by command on CAE interface"));
  TCP_CLIENT again(config.cae.port);
  EXPECT_TRUE(again.Receives(">\r\n\r"));
  EXPECT_TRUE(again.Receives(kCaeGreeting));
  all.io.Send("still here\n");
  EXPECT_TRUE(all.mon.Receives("still here\n\r"));
}

TEST_F(Vorn, PollingFollowsTheOperator) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  WaitForCards(cae);
  const auto polls = [&] {
    const std::vector<BYTES> requests = line.Requests();
    return std::count(requests.begin(), requests.end(), Hex("03 20 03 02"));
  };
  EXPECT_EQ(polls(), 0);
  Ask(cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"});
  EXPECT_TRUE(WaitUntil([&] { return polls() > 3; }));
  Ask(cae, "POLLSTATE", {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON"});
  Ask(cae, "DISABLEPOLL", {"CIA: GLOBAL POLLING IS DISABLED"});
}

TEST_F(Vorn, SpeedPacesAllFiveLoops) {
  config.speedPercent = "100";
  CLIENTS all = StartWithAll();
  Ask(all.cae, "SPEED=50", {"CIA: SPEED IS SET to 50%"});
  EXPECT_TRUE(WaitUntil([&] { return pauses.ThreadsThatDelayed(2525) == 5; }));
}

TEST_F(Vorn, TakesNoCommandWhile336KibOfAnswersWaitForTheOperator) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT cae = ConnectCae();
  cae.Send(AskedAtOnce());
  const std::size_t answer = cae.ReadUntil("\r>\r\n\r").size();
  constexpr std::size_t kReads = 1000;
  std::thread asking([&] {
    for (std::size_t i = 0; i < kReads; ++i) {
      cae.Send(AskedAtOnce());
    }
    cae.SendAndWaitUntilRead("");
    cae.Send("SPEED=50\r\n");
  });
  // Most of the answers have gone out when the last command is carried out.
  std::size_t answered = 0;
  EXPECT_TRUE(WaitUntil([&] {
    answered += cae.Read(4096, std::chrono::milliseconds(20)).size();
    return pauses.ThreadsThatDelayed(2525) > 0;
  }));
  asking.join();
  // What waits, and what the connection holds.
  EXPECT_GT(answered, kReads * answer - 336U * 1024 - 64U * 1024);
}

TEST_F(Vorn, KeepsNoMoreThan336KibOfAnswersForOperatorsWhoAskAndGoAndSaysSoOnce) {
  config.speedPercent = "100";
  Start();
  constexpr const char* kFull =
      "[ERR] too many messages wait on CAE interface, answers are not kept";
  std::string reads;
  for (int i = 0; i < 60; ++i) {
    reads += AskedAtOnce();
  }
  EXPECT_TRUE(WaitUntil([&] {
    TCP_CLIENT cae(config.cae.port);
    cae.Send(reads);
    cae.CloseSending();  // read to its end; few answers go out meanwhile
    cae.ReadToEnd();
    return Logged(kFull);
  }));
  TCP_CLIENT cae(config.cae.port);
  const std::string waited = cae.ReadUntil(kCaeGreeting);
  EXPECT_TRUE(waited.ends_with(kCaeGreeting));
  EXPECT_LT(waited.size(), 336U * 1024 + 4096);  // one answer may go over it
  EXPECT_TRUE(WaitUntil([&] {
    cae.Send("DRVVER\r\n");
    return cae.ReadUntil("\r\n\r>\r\n\r").ends_with("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r");
  }));
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), kFull), 1);
}

TEST_F(Vorn, TakesNoCommandWhile28KibOfLinesWaitThatTheOperatorHasAskedFor) {
  config.speedPercent = "100";
  config.io.outSeparator = std::string(200, '-') + "\n";  // long lines fill the connection sooner
  Start();
  TCP_CLIENT cae = ConnectCae();
  WaitForCards(cae);
  TCP_CLIENT io(config.io.port, {.smallBuffers = true});
  EXPECT_TRUE(io.Receives(kIoGreeting));
  const std::string question = "GETLASTINPST:3=0";
  const LINES answer = {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"};
  // Lines of 209 bytes for the client, 24 KiB of them, and 28 KiB of eight for the master loop: up
  // to here each is answered.
  for (int i = 0; i < 24 * 1024 / 209 + 28 * 1024 / 8; ++i) {
    Ask(cae, question, answer);
  }
  constexpr int kMoreThanTheConnectionHolds = 100'000;
  bool waits = false;
  for (int i = 0; i < kMoreThanTheConnectionHolds && !waits; ++i) {
    cae.Send(question + "\r\n");
    waits = cae.ReadUntil(">\r\n\r", support::kSilence).empty();
  }
  EXPECT_TRUE(waits);
  io.Close();
  EXPECT_TRUE(cae.Receives(answer[0] + "\r\n\r>\r\n\r"));
  AskVersion(cae);
}

// --- the monitor --------------------------------------------------------------------------------

TEST_F(Vorn, AMonitorSeesNothingOfWhatWentOnBeforeIt) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  io.SendAndWaitUntilRead("bad\n");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> bad\r\n\r>\r\n\r"));
  AskVersion(cae);                // a later pass
  TCP_CLIENT mon = ConnectMon();  // what waited would come ahead of the greeting
  io.Send("a5b0d00\n");
  EXPECT_TRUE(mon.Receives("a5b0d00\n\r"));
}

TEST_F(Vorn, WhatAMonitorTypesHasNoEffect) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT mon = ConnectMon();
  WaitForCards(cae);
  const std::size_t before = line.Requests().size();
  mon.SendAndWaitUntilRead("EXIT#");
  mon.SendAndWaitUntilRead("EXIT\n");
  mon.SendAndWaitUntilRead("a5b1dFB\n");
  mon.SendAndWaitUntilRead("REBOOT:5\r\n");
  AskVersion(cae);
  AskVersion(cae);
  EXPECT_EQ(line.Requests().size(), before);
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d00\n");
  EXPECT_TRUE(mon.Receives("a5b0d00\n\r"));
}

// --- release, worker by worker ------------------------------------------------------------------

/// Released on a thread of its own, while one worker or another is held.
class VornReleased : public Vorn {
 protected:
  ~VornReleased() override {
    for (const int seconds : {1, 2, 3}) {
      pauses.Release(seconds);
    }
    if (released.valid()) {
      released.wait();
    }
  }

  /// The workers, without a master loop.
  void StartWorkers() {
    Make();
    ASSERT_TRUE(vorn->InitProgramData());
    vorn->InitInterfaces();
  }

  /// Returns when the first worker is being ended.
  void BeginRelease() {
    released = std::async(std::launch::async, [this] { vorn.reset(); });
    ASSERT_TRUE(WaitUntil([&] { return TCP_CLIENT::IsRefused(config.cae.port); }));
  }
  bool IsReleased(std::chrono::milliseconds limit = support::kLimit) const {
    return released.wait_for(limit) == std::future_status::ready;
  }

  std::ptrdiff_t CountLines(const std::string& text) const {
    const LINES log = Log();
    return std::count(log.begin(), log.end(), text);
  }

  std::future<void> released;
};

TEST_F(VornReleased, AllWorkersAreToldBeforeOneIsWaitedFor) {
  StartWorkers();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  ASSERT_TRUE(WaitUntil(
      [&] { return Logged("[INF] hardware found on " + line.Path() + " version: 1.07"); }));
  // CAE stays in the pause before it accepts, IO and MON in the first after their clients' leave.
  pauses.Hold(3);
  cae.Close();
  ASSERT_TRUE(WaitUntil([&] { return pauses.CountBegun(3) == 4; }));
  pauses.Hold(2);
  const int closed = pauses.CountBegun(2);
  io.Close();
  mon.Close();
  ASSERT_TRUE(WaitUntil([&] { return pauses.CountBegun(2) == closed + 2; }));
  BeginRelease();
  pauses.Release(2);
  // They end with that pause, though CAE is waited for first.
  EXPECT_FALSE(WaitUntil([&] { return pauses.CountBegun(2) > closed + 2; }, support::kSilence));
  EXPECT_FALSE(IsReleased(std::chrono::milliseconds(0)));
  pauses.Release(3);
  ASSERT_TRUE(IsReleased());
  EXPECT_EQ(pauses.CountBegun(2), closed + 2);
  for (const support::INTERFACE* const interface : {&config.io, &config.mon}) {
    EXPECT_EQ(CountLines("[INF] " + interface->name + " interface listening on port " +
                         std::to_string(interface->port)),
              1);
  }
}

TEST_F(VornReleased, TheBusIsLeftAloneWhileTheOtherWorkersAreWaitedFor) {
  config.initPollState = "TRUE";
  pauses.Hold(3);
  StartWorkers();
  ASSERT_TRUE(WaitUntil([&] { return line.Requests().size() > 10; }));  // it polls
  BeginRelease();
  // The exchanges of one pass may still come.
  EXPECT_TRUE(WaitUntil([&] {
    const std::size_t before = line.Requests().size();
    return !WaitUntil([&] { return line.Requests().size() > before; }, support::kSilence);
  }));
  EXPECT_FALSE(IsReleased(std::chrono::milliseconds(0)));
}

TEST_F(VornReleased, AWorkerThatReadsItsClientStillHasItsQueue) {
  for (const support::INTERFACE* const interface : {&config.cae, &config.io}) {
    SCOPED_TRACE(interface->name);
    pauses.SetLongestDelayUs(600'000);
    // Half a second for each of its passes, and hardly any for those of the others.
    WriteFile(
        folder.File("vornconf.xml"),
        support::Document({support::DebuglogElement(config.logFile), support::SpeedElement("-9900"),
                           support::InterfacesElement({support::InterfaceElement(*interface)}),
                           support::SpeedElement("100")}));
    vorn.emplace(flag, line, pauses, folder.File("vornconf.xml"));
    ASSERT_TRUE(vorn->InitProgramData());
    vorn->InitInterfaces();
    TCP_CLIENT client =
        Connect(interface->port, interface == &config.cae ? kCaeGreeting : kIoGreeting);
    client.Send("HELP\r\n");  // taken after the pause of the pass that has just begun
    vorn.reset();
    EXPECT_TRUE(TCP_CLIENT::IsRefused(interface->port));
  }
}

TEST_F(VornReleased, TheWorkerOnTheBusStillHasItsQueueForTheReplyThatItWaitsFor) {
  config.initPollState = "TRUE";
  GATE reply;
  line.AnswerWith([&](const BYTES& body) {
    if (body.front() == 0x20) {
      reply.Pass();
      return Frame({'!', body[1], 0x40, 0});  // a change, which is queued
    }
    return Answer(body);
  });
  StartWorkers();
  ASSERT_TRUE(reply.WaitUntilReached());
  BeginRelease();
  EXPECT_FALSE(IsReleased(support::kSilence));
  reply.Open();
  EXPECT_TRUE(IsReleased());
}

// --- signals that do not end it -----------------------------------------------------------------

TEST_F(Vorn, AnyOtherNumberClosesThePortAsWell) {
  Start();
  ASSERT_TRUE(WaitUntil([&] { return line.Openings() > 0; }));
  flag = SIGUSR1;
  EXPECT_TRUE(WaitUntil([&] { return line.Openings() == 0; }));
  EXPECT_FALSE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
}

}  // namespace
}  // namespace unit

}  // namespace vorn
