#include "tests/support/GoldenHelp.h"
#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/SystemTest.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <random>

/// Clients that vanish, flood or stop reading, ends at bad moments, and everything at once.

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

class Faults : public SYSTEM_TEST {
 protected:
  /// A socket option of the daemon's own end of the connection; -1 when it cannot be read.
  int SocketOption(const TCP_CLIENT& client, int level, int name) const {
    for (const auto& [number, target] : support::OpenDescriptors(Pid())) {
      if (!target.starts_with("socket:")) {
        continue;
      }
      const int processFile = static_cast<int>(syscall(SYS_pidfd_open, Pid(), 0));
      const int copy = static_cast<int>(syscall(SYS_pidfd_getfd, processFile, number, 0));
      close(processFile);
      sockaddr_in peer{};
      socklen_t length = sizeof peer;
      int value = -1;
      const bool isTheOne = getpeername(copy, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
                            ntohs(peer.sin_port) == client.LocalPort();
      if (isTheOne && name == SO_SNDTIMEO) {
        timeval time{};
        length = sizeof time;
        getsockopt(copy, level, name, &time, &length);
        value = static_cast<int>(time.tv_sec);
      } else if (isTheOne) {
        length = sizeof value;
        getsockopt(copy, level, name, &value, &length);
      }
      close(copy);
      if (isTheOne) {
        return value;
      }
    }
    return -1;
  }

  std::vector<std::string> CloseLines(const std::string& name) const {
    std::vector<std::string> lines = log.LinesWith("on " + name + " interface");
    std::erase_if(lines,
                  [](const std::string& line) { return line.find("closed") == std::string::npos; });
    return lines;
  }
};

TEST_F(Faults, AClientThatVanishesInTheMiddleOfAnAnswerDoesNotEndTheDaemon) {
  for (int i = 0; i < 5; ++i) {
    if (i == 0) {
      Start();
    }
    ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), i + 1));
    TCP_CLIENT client(config.cae.port);
    client.ReadUntil(kCaeGreeting);
    client.Send("HELP\r\n");
    EXPECT_TRUE(client.Receives(CaeLine(kQuickHelp[0])));
    client.Reset();
    ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE"), i + 1));
  }
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), 6));
  TCP_CLIENT client(config.cae.port);
  EXPECT_TRUE(client.ReadUntil(kCaeGreeting).ends_with(kCaeGreeting));
  Synchronise(client);
}

TEST_F(Faults, AnIoClientThatLeavesDuringItsExitIsToldToHaveLeftAndToBeClosed) {
  Start();
  TCP_CLIENT client = ConnectIo();
  pauses.Hold(1);
  client.Send("EXIT\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1));
  EXPECT_TRUE(client.Receives(IoLine("VORN: Bye Bye...")));  // else its write may fail
  // The worker sees the close while the master loop is in the second before its own, and is kept
  // from listening again until that is over.
  pauses.Hold(2);
  client.Close();
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("IO")));
  pauses.Release(1);
  TCP_CLIENT other = ConnectCae();
  Synchronise(other);  // the master loop is out of the EXIT
  pauses.Release(2);
  TCP_CLIENT next(config.io.port);
  EXPECT_TRUE(next.ReadUntil(kIoGreeting).ends_with(kIoGreeting));
  EXPECT_EQ(CloseLines("IO"),
            (std::vector<std::string>{ClosedByClient("IO"), ClosedByCommand("IO")}));
  EXPECT_EQ(log.LinesWith("socket").size(), 0U);
}

TEST_F(Faults, ACaeClientThatLeavesDuringItsExitIsToldToHaveLeftAndToBeClosed) {
  Start();
  TCP_CLIENT client = ConnectCae();
  pauses.Hold(1);
  client.Send("EXIT\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1));
  pauses.Hold(2);
  client.Close();
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE")));
  pauses.Release(1);
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send("x");
  EXPECT_TRUE(mon.Receives("x\r"));  // the master loop is out of the EXIT
  pauses.Release(2);
  TCP_CLIENT next(config.cae.port);
  EXPECT_TRUE(next.ReadUntil(kCaeGreeting).ends_with(kCaeGreeting));
  EXPECT_EQ(CloseLines("CAE"),
            (std::vector<std::string>{ClosedByClient("CAE"), ClosedByCommand("CAE")}));
}

TEST_F(Faults, AClientThatLeavesJustWhenItsExitIsCarriedOutIsToldToBeClosedOnce) {
  // The two closes meet as they do. As with the real pauses, the EXIT is over before the interface
  // listens again.
  pauses.SetLength(1, milliseconds(5));
  pauses.SetLength(3, milliseconds(5));
  Start();
  constexpr int kRounds = 10;
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_TRUE(log.WaitForLine(Waiting("IO"), i + 1));
    TCP_CLIENT client(config.io.port);
    // A farewell that was not written in those 5 ms goes to the next client.
    EXPECT_TRUE(client.ReadUntil(kIoGreeting).ends_with(kIoGreeting));
    pauses.Hold(2);
    client.Send("EXIT\n");
    if (i % 2 == 0) {
      client.Read(5, milliseconds(i));  // varies the meeting
    }
    client.Close();
    ASSERT_TRUE(log.WaitForLine(ClosedByCommand("IO"), i + 1));
    pauses.Release(2);
  }
  ASSERT_TRUE(log.WaitForLine(Waiting("IO"), kRounds + 1));
  EXPECT_EQ(log.Count(ClosedByCommand("IO")), kRounds);
  EXPECT_LE(log.Count(ClosedByClient("IO")), kRounds);
}

TEST_F(Faults, AnswersAreNotHeldBackAndADeadPeerIsNoticedWithinAMinute) {
  Start();
  TCP_CLIENT client = ConnectCae();
  if (SocketOption(client, SOL_SOCKET, SO_TYPE) != SOCK_STREAM) {
    GTEST_SKIP() << "the daemon's descriptors cannot be looked at here";
  }
  EXPECT_NE(SocketOption(client, IPPROTO_TCP, TCP_NODELAY), 0);
  EXPECT_NE(SocketOption(client, SOL_SOCKET, SO_KEEPALIVE), 0);
  const int idle = SocketOption(client, IPPROTO_TCP, TCP_KEEPIDLE);
  const int interval = SocketOption(client, IPPROTO_TCP, TCP_KEEPINTVL);
  const int count = SocketOption(client, IPPROTO_TCP, TCP_KEEPCNT);
  EXPECT_LE(idle + interval * count, 60);
  const int sendSeconds = SocketOption(client, SOL_SOCKET, SO_SNDTIMEO);
  EXPECT_TRUE(sendSeconds > 0 && sendSeconds <= 60) << sendSeconds << " s";
}

TEST_F(Faults, AClientThatFloodsWhileTheMasterLoopPausesIsHeldBack) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT client = ConnectCae();
  const long before = support::ResidentKiB(Pid());
  pauses.Hold(1);
  client.Send("FORCEDISCOVER\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1));
  // More than the kernel's buffers take, so that it ends only if the daemon reads on and on.
  constexpr std::size_t kFlood = 64U * 1024 * 1024;
  const std::string line(65536, 'x');
  std::size_t sent = 0;
  while (sent < kFlood && client.WaitUntilWritable(support::kSilence)) {
    sent += client.TrySend(line);
  }
  EXPECT_LT(sent, kFlood);
  if (!support::kInstrumented) {
    EXPECT_LT(support::ResidentKiB(Pid()) - before, 4096);
  }
  pauses.Release(1);
  // The other interfaces are served, and the end comes in the middle of it.
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send("a5b0d00\n");
  EXPECT_TRUE(mon.Receives("a5b0d00\n\r"));
}

TEST_F(Faults, NothingOfAFloodIsLostAndItsOrderIsKept) {
  config.speedPercent = "100";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  pauses.Hold(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, 2));
  // Fifteen bytes each: a read of 255 holds whole commands.
  constexpr int kFlooded = 2000;
  std::string flood;
  std::vector<std::string> expected;
  for (int i = 0; i < kFlooded; ++i) {
    const std::string value = sim::ToHex(static_cast<std::uint8_t>(i * 7));
    flood += "a5b0d" + value + "-------\n";
    expected.push_back("05 10 05 02 " + value + " FF");
  }
  ASSERT_TRUE(WaitForFrame("04 50 05 01 AB"));
  const std::uint64_t from = adapter.Requests().Last();
  io.Send(flood);
  pauses.Release(1);
  ASSERT_TRUE(
      support::WaitUntil([&] { return adapter.Requests().Last() >= from + kFlooded; }, 3 * kLimit));
  EXPECT_EQ(Frames(from), expected);
}

TEST_F(Faults, AMonFloodIsDiscarded) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT mon = ConnectMon();
  const long before = support::ResidentKiB(Pid());
  // Read in pieces of 255 bytes; kept, it would be some 30 bytes of memory for each.
  mon.SendAndWaitUntilRead(std::string(512U * 1024, 'x'));
  if (!support::kInstrumented) {
    EXPECT_LT(support::ResidentKiB(Pid()) - before, 2048);
  }
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
}

TEST_F(Faults, ASlowReaderGetsEveryByte) {
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

TEST_F(Faults, AReaderThatStopsReadingStopsNeitherTheOthersNorTheEnd) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  StartIdentified();
  cae->Close();
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), 2));
  TCP_CLIENT stuck(config.cae.port, {.smallBuffers = true});
  ASSERT_TRUE(stuck.Receives(kCaeGreeting));
  // Ask for help until the daemon, stuck in a write, reads no more of it.
  std::size_t asked = 0;
  while (asked < 500U * 1024 && stuck.WaitUntilWritable(support::kSilence)) {
    asked += stuck.TrySend("HELP\r\n");
    if (support::WaitUntil([&] { return stuck.IsAllRead(); }, milliseconds(50))) {
      continue;
    }
    break;
  }
  ASSERT_GT(asked, 0U);
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send("a5b0d11\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 11 FF"));
  EXPECT_TRUE(mon.Receives("a5b0d11\n\r"));
  ASSERT_TRUE(rack.Press(3, 6));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40")));
  Stop(SIGTERM);
}

TEST_F(Faults, DescriptorNumbersThatSelectCannotHoldAreASelectError) {
  support::START start;
  start.descriptorsInUse = 1100;
  Start(start);
  for (int clients = 1; clients <= 3; ++clients) {  // one line each, then the next is served
    TCP_CLIENT client(config.io.port);
    EXPECT_TRUE(client.Receives(kIoGreeting));
    client.ReadToEnd();
    EXPECT_TRUE(log.WaitForLine("[INF] connection is closed by client on IO interface", clients));
    EXPECT_EQ(log.Count("[ERR] socket select error on IO interface"), clients);
  }
  Stop(SIGTERM);
}

TEST_F(Faults, TheEndComesWhileEveryWorkerIsInAPause) {
  pauses.Hold(2);
  pauses.Hold(3);
  Start();
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  ASSERT_TRUE(pauses.WaitUntilBegun(3, 3));
  Stop(SIGTERM);
}

TEST_F(Faults, TheEndComesWhileTheLinkIsInUse) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  StartIdentified();
  ASSERT_TRUE(WaitForFrame("03 20 0F 06"));
  Stop(SIGTERM);
  EXPECT_EQ(log.LinesWith("[ERR]"), std::vector<std::string>{});
}

TEST_F(Faults, GarbageOnEveryInterfaceAndOnTheLineIsSurvived) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  // A fixed seed: the same garbage in every run.
  std::mt19937 random(20260101);
  const auto text = [&random](std::size_t longest) {
    static constexpr std::string_view kCharacters =
        "aAbBdDlsHSPpt:=0123456789EFGETSCMRNOLKI\r\n\r\n|%\x01\xFF";
    std::string garbage(random() % longest + 1, ' ');
    for (char& character : garbage) {
      character = kCharacters[random() % kCharacters.size()];
    }
    return garbage;
  };
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  // Every tenth answer of the rack is garbage: short, long, announcing too much or too little.
  adapter.SetReplyHook([line = std::mt19937(20260102)](
                           const sim::REQUEST& request,
                           const std::optional<sim::Bytes>&) mutable -> std::optional<sim::REPLY> {
    if (request.frame[1] == 0x40 || line() % 10 != 0) {
      return std::nullopt;
    }
    sim::Bytes bytes(line() % 300 + 1);
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(line());
    }
    constexpr std::uint8_t kCodes[] = {0x21, 0x31, 0x51, 'T', 'N', 0};
    if (bytes.size() > 2) {
      bytes[1] = kCodes[line() % 6];
      bytes[0] = line() % 2 == 0 ? bytes[0] : static_cast<std::uint8_t>(bytes.size() - 1);
    }
    return sim::REPLY{{microseconds(0), bytes}};
  });
  for (int i = 0; i < 300; ++i) {
    io.Send(text(300));
    mon.Send(text(300));
    cae->Send(text(60));
  }
  adapter.SetReplyHook(nullptr);
  // After all of it the daemon is an ordinary one. The pauses of what was taken for card requests
  // take their time.
  pauses.SetLength(1, milliseconds(5));
  cae->SendAndWaitUntilRead("\r\n");  // so that the command is a message of its own
  cae->Send("SPEED=90\r\n");
  constexpr std::string_view kAnswer = "CIA: SPEED IS SET to 90%\r\n\r>\r\n\r";
  EXPECT_TRUE(cae->ReadUntil(kAnswer).ends_with(kAnswer));
  EXPECT_TRUE(daemon.Running());
}

TEST_F(Faults, ClientsPollingForcedDiscoveryAndReconnectionsRunTogether) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  pauses.SetLength(1, milliseconds(30));
  pauses.SetLength(2, milliseconds(10));
  pauses.SetLength(3, milliseconds(10));
  StartIdentified();
  TCP_CLIENT mon = ConnectMon();
  for (int round = 0; round < 5; ++round) {
    ASSERT_TRUE(log.WaitForLine(Waiting("IO"), round + 1));
    TCP_CLIENT io(config.io.port);
    EXPECT_TRUE(io.ReadUntil(kIoGreeting).ends_with(kIoGreeting));
    cae->Send("FORCEDISCOVER\r\n");
    for (int i = 0; i < 20; ++i) {
      io.Send("a5b0d0F\na0b1d10\naElCL\na9sHS01\n");
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
    mon.Send("nobody reads this");
  }
  // Quiet again: everything works.
  ASSERT_TRUE(support::WaitUntil([&] {
    cae->Send("REBOOT:5\r\n");
    return cae->ReadUntil("\r>\r\n\r") == CaeReply({"CIA: Card is REBOOTED", "RBT:0x5:OK"});
  }));
  EXPECT_EQ(log.LinesWith("bind").size(), 0U);
}

}  // namespace
