#include "tests/support/ListeningPorts.h"
#include "tests/support/Text.h"
#include "tests/unit/tcp/SocketFixture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <numeric>
#include <string>
#include <vector>

namespace vorn {

using support::TCP_CLIENT;
using support::WaitUntil;

TEST_F(SocketInterface, AppendsOneCarriageReturnToAMessage) {
  TCP_CLIENT client = StartWithClient();
  Send("OK");
  EXPECT_TRUE(client.Receives("OK\r"));
  Send("a3b0d40\r\n");
  EXPECT_TRUE(client.Receives("a3b0d40\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, WritesMessagesInTheirOrder) {
  TCP_CLIENT client = StartWithClient();
  std::string expected;
  for (int i = 0; i < 50; ++i) {
    Send(std::to_string(i));
    expected += std::to_string(i) + "\r";
  }
  EXPECT_TRUE(client.Receives(expected));
}

TEST_F(SocketInterface, WritesOneMessagePerPass) {
  TCP_CLIENT client = StartWithClient();
  unit::GATE gate;
  socketCalls.select.HoldAt(&gate);
  Send("first");
  ASSERT_TRUE(gate.WaitUntilReached());
  Send("second");
  unit::GATE next;
  socketCalls.select.HoldAt(&next);
  gate.Open();
  ASSERT_TRUE(next.WaitUntilReached());
  EXPECT_EQ(m_worker->OutputQueue().Size(), 1U);
  EXPECT_TRUE(client.Receives("first\r"));
  socketCalls.select.HoldAt(nullptr);
  next.Open();
  EXPECT_TRUE(client.Receives("second\r"));
}

TEST_F(SocketInterface, WritesAMessageOf255BytesInOneWrite) {
  TCP_CLIENT client = StartWithClient();
  const std::size_t before = socketCalls.SendSizes().size();
  Send(std::string(255, 'x'));
  EXPECT_TRUE(client.Receives(std::string(255, 'x') + "\r"));
  const std::vector<std::size_t> sizes = socketCalls.SendSizes();
  EXPECT_EQ(
      std::vector<std::size_t>(sizes.begin() + static_cast<std::ptrdiff_t>(before), sizes.end()),
      (std::vector<std::size_t>{256}));
}

TEST_F(SocketInterface, WritesALongMessageWholeWithOneCarriageReturn) {
  TCP_CLIENT client = StartWithClient();
  for (const std::size_t length : {256U, 300U, 512U, 10'000U}) {
    Send(std::string(length, 'x'));
    EXPECT_TRUE(client.Receives(std::string(length, 'x') + "\r")) << length;
  }
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, WritesOnlyACarriageReturnForAnEmptyMessage) {
  TCP_CLIENT client = StartWithClient();
  Send("");
  EXPECT_TRUE(client.Receives("\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, WritesAnyByte) {
  TCP_CLIENT client = StartWithClient();
  const std::string bytes("\0\xFF\x80%s\n\r", 7);
  Send(bytes);
  EXPECT_TRUE(client.Receives(bytes + "\r"));
}

TEST_F(SocketInterface, WritesALengthByteInBinaryMode) {
  TCP_CLIENT client = StartWithClient();
  m_worker->SetTransferMode(kBinaryMode);
  Send("OK");
  EXPECT_TRUE(client.Receives("\x02OK"));
  Send("");
  EXPECT_TRUE(client.Receives(std::string(1, '\0')));
  Send(std::string(255, 'x'));
  EXPECT_TRUE(client.Receives("\xFF" + std::string(255, 'x')));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, SplitsAMessageThatItsLengthByteCannotHold) {
  TCP_CLIENT client = StartWithClient();
  m_worker->SetTransferMode(kBinaryMode);
  Send(std::string(300, 'x'));
  EXPECT_TRUE(client.Receives("\xFF" + std::string(255, 'x') + "\x2D" + std::string(45, 'x')));
  Send(std::string(256, 'y'));
  EXPECT_TRUE(client.Receives("\xFF" + std::string(255, 'y') + "\x01y"));
}

TEST_F(SocketInterface, CompletesShortWrites) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.sendLimit = 7;
  Send(std::string(300, 'x') + "end");
  EXPECT_TRUE(client.Receives(std::string(300, 'x') + "end\r"));
}

TEST_F(SocketInterface, CompletesInterruptedWrites) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.sendLimit = 100;
  socketCalls.send.Fail(EINTR, 3, 1);
  Send(std::string(300, 'x'));
  EXPECT_TRUE(client.Receives(std::string(300, 'x') + "\r"));
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

TEST_F(SocketInterface, KeepsMessagesForTheNextClientAheadOfItsGreeting) {
  Make();
  Send("first");
  Send("second");
  ASSERT_TRUE(m_worker->Init());
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.Receives("first\rsecond\r" + std::string(kCaeGreeting)));
}

TEST_F(SocketInterface, DropsTheMessageOfAFailedWriteAndGoesOn) {
  TCP_CLIENT client = StartWithClient();
  for (const int error : {EPIPE, EAGAIN}) {
    socketCalls.send.Fail(error);
    Send("lost");
    Send("kept");
    EXPECT_TRUE(client.Receives("kept\r"));
  }
  EXPECT_EQ(Count("[ERR] socket write error on CAE interface"), 2);
  EXPECT_TRUE(m_worker->IsConnected());
}

TEST_F(SocketInterface, EndsAConnectionWhoseMessageIsTorn) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.send.Fail(EAGAIN, 1, 1);
  Send(std::string(300, 'x'));
  EXPECT_EQ(client.ReadToEnd(), std::string(256, 'x'));
  ASSERT_TRUE(WaitUntilListening(2));
  const std::vector<std::string> log = Log();
  EXPECT_EQ(std::vector<std::string>(log.begin() + 3, log.begin() + 5),
            (std::vector<std::string>{"[ERR] socket write error on CAE interface",
                                      "[INF] connection is closed by client on CAE interface"}));
}

TEST_F(SocketInterface, WritesNothingOfATornMessageToTheNextClient) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.send.Fail(EAGAIN, 1, 1);
  Send(std::string(300, 'x'));
  Send("next");
  client.ReadToEnd();
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT other = Connect();
  EXPECT_TRUE(other.Receives("next\r" + std::string(kCaeGreeting)));
  EXPECT_TRUE(other.ReceivesNothing());
  Send("served");
  EXPECT_TRUE(other.Receives("served\r"));
  EXPECT_EQ(Count("[INF] connection is closed by client on CAE interface"), 1);
}

TEST_F(SocketInterface, WritesNothingToTheNextClientTwice) {
  TCP_CLIENT client = StartWithClient();
  for (int i = 0; i < 20; ++i) {
    Send(std::to_string(i) + ".");
  }
  client.Reset();
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT other = Connect();
  const std::string received = other.ReadUntil(kCaeGreeting);
  // What had not been written yet, in order and once, then one greeting.
  const std::size_t greeting = received.find("VORN");
  ASSERT_NE(greeting, std::string::npos);
  EXPECT_EQ(received.substr(greeting), kCaeGreeting);
  std::string all;
  for (int i = 0; i < 20; ++i) {
    all += std::to_string(i) + ".\r";
  }
  const std::string rest = received.substr(0, greeting);
  EXPECT_TRUE(rest.empty() || all.ends_with(rest)) << support::Visible(rest);
  EXPECT_TRUE(other.ReceivesNothing());
}

TEST_F(SocketInterface, SurvivesAClientThatVanished) {
  for (int round = 1; round <= 5; ++round) {
    if (round == 1) {
      Start();
    }
    ASSERT_TRUE(WaitUntilListening(round));
    TCP_CLIENT client = Connect();
    client.ReadUntil(kCaeGreeting);
    for (int i = 0; i < 5; ++i) {
      Send("x");
    }
    client.Reset();
  }
  ASSERT_TRUE(WaitUntilListening(6));
  while (!m_worker->OutputQueue().IsEmpty()) {
    m_worker->OutputQueue().DeQueue();
  }
  TCP_CLIENT client = ConnectAndGreet();
}

TEST_F(SocketInterface, LosesOneMessageToAResetHoweverMuchOfTheClientsIsStillUnread) {
  TCP_CLIENT client = StartWithClient();
  unit::GATE gate;
  socketCalls.select.HoldAt(&gate);
  std::string expected;
  for (int i = 0; i < 40; ++i) {
    Send(std::to_string(i) + ".");
    expected += i == 0 ? "" : std::to_string(i) + ".\r";
  }
  ASSERT_TRUE(gate.WaitUntilReached());
  // Ten reads of it, at least.
  const std::string commands(2550, 'x');
  client.Send(commands);
  ASSERT_TRUE(WaitUntil([&] { return support::UnreadBytes(Port(), client.LocalPort()) == 2550; }));
  client.Reset();
  // It has come when the kernel knows the connection no more.
  ASSERT_TRUE(WaitUntil([&] { return support::UnreadBytes(Port(), client.LocalPort()) == -1; }));
  socketCalls.select.HoldAt(nullptr);
  gate.Open();
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(m_log.LinesWith("[ERR]"),
            (std::vector<std::string>{"[ERR] socket write error on CAE interface"}));
  std::string read;
  while (read.size() < commands.size()) {
    read += NextInput();
  }
  EXPECT_EQ(read, commands);
  TCP_CLIENT other = Connect();
  EXPECT_TRUE(other.Receives(expected + kCaeGreeting));
}

TEST_F(SocketInterface, LosesTheMessageOfThePassInWhichTheClientLeft) {
  TCP_CLIENT client = StartWithClient();
  unit::GATE gate;
  socketCalls.select.HoldAt(&gate);
  client.Close();
  ASSERT_TRUE(gate.WaitUntilReached());
  Send("lost");
  Send("kept");
  socketCalls.select.HoldAt(nullptr);
  gate.Open();
  ASSERT_TRUE(WaitUntilListening(2));
  EXPECT_EQ(m_log.LinesWith("[ERR]"),
            (std::vector<std::string>{"[ERR] socket write error on CAE interface"}));
  TCP_CLIENT next = Connect();
  EXPECT_TRUE(next.Receives("kept\r" + std::string(kCaeGreeting)));
}

TEST_F(SocketInterface, GoesOnWithAReaderThatPauses) {
  Start();
  TCP_CLIENT client = ConnectAndGreet(true);
  ASSERT_TRUE(BlockInSend(client));
  Send("after");
  EXPECT_TRUE(client.Receives(std::string(kBlockingSize, 'x') + "\rafter\r"));
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
}

}  // namespace vorn
