#include "tests/support/ProcessInfo.h"
#include "tests/unit/tcp/SocketFixture.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

namespace vorn {

using support::kSilence;
using support::TCP_CLIENT;
using support::WaitUntil;

namespace {

constexpr const char* kByClient = "[INF] connection is closed by client on CAE interface";
constexpr const char* kByCommand = "[INF] connection is closed by command on CAE interface";
constexpr const char* kWaiting = "[INF] CAE interface is waiting for incoming connection";

std::size_t OpenSocketCount() {
  std::size_t count = 0;
  for (const auto& [number, target] : support::OpenDescriptors(getpid())) {
    count += target.starts_with("socket:") ? 1 : 0;
  }
  return count;
}

}  // namespace

// --- by the client ----------------------------------------------------------------------------

TEST_F(SocketInterface, WaitsTwoPausesAfterAClientsCloseBeforeItListens) {
  const RESERVED_PORT reserved;
  const int port = reserved.Port();
  Start("CAE", port);
  TCP_CLIENT client = ConnectAndGreet();
  m_pauses.Hold(2);
  client.Close();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(2));
  EXPECT_EQ(m_worker->State(), kClosed);
  EXPECT_FALSE(m_worker->IsConnected());
  EXPECT_EQ(Port(), 0);
  EXPECT_TRUE(TCP_CLIENT::IsRefused(port));
  m_pauses.Release(2);
  ASSERT_TRUE(WaitUntil([&] { return m_pauses.CountBegun(3) == 2; }));
  EXPECT_EQ(m_pauses.Begun(), (std::vector<int>{3, 2, 2, 3}));
}

TEST_F(SocketInterface, ListensOnItsOwnPortAgain) {
  const RESERVED_PORT reserved;
  const int port = reserved.Port();
  Start("CAE", port);
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(m_log.WaitForLine(kWaiting, round));
    ASSERT_EQ(Port(), port);
    TCP_CLIENT client = Connect();
    client.ReadUntil(kCaeGreeting);
    client.Close();
  }
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, ListensOnItsOwnPortAgainThoughAChildThatIsBeingStartedHoldsItsDescriptors) {
  const RESERVED_PORT reserved;
  const int port = reserved.Port();
  Start("CAE", port);
  TCP_CLIENT client = ConnectAndGreet();
  // What a child of another worker's pause has until it is replaced by its program. Not by dup:
  // ThreadSanitizer would take it for a use of what the worker closes.
  const auto copy = static_cast<int>(syscall(SYS_dup, DescriptorOfListener(port)));
  ASSERT_NE(copy, -1);
  client.Close();
  EXPECT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(Port(), port);
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
  close(copy);
}

TEST_F(SocketInterface, ListensOnItsOwnPortAgainWhenThatIsGivenFreeInTheNextMoment) {
  const RESERVED_PORT reserved;
  Start("CAE", reserved.Port());
  TCP_CLIENT client = ConnectAndGreet();
  socketCalls.bind.Fail(EADDRINUSE, 3);
  client.Close();
  EXPECT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(Port(), reserved.Port());
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, KeepsTryingToListenWithAPauseEachTime) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.socket.Fail(EMFILE, 3);
  client.Close();
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(m_log.LinesWith("[ERR]"),
            (std::vector<std::string>(3, "[ERR] couldn't open socket forCAE interface")));
  ASSERT_TRUE(WaitUntil([&] { return m_pauses.CountBegun(3) == 2; }));
  EXPECT_EQ(m_pauses.Begun(), (std::vector<int>{3, 2, 2, 2, 2, 2, 3}));
}

TEST_F(SocketInterface, TakesAClientThatOnlyStopsSendingAsGone) {
  TCP_CLIENT client = StartWithClient();
  client.CloseSending();
  EXPECT_TRUE(client.IsClosed());
  EXPECT_TRUE(m_log.WaitForLine(kByClient));
}

TEST_F(SocketInterface, LeavesNoDescriptorBehind) {
  const std::size_t before = OpenSocketCount();
  Start();
  for (int round = 1; round <= 3; ++round) {
    ASSERT_TRUE(WaitUntilListening(round));
    TCP_CLIENT client = Connect();
    client.ReadUntil(kCaeGreeting);
    if (round == 2) {
      m_worker->CloseByCommand();
    }
  }
  ASSERT_TRUE(WaitUntilListening(4));
  EXPECT_EQ(OpenSocketCount(), before + 1);
  m_worker.reset();
  EXPECT_EQ(OpenSocketCount(), before);
}

// --- by command -------------------------------------------------------------------------------

TEST_F(SocketInterface, CloseByCommandEndsTheConnection) {
  TCP_CLIENT client = StartWithClient();
  m_worker->CloseByCommand();
  EXPECT_TRUE(client.IsClosed());
  ASSERT_TRUE(m_log.WaitForLine(kWaiting, 2));
  EXPECT_EQ(Log(), (std::vector<std::string>{"[INF] CAE interface listening on port 0", kWaiting,
                                             ConnectedLine(client), kByCommand,
                                             "[INF] CAE interface listening on port 0", kWaiting}));
  ASSERT_TRUE(WaitUntil([&] { return m_pauses.CountBegun(3) == 2; }));
  EXPECT_EQ(m_pauses.Begun(), (std::vector<int>{3, 2, 2, 3}));
  TCP_CLIENT next = ConnectAndGreet();
}

TEST_F(SocketInterface, CloseByCommandIsSeenAtOnce) {
  TCP_CLIENT client = StartWithClient();
  m_pauses.Hold(2);  // it would listen again soon
  m_worker->CloseByCommand();
  EXPECT_EQ(m_worker->State(), kClosed);
  EXPECT_FALSE(m_worker->IsConnected());
  EXPECT_EQ(Count(kByCommand), 1);
  m_pauses.Release(2);
}

TEST_F(SocketInterface, WhatIsQueuedAfterCloseByCommandIsTheNextClientsFirst) {
  TCP_CLIENT client = StartWithClient();
  m_worker->CloseByCommand();
  Send(">\r\n");
  EXPECT_TRUE(client.IsClosed());
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT next = Connect();
  EXPECT_TRUE(next.Receives(">\r\n\r" + std::string(kCaeGreeting)));
}

TEST_F(SocketInterface, CloseByCommandNeverLosesWhatIsQueuedAfterIt) {
  constexpr int kRounds = 20;
  Start();
  for (int round = 1; round <= kRounds; ++round) {
    ASSERT_TRUE(WaitUntilListening(round));
    TCP_CLIENT client = Connect();
    ASSERT_TRUE(client.Receives(round == 1 ? kCaeGreeting : ">\r" + std::string(kCaeGreeting)));
    m_worker->CloseByCommand();
    Send(">");
  }
}

TEST_F(SocketInterface, WakesTheMasterControlWhereItsClientHasLeft) {
  BELL bell;
  m_input.WakeTakerBy(bell);
  TCP_CLIENT client = StartWithClient();
  bell.Arm(BELL::kResting);
  client.Close();
  EXPECT_TRUE(WaitUntil([&] {
    pollfd event = {bell.Descriptor(), POLLIN, 0};
    return poll(&event, 1, 0) > 0;
  }));
  EXPECT_FALSE(m_worker->IsConnected());
  m_worker.reset();
}

TEST_F(SocketInterface, CloseByCommandWhileIdleOpensTheInterface) {
  Make();
  m_worker->CloseByCommand();
  ASSERT_TRUE(WaitUntilListening(1));
  EXPECT_EQ(Log().front(), kByCommand);
  TCP_CLIENT client = ConnectAndGreet();
}

TEST_F(SocketInterface, CloseByCommandWhileListeningReopens) {
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds; ++round) {
    Start();
    m_worker->CloseByCommand();
    ASSERT_TRUE(WaitUntilListening(2 * (round + 1)));
    TCP_CLIENT client = ConnectAndGreet();
    m_worker.reset();
  }
  EXPECT_EQ(Count(kByCommand), kRounds);
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, CloseByCommandInThePauseBeforeAcceptReopens) {
  m_pauses.Hold(3);
  Start();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(3));
  TCP_CLIENT waiting = Connect();
  m_worker->CloseByCommand();
  EXPECT_EQ(m_worker->State(), kClosed);
  EXPECT_TRUE(waiting.IsClosed());
  m_pauses.Release(3);
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT client = ConnectAndGreet();
  EXPECT_EQ(Log(), (std::vector<std::string>{"[INF] CAE interface listening on port 0", kWaiting,
                                             kByCommand, "[INF] CAE interface listening on port 0",
                                             kWaiting, ConnectedLine(client)}));
}

TEST_F(SocketInterface, CloseByCommandWakesABlockedAccept) {
  Start();
  ASSERT_TRUE(WaitUntilBlockedInAccept());
  m_worker->CloseByCommand();
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT client = ConnectAndGreet();
  EXPECT_EQ(Log(), (std::vector<std::string>{"[INF] CAE interface listening on port 0", kWaiting,
                                             kByCommand, "[INF] CAE interface listening on port 0",
                                             kWaiting, ConnectedLine(client)}));
}

TEST_F(SocketInterface, ConnectionThatIsAcceptedDuringCloseByCommandEnds) {
  Start();
  ASSERT_TRUE(WaitUntilBlockedInAccept());
  unit::GATE accepted;
  socketCalls.accept.HoldAt(&accepted);
  TCP_CLIENT client = Connect();
  // The call that is under way looks at the gate on its return.
  ASSERT_TRUE(accepted.WaitUntilReached());
  m_worker->CloseByCommand();
  socketCalls.accept.HoldAt(nullptr);
  accepted.Open();
  EXPECT_TRUE(client.IsClosed());
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(Count(kByCommand), 1);
  EXPECT_EQ(Count(kByClient), 0);
  TCP_CLIENT next = ConnectAndGreet();
  EXPECT_TRUE(next.ReceivesNothing());
}

TEST_F(SocketInterface, CloseByCommandWakesABlockedSend) {
  Start();
  TCP_CLIENT client = ConnectAndGreet(true);
  ASSERT_TRUE(BlockInSend(client));
  m_worker->CloseByCommand();
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(Count(kByCommand), 1);
  EXPECT_EQ(Count(kByClient), 0);
  EXPECT_EQ(Count("[ERR] socket write error on CAE interface"), 1);
  TCP_CLIENT next = ConnectAndGreet();
  EXPECT_TRUE(next.ReceivesNothing());
}

TEST_F(SocketInterface, CloseByCommandOfAClosedConnectionIsToldAndWaitedForAnew) {
  m_pauses.Hold(2);
  TCP_CLIENT client = StartWithClient();
  m_worker->CloseByCommand();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(2));
  m_worker->CloseByCommand();
  EXPECT_EQ(m_worker->State(), kClosed);
  EXPECT_EQ(Count(kByCommand), 2);
  m_pauses.Release(2);
  ASSERT_TRUE(WaitUntilListening(2));
  ASSERT_TRUE(WaitUntil([&] { return m_pauses.CountBegun(3) == 2; }));
  EXPECT_EQ(m_pauses.Begun(), (std::vector<int>{3, 2, 2, 2, 3}));
  TCP_CLIENT next = ConnectAndGreet();
}

TEST_F(SocketInterface, CloseByCommandAfterTheClientsCloseIsTold) {
  TCP_CLIENT client = StartWithClient();
  m_pauses.Hold(2);
  client.Close();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(2));
  m_worker->CloseByCommand();
  EXPECT_EQ(m_worker->State(), kClosed);
  EXPECT_EQ(Count(kByClient), 1);
  EXPECT_EQ(Count(kByCommand), 1);
  m_pauses.Release(2);
}

TEST_F(SocketInterface, CloseByCommandBeforeTheWorkerReadsTheClientsCloseLogsOneClose) {
  TCP_CLIENT client = StartWithClient();
  for (CALL* const call : {&socketCalls.select, &socketCalls.recv}) {
    unit::GATE gate;
    call->HoldAt(&gate);
    client.Close();
    ASSERT_TRUE(gate.WaitUntilReached());
    m_worker->CloseByCommand();
    call->HoldAt(nullptr);
    gate.Open();
    ASSERT_TRUE(m_log.WaitForLine(kWaiting, call == &socketCalls.select ? 2 : 3));
    client = ConnectAndGreet();
  }
  EXPECT_EQ(Count(kByClient), 0);
  EXPECT_EQ(Count(kByCommand), 2);
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, CloseByCommandAndTheClientsCloseAtTheSameTimeLeaveAWorkingInterface) {
  constexpr int kRounds = 30;
  Start();
  for (int round = 1; round <= kRounds; ++round) {
    ASSERT_TRUE(WaitUntilListening(round));
    TCP_CLIENT client = Connect();
    client.ReadUntil(kCaeGreeting);
    std::thread closer([&] { client.Close(); });
    m_worker->CloseByCommand();
    closer.join();
    EXPECT_EQ(Count(kByCommand), round);
  }
  ASSERT_TRUE(WaitUntilListening(kRounds + 1));
  EXPECT_LE(Count(kByClient), kRounds);
}

TEST_F(SocketInterface, CloseByCommandOfAMessageEndsTheConnectionThatItCameOver) {
  TCP_CLIENT client = StartWithClient();
  const VOQUEUE::NUMBER number = m_input.NextToCome();
  client.SendAndWaitUntilRead("EXIT\r\n");
  EXPECT_EQ(NextInput(), "EXIT\r\n");
  EXPECT_FALSE(m_worker->IsLeftBehind(number));
  m_worker->CloseByCommandOf(number);
  EXPECT_TRUE(client.IsClosed());
  EXPECT_EQ(Count(kByCommand), 1);
  // Another of that client, read before the close, would end it again.
  EXPECT_TRUE(m_worker->IsLeftBehind(number));
}

TEST_F(SocketInterface,
       CloseByCommandOfAMessageIsToldWhenItsClientHasLeftAndNobodyElseCanHaveCome) {
  m_pauses.Hold(2);
  TCP_CLIENT client = StartWithClient();
  const VOQUEUE::NUMBER number = m_input.NextToCome();
  client.Send("EXIT\r\n");
  client.Close();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(2));
  EXPECT_FALSE(m_worker->IsLeftBehind(number));
  m_worker->CloseByCommandOf(number);
  EXPECT_EQ(Count(kByClient), 1);
  EXPECT_EQ(Count(kByCommand), 1);
  m_pauses.Release(2);
}

TEST_F(SocketInterface, CloseByCommandOfAMessageWhoseClientHasLeftEndsNobodyElsesConnection) {
  TCP_CLIENT client = StartWithClient();
  const VOQUEUE::NUMBER number = m_input.NextToCome();
  client.SendAndWaitUntilRead("EXIT\r\n");
  client.Close();
  m_pauses.Hold(3);
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_TRUE(m_worker->IsLeftBehind(number));
  m_worker->CloseByCommandOf(number);  // while somebody may be in the backlog
  m_pauses.Release(3);
  TCP_CLIENT next = ConnectAndGreet();
  m_worker->CloseByCommandOf(number);
  EXPECT_EQ(Count(kByCommand), 0);
  Send("served");
  EXPECT_TRUE(next.Receives("served\r"));
  next.Send("HELP\r\n");
  EXPECT_EQ(NextInput(), "EXIT\r\n");
  const VOQUEUE::NUMBER own = m_input.NextToGo();
  EXPECT_EQ(NextInput(), "HELP\r\n");
  EXPECT_FALSE(m_worker->IsLeftBehind(own));
}

TEST_F(SocketInterface, CloseByCommandAtAnyMomentLeavesAWorkingInterface) {
  constexpr int kRounds = 100;
  Start();
  TCP_CLIENT client = ConnectAndGreet();
  for (int round = 0; round < kRounds; ++round) {
    m_worker->CloseByCommand();
    std::this_thread::sleep_for(std::chrono::microseconds(round * 37 % 3000));
  }
  client.Close();
  EXPECT_EQ(Count(kByCommand), kRounds);
  ASSERT_TRUE(WaitUntil([&] { return m_worker->State() == kAccepting; }));
  TCP_CLIENT next = Connect();
  EXPECT_EQ(next.ReadUntil(kCaeGreeting), kCaeGreeting);
}

// --- again and again --------------------------------------------------------------------------

TEST_F(SocketInterface, WaitsTwoPausesAfterEachOfManyClosesBeforeItListens) {
  constexpr int kRounds = 5;
  Start();
  std::vector<int> expected = {3};
  for (int round = 1; round <= kRounds; ++round) {
    ASSERT_TRUE(WaitUntilListening(round));
    TCP_CLIENT client = ConnectAndGreet();
    if (round % 2 == 0) {
      m_worker->CloseByCommand();
    }
    client.Close();
    ASSERT_TRUE(WaitUntil([&] { return m_pauses.CountBegun(3) == round + 1; }));
    expected.insert(expected.end(), {2, 2, 3});
    ASSERT_EQ(m_pauses.Begun(), expected) << "close " << round;
  }
  EXPECT_EQ(Count(kByClient) + Count(kByCommand), kRounds);
}

TEST_F(SocketInterface, RefusesClientsAndClosesItsListenerBeforeItClosesTheClientItHad) {
  const RESERVED_PORT reserved;
  Start("CAE", reserved.Port());
  TCP_CLIENT client = ConnectAndGreet();
  unit::GATE first;
  unit::GATE second;
  socketCalls.close.HoldAt(&first);
  client.CloseSending();
  ASSERT_TRUE(first.WaitUntilReached());
  // Who connected now would be left half open.
  EXPECT_TRUE(TCP_CLIENT::IsRefused(reserved.Port()));
  socketCalls.close.HoldAt(&second);
  first.Open();
  ASSERT_TRUE(second.WaitUntilReached());
  EXPECT_FALSE(client.IsClosed(kSilence));
  socketCalls.close.HoldAt(nullptr);
  second.Open();
  EXPECT_TRUE(client.IsClosed());
}

TEST_F(SocketInterface, ConnectionThatIsAboutToBeServedEndsByCloseByCommand) {
  Start();
  unit::GATE accepted;
  socketCalls.noDelay.HoldAt(&accepted);
  TCP_CLIENT client = Connect();
  ASSERT_TRUE(accepted.WaitUntilReached());
  m_worker->CloseByCommand();
  socketCalls.noDelay.HoldAt(nullptr);
  accepted.Open();
  EXPECT_TRUE(client.IsClosed());
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(Count(kByCommand), 1);
  TCP_CLIENT next = ConnectAndGreet();
  EXPECT_TRUE(next.ReceivesNothing());
}

}  // namespace vorn
