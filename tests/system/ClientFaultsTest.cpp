#include "sim/line/Descriptor.h"
#include "tests/support/GoldenHelp.h"
#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/LoadFixture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <thread>

/// Clients that vanish, stop, flood or send what no program sends: the other two and the bus do not
/// notice, and the next client finds an ordinary daemon.

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kMinute{60'000};

/// A flood takes whole cores: a reply of the rack can be late for it, which costs the link for a
/// moment.
std::vector<std::string> LateReply() {
  return {"[INF] comm timeout /dev/ttyUSB", "[INF] try to catch hardware on /dev/ttyUSB",
          "[INF] hardware found on /dev/ttyUSB"};
}
std::vector<std::string> LateReplyOr(const std::string& line) {
  std::vector<std::string> lines = LateReply();
  lines.push_back(line);
  return lines;
}

class ClientFaults : public LOAD_FIXTURE {
 protected:
  /// The text is made of input lines, and copies of this command, and of nothing else; what it ends
  /// with may be cut off. Where no line may be missing, they count up by one.
  void ExpectStream(const std::string& text, bool mayMissLines,
                    const std::string& command = "") const {
    std::vector<std::string> lines = Messages(text, IoLine(""));
    std::erase(lines, command);
    const INPUT_GAPS found = FindInputGaps(lines);
    EXPECT_FALSE(found.torn) << support::Visible(*found.torn);
    EXPECT_TRUE(mayMissLines || found.missing == 0) << found.missing;
  }

  /// What was refused goes to CAE, as one message each.
  std::string Refused(const std::string& command) const {
    return CaeReply({"COE:Illegal command -> " + command});
  }
};

TEST_F(ClientFaults, AResetOrAHalfCloseAtAnyMomentEndsOnlyThatConnection) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  StartForFaults();
  for (const PART part : kInterfaces) {
    SCOPED_TRACE(Interface(part).name);
    const auto beWrittenTo = [&] {
      if (part == PART::kCae) {
        for (int i = 0; i < 20; ++i) {
          Client(part)->Send("HELP\r\n");
        }
      } else {
        bus.StartInputs();
      }
      EXPECT_EQ(Client(part)->Read(20).size(), 20U);
    };
    BeginFault({.touched = {part}, .lines = LateReply(), .mostLines = 50});
    Client(part)->Reset();  // idle
    ExpectService();
    Reconnect(part);
    Client(part)->SendAndWaitUntilRead("DRV");  // in mid-line
    Client(part)->Reset();
    ExpectService();
    Reconnect(part);
    beWrittenTo();
    Client(part)->Reset();
    bus.StopInputs();
    ExpectService();
    Reconnect(part);
    const int closes = CountLines(ClosedByClient(Interface(part).name));
    beWrittenTo();
    Client(part)->CloseSending();
    ASSERT_TRUE(WaitForLines(ClosedByClient(Interface(part).name), closes + 1));
    bus.StopInputs();
    Client(part)->ReadToEnd();
    ExpectService();
    EndFault();
  }
}

TEST_F(ClientFaults, AMonitorThatStopsReadingFillsNoMemoryAndIsGivenUpWithinAMinute) {
  config.speedPercent = "100";
  StartForFaults();
  const std::string full = "[ERR] too many messages wait on MON interface, copies are not made";
  BeginFault({.touched = {PART::kMon}, .lines = LateReplyOr(full)});
  TCP_CLIENT stuck = ReplaceBySlowReader(PART::kMon);
  // Lines for an empty slot: nothing goes to the bus, every byte goes to the monitor.
  constexpr std::size_t kPushed = 4U * 1024 * 1024;
  std::string lines;
  while (lines.size() < 64U * 1024) {
    lines += "a2b0d00" + std::string(43, '-') + "\n";  // five of them are a read of 255 bytes
  }
  {
    const COLLECTOR reader(*cae);  // the lines are refused: who did not read would go
    for (std::size_t pushed = 0; pushed < kPushed; pushed += lines.size()) {
      io->Send(lines);
      LookAtMemory();
    }
    ASSERT_TRUE(support::WaitUntil([&] { return io->IsAllRead(); }, 3 * support::kLimit));
  }
  ExpectService();
  ExpectGrowthBelow(16 * 1024);
  EXPECT_GE(CountLines(full), 1);
  // For the half minute to come.
  const std::string slower = CaeReply({"CIA: SPEED IS SET to " + kSpeedOfLongFaults + "%"});
  cae->Send("SPEED=" + kSpeedOfLongFaults + "\r\n");
  EXPECT_TRUE(cae->ReadUntil(slower).ends_with(slower));
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("MON"), 2, kMinute));
  stuck.Close();
  EndFault();
}

TEST_F(ClientFaults, AMonitorThatCatchesUpAfterEachPauseLosesNothing) {
  config.speedPercent = "50";
  StartForFaults();
  BeginFault({.touched = {PART::kMon}});
  TCP_CLIENT pausing = ReplaceBySlowReader(PART::kMon);
  std::string sent;
  std::string received;
  // For an empty slot: nothing goes to the bus, every byte goes to the monitor.
  const auto traffic = [&](std::chrono::seconds time, bool isRead) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
      const std::string line = "a2b0d" + sim::ToHex(static_cast<std::uint8_t>(i)) +
                               std::string(isRead ? 3 : 40, '-') + "\n";
      io->SendAndWaitUntilRead(line);
      sent += line;
      received += pausing.Read(isRead ? 4096 : 0, milliseconds(10));
    }
  };
  // A window that is closed, opened, and closed again after more than the half minute.
  traffic(std::chrono::seconds(3), false);
  traffic(std::chrono::seconds(32), true);
  traffic(std::chrono::seconds(3), false);
  ExpectService();
  const auto withoutReturns = [&] {
    std::string text = received;
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
  };
  EXPECT_TRUE(support::WaitUntil([&] {
    received += pausing.Read(4096, milliseconds(10));
    return withoutReturns().size() >= sent.size();
  }));
  EXPECT_TRUE(withoutReturns().starts_with(sent));  // the service's own lines stand behind it
  pausing.Close();
  EndFault();
}

TEST_F(ClientFaults, AnOperatorThatStopsReadingIsGivenUpWithinAMinute) {
  config.speedPercent = kSpeedOfLongFaults;
  StartForFaults();
  // What he has asked last is carried out when he has gone.
  const std::string full =
      "[ERR] too many messages wait on CAE interface, refused commands are not reported";
  BeginFault({.touched = {PART::kCae},
              .lines = {"[ERR] too many messages wait on CAE interface, answers are not kept", full,
                        "[ERR] too many messages wait on MON interface, copies are not made"}});
  TCP_CLIENT stuck = ReplaceBySlowReader(PART::kCae);
  bool isStuck = false;
  // So many would fill what may wait, if they were read.
  for (int i = 0; i < 10'000 && !isStuck; ++i) {
    stuck.Send("HELP\r\n");
    isStuck = !support::WaitUntil([&] { return stuck.IsAllRead(); }, support::kSilence);
  }
  ASSERT_TRUE(isStuck);
  ExpectService();
  // More than he has asked for: 4 MB that are to be told to him, refused commands of a machine.
  constexpr std::size_t kPushed = 4U * 1024 * 1024;
  std::string lines;
  for (std::size_t told = 0; told < kPushed; told += Refused("bad").size()) {
    lines += "bad\n";
  }
  {
    const COLLECTOR reader(*mon);
    io->Send(lines);
    ASSERT_TRUE(support::WaitUntil([&] { return io->IsAllRead(); }, 3 * support::kLimit));
  }
  ExpectService();
  ExpectGrowthBelow(16 * 1024);
  EXPECT_GE(CountLines(full), 1);
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE"), 2, kMinute));
  stuck.Close();
  EndFault();
}

TEST_F(ClientFaults, AnOperatorWhoAsksFasterThanHeIsAnsweredIsHeldBack) {
  config.speedPercent = "100";
  StartForFaults();
  BeginFault({.touched = {PART::kCae}});
  // Wherever a read of 255 bytes begins, it holds each command, to be refused for its card at once.
  std::string questions;
  constexpr std::size_t kPushed = 512U * 1024;
  while (questions.size() < kPushed) {
    questions +=
        "SETMSR\r\nGETMSR\r\nSTOREMSRS\r\nSTOREANMASK:\r\nLCDSELFTEST:\r\nLCDINITLIGHT:\r\n"
        "SETANMASK:\r\n";
  }
  {
    const COLLECTOR reader(*cae);
    constexpr std::size_t kPiece = 4096;
    for (std::size_t begin = 0; begin < questions.size(); begin += kPiece) {
      cae->Send(std::string_view(questions).substr(begin, kPiece));
      LookAtMemory();
    }
    ASSERT_TRUE(support::WaitUntil([&] { return cae->IsAllRead(); }, 3 * support::kLimit));
    LookAtMemory();
  }
  ExpectGrowthBelow(16 * 1024);
  const std::string version = CaeReply({"CIA: DRIVER VERSION 1.20"});
  cae->Send("DRVVER\r\n");  // behind the answers that are still to come
  EXPECT_TRUE(cae->ReadUntil(version).ends_with(version));
  ExpectService();
  EndFault();
}

TEST_F(ClientFaults, AnIoClientThatStopsReadingInAStormOfInputIsGivenUpWithinAMinute) {
  config.initPollState = "TRUE";
  config.speedPercent = kSpeedOfLongFaults;
  StartForFaults();
  BeginFault({.touched = {PART::kIo, PART::kMon}, .lines = LateReply()});
  TCP_CLIENT stuck = ReplaceBySlowReader(PART::kIo);
  bus.StartInputs();
  ExpectService();
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("IO"), 2, kMinute));
  bus.StopInputs();
  ExpectGrowthBelow(2 * 1024);
  stuck.Close();
  EndFault();
}

TEST_F(ClientFaults, ALineWithoutAnEndIsAnsweredPieceByPieceAndCostsNoMemory) {
  config.speedPercent = "100";
  StartForFaults();
  BeginFault({.touched = {}});
  constexpr std::size_t kPieces = 2000;
  const std::string endless(255 * kPieces, 'x');
  mon->Send(endless);
  std::thread sender([&] { cae->Send(endless); });
  // Where a read finds less than 255 bytes, the pieces are more.
  for (std::size_t i = 0; i < kPieces; ++i) {
    const std::string reply = cae->ReadUntil(UnknownReply());
    if (reply != UnknownReply()) {
      ADD_FAILURE() << support::Visible(reply);
      break;
    }
  }
  sender.join();
  // What follows would else be read together with its end.
  EXPECT_TRUE(support::WaitUntil([&] { return cae->IsAllRead(); }));
  ExpectService();
  ExpectGrowthBelow(4096);
  EndFault();
}

TEST_F(ClientFaults, AStormOfConnectionsIsDroppedAndTheNextClientIsServed) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  StartForFaults();
  BeginFault({.touched = {PART::kCae, PART::kIo, PART::kMon}, .mostLines = 4000});
  for (int round = 0; round < 5; ++round) {
    std::vector<int> sockets;
    for (int i = 0; i < 150; ++i) {
      const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      ASSERT_GE(client, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons(static_cast<std::uint16_t>(Interface(kInterfaces[i % 3]).port));
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      static_cast<void>(
          connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address));
      sockets.push_back(client);
    }
    ExpectService();
    if (round % 2 == 0) {
      cae->Reset();
      io->Close();
      mon->CloseSending();
    }
    for (const int client : sockets) {
      const linger atOnce{round % 2, 0};
      setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
      close(client);
    }
    for (const PART part : kInterfaces) {
      Reconnect(part);
    }
  }
  EndFault();
}

TEST_F(ClientFaults, TwoInterfacesCycleWhileTheThirdStreamsAndNoByteReachesAnother) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  pauses.SetLength(2, milliseconds(5));
  pauses.SetLength(3, milliseconds(5));
  StartForFaults();
  // The machine's lines are told to the monitor, and so is what a machine has sent.
  const std::string command = "a5b0d5A";
  const std::size_t kLineSize = IoLine(InputLine(0)).size();
  for (const PART streamed : {PART::kIo, PART::kMon}) {
    SCOPED_TRACE(Interface(streamed).name);
    const PART other = streamed == PART::kIo ? PART::kMon : PART::kIo;
    const int rounds = Rounds(200, 15);
    BeginFault({.touched = {PART::kCae, PART::kIo, PART::kMon},
                .mostLines = static_cast<std::size_t>(rounds) * 16 + 40});
    bus.StartInputs();
    COLLECTOR reader(*Client(streamed));
    // Each sees its own greeting and its own answers, and nothing else.
    std::thread operators([&] {
      for (int i = 0; i < rounds; ++i) {
        EXPECT_EQ(Reconnect(PART::kCae), "");
        cae->Send("DRVVER\r\n");
        EXPECT_TRUE(cae->Receives(CaeReply({"CIA: DRIVER VERSION 1.20"})));
        if (i % 2 == 0) {
          cae->Reset();
        } else {
          cae->CloseSending();
          EXPECT_TRUE(cae->IsClosed());
        }
      }
    });
    for (int i = 0; i < rounds; ++i) {
      // What its predecessor was to get comes first.
      const std::string waited = Reconnect(other);
      EXPECT_EQ(waited.size() % kLineSize, 0U);
      ExpectStream(waited, true);
      std::string lines = Client(other)->Read(3 * kLineSize);
      EXPECT_EQ(lines.size(), 3 * kLineSize);
      ExpectStream(lines, true);
      Client(other)->Send(other == PART::kIo ? command + "\n" : "DRVVER\r\n");
      i % 2 == 0 ? Client(other)->Reset() : Client(other)->Close();
    }
    operators.join();
    ExpectService();
    const std::string all = reader.Stop();
    bus.StopInputs();
    ASSERT_GT(all.size(), kLineSize);
    // Without a machine its lines are lost; else there is no gap.
    ExpectStream(all, streamed == PART::kMon, streamed == PART::kMon ? command : "");
    EndFault();
  }
}

TEST_F(ClientFaults, AClientThatConnectsAgainAndAgainLeavesNothingBehind) {
  pauses.SetLength(2, milliseconds(0));
  pauses.SetLength(3, milliseconds(0));
  config.speedPercent = "100";
  StartForFaults();
  const int rounds = Rounds(3400, 40);
  BeginFault({.touched = {PART::kCae, PART::kIo, PART::kMon},
              .mostLines = static_cast<std::size_t>(rounds) * 3 * 8 + 20,
              .looksForItself = true});
  // The operator and the bus answer now and then, and the monitor is greeted.
  const auto ask = [&](PART part) {
    if (part == PART::kCae) {
      cae->Send("DRVVER\r\n");
      EXPECT_TRUE(cae->Receives(CaeReply({"CIA: DRIVER VERSION 1.20"})));
    } else if (part == PART::kIo) {
      const std::uint64_t from = adapter.Requests().Last();
      io->Send("a5b0d5A\n");
      EXPECT_TRUE(WaitForFrame("05 10 05 02 5A FF", from));
    }
  };
  const auto cycle = [&](PART part) {
    try {
      for (int i = 0; i < rounds; ++i) {
        Reconnect(part);
        if (i % 20 == 0) {
          ask(part);
        }
        i % 3 == 0 ? Client(part)->Reset() : Client(part)->Close();
      }
    } catch (const std::exception& error) {
      ADD_FAILURE() << Interface(part).name << ": " << error.what();
    }
  };
  std::thread first([&] { cycle(PART::kCae); });
  std::thread second([&] { cycle(PART::kIo); });
  cycle(PART::kMon);
  first.join();
  second.join();
  ExpectGrowthBelow(1024);
  EndFault();
}

TEST_F(ClientFaults, ASlowReaderGetsEveryByte) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT client(config.cae.port, {.smallBuffers = true});
  EXPECT_TRUE(client.Receives(kCaeGreeting));
  std::string expected;
  for (int i = 0; i < 150; ++i) {
    client.SendAndWaitUntilRead("HELP\r\n");
    expected += CaeReply(kQuickHelp);
  }
  // More than the connection takes: the rest waits in the daemon.
  EXPECT_LT(support::UnreadBytes(client.LocalPort(), config.cae.port),
            static_cast<long>(expected.size()));
  EXPECT_TRUE(client.Receives(expected));
  Synchronise(client);
}

TEST_F(ClientFaults, ClientsPollingForcedDiscoveryAndReconnectionsRunTogether) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  pauses.SetLength(1, milliseconds(30));
  pauses.SetLength(2, milliseconds(10));
  pauses.SetLength(3, milliseconds(10));
  StartIdentified();
  mon.emplace(ConnectMon());
  for (int round = 0; round < 5; ++round) {
    ASSERT_TRUE(log.WaitForLine(Waiting("IO"), round + 1));
    io.emplace(config.io.port);
    EXPECT_TRUE(io->ReadUntil(kIoGreeting).ends_with(kIoGreeting));
    cae->Send("FORCEDISCOVER\r\n");
    for (int i = 0; i < 20; ++i) {
      io->Send("a5b0d0F\na0b1d10\naElCL\na9sHS01\n");
      ASSERT_TRUE(rack.Set(3, 0, round * 20 + i));
      ASSERT_TRUE(rack.Set(0xF, i % 6, round * 20 + i));
      ASSERT_TRUE(rack.Turn(8, 1));
    }
    Unplug();
    cae->ReadUntil("DTI:0xF:");
    cae->ReadUntil("\r>\r\n\r");
    Plug(round % 3);
    for (const char* command : {"POLLOFF:3", "POLLSTATE", "SPEED=95", "GETANMASK:F", "POLLON:3",
                                "REBOOT:0", "SPEED=100", "GETLASTINPST:3=0"}) {
      cae->Send(std::string(command) + "\r\n");
      EXPECT_TRUE(cae->ReadUntil("\r>\r\n\r").ends_with("\r>\r\n\r")) << command;
    }
    mon->Send("nobody reads this");
    io.reset();
  }
  // Quiet again: everything works.
  ASSERT_TRUE(support::WaitUntil([&] {
    cae->Send("REBOOT:5\r\n");
    return cae->ReadUntil("\r>\r\n\r") == CaeReply({"CIA: Card is REBOOTED", "RBT:0x5:OK"});
  }));
  EXPECT_EQ(log.LinesWith("bind").size(), 0U);
}

/// A second machine: a network namespace of its own at the other end of a cable.
class OTHER_MACHINE {
 public:
  OTHER_MACHINE() {
    std::thread([this] {
      if (unshare(CLONE_NEWNET) != 0) {
        return;
      }
      m_namespace = sim::DESCRIPTOR(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
      m_isThere = Run("ip link add vorn-far type veth peer name vorn-near netns " +
                      std::to_string(getpid())) &&
                  Run("ip addr add 10.111.0.2/24 dev vorn-far") && Run("ip link set vorn-far up");
    }).join();
    m_isThere = m_isThere && Run("ip addr add 10.111.0.1/24 dev vorn-near") &&
                Run("ip link set vorn-near up");
  }
  /// False where the system does not let it be.
  bool IsThere() const { return m_isThere; }

  /// A connection from there to the daemon, once it has got the greeting.
  sim::DESCRIPTOR Connect(int port, const std::string& greeting) {
    sim::DESCRIPTOR client;
    From([&] { client = ConnectHere(port, greeting); });
    return client;
  }

  void PullTheCable() {
    From([] { EXPECT_TRUE(Run("ip link set vorn-far down")); });
  }

 private:
  static bool Run(const std::string& command) { return std::system(command.c_str()) == 0; }

  static sim::DESCRIPTOR ConnectHere(int port, const std::string& greeting) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, "10.111.0.1", &address.sin_addr);
    sim::DESCRIPTOR client;
    const auto isGreeted = [&] {
      client = sim::DESCRIPTOR(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
      if (connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return false;
      }
      std::string received(greeting.size(), ' ');
      return recv(client.Get(), received.data(), received.size(), MSG_WAITALL) ==
                 static_cast<ssize_t>(greeting.size()) &&
             received == greeting;
    };
    EXPECT_TRUE(support::WaitUntil(isGreeted));
    return client;
  }

  void From(const std::function<void()>& task) {
    std::thread([&] {
      ASSERT_EQ(setns(m_namespace.Get(), CLONE_NEWNET), 0);
      task();
    }).join();
  }

  sim::DESCRIPTOR m_namespace;
  bool m_isThere = false;
};

TEST_F(ClientFaults, APeerWhoseLinkGoesDownWithoutAWordIsGivenUpWithinAMinute) {
  config.speedPercent = "50";
  StartForFaults();
  OTHER_MACHINE other;
  if (!other.IsThere()) {
    GTEST_SKIP() << "no second network namespace here";
  }
  BeginFault({.touched = {PART::kCae, PART::kMon}});
  cae.reset();
  mon.reset();
  const sim::DESCRIPTOR idle = other.Connect(config.cae.port, kCaeGreeting);
  const sim::DESCRIPTOR writtenTo = other.Connect(config.mon.port, kMonGreeting);
  other.PullTheCable();
  io->Send("a5b0d00\n");  // a copy is on its way, and will not be acknowledged
  ExpectService();
  for (const char* name : {"CAE", "MON"}) {
    EXPECT_TRUE(log.WaitForLine(ClosedByClient(name), 2, kMinute)) << name;
  }
  EndFault();
}

}  // namespace
