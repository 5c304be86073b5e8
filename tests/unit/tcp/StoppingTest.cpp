#include "tests/unit/tcp/SocketFixture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

namespace vorn {

using support::TCP_CLIENT;
using support::WaitUntil;

// The end of each of these tests destroys the worker in the state that it names; a destructor that
// does not return is seen by the limit of the test's time.

TEST_F(SocketInterface, IsDestroyedBeforeInit) {
  Make();
  m_worker.reset();
  EXPECT_TRUE(Log().empty());
}

TEST_F(SocketInterface, IsDestroyedRightAfterInit) {
  constexpr int kRounds = 20;
  const RESERVED_PORT reserved;
  for (int round = 0; round < kRounds; ++round) {
    Start("CAE", reserved.Port());
    m_worker.reset();
    ASSERT_TRUE(TCP_CLIENT::IsRefused(reserved.Port()));
  }
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, IsDestroyedInThePauseBeforeAccept) {
  m_pauses.Hold(3);
  Start();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(3));
  TCP_CLIENT client = Connect();
  DestroyInHeldPause(3);
  EXPECT_TRUE(client.IsClosed());
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, IsDestroyedWhileBlockedInAccept) {
  const RESERVED_PORT reserved;
  Start("CAE", reserved.Port());
  ASSERT_TRUE(WaitUntilBlockedInAccept());
  m_worker.reset();
  EXPECT_TRUE(TCP_CLIENT::IsRefused(reserved.Port()));
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, IsDestroyedWithAClient) {
  TCP_CLIENT client = StartWithClient();
  m_worker.reset();
  EXPECT_TRUE(client.IsClosed());
}

TEST_F(SocketInterface, IsDestroyedWhileBlockedInSend) {
  Start();
  TCP_CLIENT client = ConnectAndGreet(true);
  ASSERT_TRUE(BlockInSend(client));
  m_worker.reset();
  const std::string rest = client.ReadToEnd();
  EXPECT_LT(rest.size(), kBlockingSize);
}

TEST_F(SocketInterface, IsDestroyedInThePauseAfterAClose) {
  m_pauses.Hold(2);
  TCP_CLIENT client = StartWithClient();
  client.Close();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(2));
  DestroyInHeldPause(2);
  EXPECT_EQ(m_log.LinesWith("listening").size(), 1U);
}

TEST_F(SocketInterface, IsDestroyedWhileItCannotListen) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.socket.Fail(EMFILE, 1'000'000);
  client.Close();
  ASSERT_TRUE(m_log.WaitForLine("[ERR] couldn't open socket forCAE interface", 2));
  m_worker.reset();
}

TEST_F(SocketInterface, IsDestroyedWhenParked) {
  Make("DMI");
  ASSERT_TRUE(m_log.WaitForLine("[INF] On task DMI interface"));
  m_worker.reset();
  EXPECT_EQ(Log().size(), 1U);
}

TEST_F(SocketInterface, IsDestroyedRightAfterCloseByCommand) {
  TCP_CLIENT client = StartWithClient();
  m_worker->CloseByCommand();
  m_worker.reset();
  EXPECT_TRUE(client.IsClosed());
}

TEST_F(SocketInterface, IsDestroyedWithMessagesWaiting) {
  Make();
  Send("left");
  m_worker.reset();  // a leak is for the sanitizer to see
  EXPECT_EQ(m_worker, nullptr);
}

TEST_F(SocketInterface, TerminateEndsTheThreadAndLeavesTheObject) {
  TCP_CLIENT client = StartWithClient();
  m_worker->Terminate();
  EXPECT_TRUE(client.IsClosed());
  m_worker->Terminate();
  m_worker->mf_SIGhandler(15);
  m_worker->CloseByCommand();
  Send("waits");
  EXPECT_EQ(m_worker->OutputQueue().Size(), 1U);
  EXPECT_EQ(Count("[INF] signal 15 on CAE interface"), 1);
}

TEST_F(SocketInterface, EndsFromItsRestByStopAndByRequestStop) {
  TCP_CLIENT client = StartWithClient();
  m_worker->Stop();
  EXPECT_EQ(m_worker->ThreadState(), kThreadDown);
  Make();
  m_worker->RequestStop();
  EXPECT_TRUE(WaitUntil([&] { return m_worker->ThreadState() == kThreadDown; }));
}

TEST_F(SocketInterface, TouchesItsInputQueueNoMoreAfterTerminate) {
  Make();
  auto input = std::make_unique<VOQUEUE>();
  INTERFACE_DESCRIPTOR descriptor;
  descriptor.name = "CAE";
  descriptor.threadDelayUs = 0;
  auto worker = std::make_unique<SOCKET_INTERFACE>(descriptor, LOGGER(), *input, m_pauses);
  ASSERT_TRUE(worker->Init());
  TCP_CLIENT client(worker->BoundPort());
  client.ReadUntil(kCaeGreeting);
  client.Send("some");
  worker->Terminate();
  input.reset();
  client.TrySend("more");
  worker.reset();
}

TEST_F(SocketInterface, ListensNoMoreWhenItIsToEndAfterItsPauseInTheClosedState) {
  TCP_CLIENT client = StartWithClient();
  unit::GATE gate;
  socketCalls.socket.Fail(EMFILE);
  socketCalls.socket.HoldAt(&gate);
  client.Close();
  ASSERT_TRUE(gate.WaitUntilReached());
  // The next pause is one that ends in another try.
  m_pauses.Hold(2);
  socketCalls.socket.HoldAt(nullptr);
  gate.Open();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(2, 3));
  m_worker->RequestStop();
  m_pauses.Release(2);
  m_worker.reset();
  EXPECT_EQ(m_log.LinesWith("listening").size(), 1U);
}

}  // namespace vorn
