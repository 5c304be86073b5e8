#include "tests/support/Text.h"
#include "tests/system/ClientFaults.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <thread>
#include <vector>

/// Clients that leave and come again, in whatever way, and one that never ends its line.

namespace {

using std::chrono::milliseconds;

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

}  // namespace
