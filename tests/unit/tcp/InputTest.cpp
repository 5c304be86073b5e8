#include "tests/unit/tcp/SocketFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

namespace vorn {

using support::kSilence;
using support::milliseconds;
using support::TCP_CLIENT;
using support::WaitUntil;

namespace {

// Of messages of seven bytes, eight as a queue counts them.
constexpr std::size_t kWaitingThatHoldBack = 4 * 1024 / 8;
constexpr std::size_t kWaitingThatCut = 24 * 1024 / 8;

}  // namespace

TEST_F(SocketInterface, MakesOneMessageOfALineInOnePacket) {
  TCP_CLIENT client = StartWithClient();
  client.Send("HELP\r\n");
  EXPECT_EQ(NextInput(), "HELP\r\n");
  EXPECT_TRUE(m_input.IsEmpty());
}

TEST_F(SocketInterface, MakesOneMessageOfTwoLinesInOnePacket) {
  TCP_CLIENT client = StartWithClient();
  client.Send("HELP\r\nVERSION\r\n");
  EXPECT_EQ(NextInput(), "HELP\r\nVERSION\r\n");
  EXPECT_TRUE(m_input.IsEmpty());
}

TEST_F(SocketInterface, MakesAMessageOfEachReadWithoutAssemblingLines) {
  TCP_CLIENT client = StartWithClient();
  client.SendAndWaitUntilRead("HE");
  client.SendAndWaitUntilRead("LP\r");
  client.SendAndWaitUntilRead("\n");
  EXPECT_EQ(NextInput(), "HE");
  EXPECT_EQ(NextInput(), "LP\r");
  EXPECT_EQ(NextInput(), "\n");
}

TEST_F(SocketInterface, ReadsAtMost255BytesAtOnce) {
  TCP_CLIENT client = StartWithClient();
  SendToBeReadTogether(client, std::string(255, 'a') + std::string(255, 'b') + "c");
  EXPECT_EQ(NextInput(), std::string(255, 'a'));
  EXPECT_EQ(NextInput(), std::string(255, 'b'));
  EXPECT_EQ(NextInput(), "c");
}

TEST_F(SocketInterface, EndsAFullReadBehindTheLastLineInIt) {
  struct VECTOR {
    std::string sent;
    std::vector<std::string> messages;
  };
  const std::string line = "a5b1dFB\r\n";  // nine bytes
  std::string lines;
  for (int i = 0; i < 30; ++i) {
    lines += line;
  }
  const std::string whole = lines.substr(0, 28 * 9);
  const std::vector<VECTOR> vectors = {
      {lines, {whole, lines.substr(28 * 9)}},
      // one byte short of full: it stays as it came
      {lines.substr(0, 254), {lines.substr(0, 254)}},
      {lines.substr(0, 255), {whole, lines.substr(28 * 9, 3)}},
      // the separator is the last of the 255, or begins with the last, or there is none
      {std::string(253, 'x') + "\r\n" + line, {std::string(253, 'x') + "\r\n", line}},
      {std::string(254, 'x') + "\r\n" + line, {std::string(254, 'x') + "\r", "\n" + line}},
      {std::string(300, 'x') + "\r\n", {std::string(255, 'x'), std::string(45, 'x') + "\r\n"}},
      {"\r\n" + std::string(300, 'x'), {"\r\n", std::string(255, 'x'), std::string(45, 'x')}},
  };
  TCP_CLIENT client = StartWithClient();
  for (const VECTOR& vector : vectors) {
    SendToBeReadTogether(client, vector.sent);
    for (const std::string& message : vector.messages) {
      EXPECT_EQ(NextInput(), message);
    }
  }
}

TEST_F(SocketInterface, WaitsForTheRestOfALineThatAStreamIsCutIn) {
  TCP_CLIENT client = StartWithClient();
  m_pauses.StopClock();  // the rest comes in time
  const std::string full = std::string(253, 'x') + "\r\n";
  SendToBeReadTogether(client, full + "a5b1");
  EXPECT_EQ(NextInput(), full);
  EXPECT_TRUE(WaitUntil([&] { return client.IsAllRead(); }));
  // A message in each pass: the second finds nothing to read.
  Send("two");
  Send("passes");
  EXPECT_TRUE(client.Receives("two\rpasses\r"));
  client.SendAndWaitUntilRead("dFB\r\n");
  EXPECT_EQ(NextInput(), "a5b1dFB\r\n");
  // Whole lines are taken at once, and kept apart.
  client.SendAndWaitUntilRead("EXIT\r\n");
  EXPECT_EQ(NextInput(), "EXIT\r\n");
}

TEST_F(SocketInterface, TakesHalfALineOfAStreamAsItIsWhenNothingFollowsOrTheClientLeaves) {
  TCP_CLIENT client = StartWithClient();
  const std::string full = std::string(253, 'x') + "\r\n";
  for (const bool leaves : {false, true}) {
    SendToBeReadTogether(client, full + "line\r\nhalf");
    if (leaves) {
      client.Close();
    }
    EXPECT_EQ(NextInput(), full);
    EXPECT_EQ(NextInput(), "line\r\nhalf");
  }
}

TEST_F(SocketInterface, FindsTheSeparatorsOfAFullReadFromItsFrontAsLinesAreCut) {
  m_separator = "aa";
  TCP_CLIENT client = StartWithClient();
  // The third "a" begins the next line.
  const std::string sent = std::string(100, 'x') + "aaa" + std::string(200, 'y');
  SendToBeReadTogether(client, sent);
  EXPECT_EQ(NextInput(), sent.substr(0, 102));
  EXPECT_EQ(NextInput(), sent.substr(102));
}

TEST_F(SocketInterface, CutsNothingAtLinesWhereThereIsNoSeparatorOrInBinaryMode) {
  const std::string sent = "\xC8" + std::string(100, 'x') + "\r\n" + std::string(200, 'y');
  for (const bool binary : {false, true}) {
    m_separator = binary ? "\r\n" : "";
    TCP_CLIENT client = StartWithClient();
    m_worker->SetTransferMode(binary ? kBinaryMode : kTextMode);
    SendToBeReadTogether(client, sent);
    EXPECT_EQ(NextInput(), binary ? sent.substr(1, 200) : sent.substr(0, 255));
    EXPECT_EQ(NextInput(), binary ? sent.substr(256) : sent.substr(255));
    m_worker.reset();
  }
}

TEST_F(SocketInterface, CutsAPacketAtAZeroByte) {
  TCP_CLIENT client = StartWithClient();
  client.SendAndWaitUntilRead(std::string("HE\0LP", 5));
  client.SendAndWaitUntilRead("next");
  EXPECT_EQ(NextInput(), "HE");
  EXPECT_EQ(NextInput(), "next");
}

TEST_F(SocketInterface, MakesAnEmptyMessageOfAPacketThatBeginsWithAZeroByte) {
  TCP_CLIENT client = StartWithClient();
  client.SendAndWaitUntilRead(std::string("\0HELP", 5));
  EXPECT_EQ(NextInput(), "");
  EXPECT_TRUE(m_input.IsEmpty());
}

TEST_F(SocketInterface, TakesAnyOtherByte) {
  std::string all;
  for (int code = 1; code < 256; ++code) {
    all += static_cast<char>(code);
  }
  TCP_CLIENT client = StartWithClient();
  client.Send(all);
  EXPECT_EQ(NextInput(), all);
}

TEST_F(SocketInterface, TakesTheFirstByteAsLengthInBinaryMode) {
  TCP_CLIENT client = StartWithClient();
  m_worker->SetTransferMode(kBinaryMode);
  client.SendAndWaitUntilRead(
      "\x03"
      "ABCDE");
  EXPECT_EQ(NextInput(), "ABC");
  client.SendAndWaitUntilRead(std::string("\x03\0A\0", 4));
  EXPECT_EQ(NextInput(), std::string("\0A\0", 3));
  client.SendAndWaitUntilRead(std::string("\0A", 2));
  EXPECT_EQ(NextInput(), "");
  EXPECT_TRUE(m_input.IsEmpty());
}

TEST_F(SocketInterface, TakesNoMoreThanCameInBinaryMode) {
  TCP_CLIENT client = StartWithClient();
  m_worker->SetTransferMode(kBinaryMode);
  client.SendAndWaitUntilRead(
      "\xFF"
      "AB");
  EXPECT_EQ(NextInput(), "AB");
  client.SendAndWaitUntilRead("\x05");
  EXPECT_EQ(NextInput(), "");
}

TEST_F(SocketInterface, DiscardsWhatAMonClientSends) {
  TCP_CLIENT client = StartWithClient("MON");
  client.SendAndWaitUntilRead("ignored\r\n");
  client.SendAndWaitUntilRead(std::string(10'000, 'x'));
  EXPECT_TRUE(m_input.IsEmpty());
  Send("served");
  EXPECT_TRUE(client.Receives("served\r"));
}

TEST_F(SocketInterface, HoldsAClientBackWhileItsInputQueueIsLong) {
  for (std::size_t i = 0; i < kWaitingThatHoldBack; ++i) {
    m_input.ToQueue(Message("waiting"));
  }
  TCP_CLIENT client = StartWithClient();
  client.Send("later");
  EXPECT_FALSE(WaitUntil([&] { return m_input.Size() > kWaitingThatHoldBack; }, kSilence));
  Send("still written");
  EXPECT_TRUE(client.Receives("still written\r"));
  for (std::size_t i = 0; i < kWaitingThatHoldBack; ++i) {
    EXPECT_EQ(NextInput(), "waiting");
  }
  EXPECT_EQ(NextInput(), "later");
}

TEST_F(SocketInterface, MakesNoPassForAClientThatIsSilentOrHeldBack) {
  TCP_CLIENT client = StartWithClient();
  for (const bool isHeldBack : {false, true}) {
    SCOPED_TRACE(isHeldBack);
    if (isHeldBack) {
      for (std::size_t i = 0; i < kWaitingThatHoldBack; ++i) {
        m_input.ToQueue(Message("waiting"));
      }
      client.Send("later");
    }
    // Once the last look at what was written to it is over.
    EXPECT_TRUE(WaitUntil([&] {
      const int before = socketCalls.select.Begun();
      return !WaitUntil([&] { return socketCalls.select.Begun() > before; }, milliseconds(1100));
    }));
  }
}

TEST_F(SocketInterface, TakesHalfALineOfAStreamAsItIsAlsoWhereItsClientIsHeldBackMeanwhile) {
  TCP_CLIENT client = StartWithClient();
  m_pauses.StopClock();
  const std::string full = std::string(253, 'x') + "\r\n";
  SendToBeReadTogether(client, full + "half");
  EXPECT_EQ(NextInput(), full);
  EXPECT_TRUE(WaitUntil([&] { return client.IsAllRead(); }));
  for (std::size_t i = 0; i < kWaitingThatHoldBack; ++i) {
    m_input.ToQueue(Message("waiting"));
  }
  EXPECT_EQ(m_input.Size(), kWaitingThatHoldBack);
  m_pauses.RunClock();
  EXPECT_TRUE(WaitUntil([&] { return m_input.Size() > kWaitingThatHoldBack; }));
}

TEST_F(SocketInterface, EndsNoStreamInTheTimeInWhichItsClientIsHeldBack) {
  TCP_CLIENT client = StartWithClient();
  const std::string full = std::string(253, 'x') + "\r\n";
  for (std::size_t i = 0; i < kWaitingThatHoldBack - 1; ++i) {
    m_input.ToQueue(Message("waiting"));
  }
  SendToBeReadTogether(client, full + "half");
  client.Send(" a line\r\nand ha");
  EXPECT_FALSE(WaitUntil([&] { return m_input.Size() > kWaitingThatHoldBack; },
                         milliseconds(200) + kSilence));
  m_pauses.StopClock();  // what follows comes in time
  for (std::size_t i = 0; i < kWaitingThatHoldBack - 1; ++i) {
    EXPECT_EQ(NextInput(), "waiting");
  }
  EXPECT_EQ(NextInput(), full);
  EXPECT_TRUE(WaitUntil([&] { return client.IsAllRead(); }));
  client.Send("lf\r\n");
  EXPECT_EQ(NextInput(), "half a line\r\nand half\r\n");
}

TEST_F(SocketInterface, HoldsAnIoClientBackOnlyWhere40KibWait) {
  constexpr std::size_t kMessages = 40 * 1024 / 8;
  for (std::size_t i = 0; i < kMessages - 1; ++i) {
    m_input.ToQueue(Message("waiting"));
  }
  TCP_CLIENT client = StartWithClient("IO");
  client.SendAndWaitUntilRead("read at once");
  client.Send("later");
  EXPECT_FALSE(WaitUntil([&] { return m_input.Size() > kMessages; }, kSilence));
  for (std::size_t i = 0; i < kMessages - 1; ++i) {
    EXPECT_EQ(NextInput(), "waiting");
  }
  EXPECT_EQ(NextInput(), "read at once");
  EXPECT_EQ(NextInput(), "later");
}

TEST_F(SocketInterface, LosesNothingOfAFlood) {
  constexpr std::size_t kSize = 300'000;
  TCP_CLIENT client = StartWithClient();
  m_worker->SetThreadDelayUs(0);
  std::string flood;
  while (flood.size() < kSize) {
    flood += std::to_string(flood.size()) + "\r\n";
  }
  std::string received;
  std::size_t sent = 0;
  std::size_t longest = 0;
  EXPECT_TRUE(WaitUntil([&] {
    for (int i = 0; i < 1000; ++i) {
      if (sent < flood.size()) {
        sent += client.TrySend(flood.substr(sent, 4096));
      }
      longest = std::max(longest, m_input.Bytes());
      if (!m_input.IsEmpty()) {
        received += NextInput();
      }
    }
    return received.size() >= flood.size();
  }));
  EXPECT_EQ(received, flood);
  EXPECT_LT(longest, 4096U + 256);
}

TEST_F(SocketInterface, ReadsAClientThatLeavesToItsEndThoughItsInputQueueIsLong) {
  for (std::size_t i = 0; i < kWaitingThatHoldBack; ++i) {
    m_input.ToQueue(Message("waiting"));
  }
  TCP_CLIENT client = StartWithClient();
  client.Send("last words");
  client.Close();
  EXPECT_TRUE(m_log.WaitForLine("[INF] connection is closed by client on CAE interface"));
  for (std::size_t i = 0; i < kWaitingThatHoldBack; ++i) {
    EXPECT_EQ(NextInput(), "waiting");
  }
  EXPECT_EQ(NextInput(), "last words");
}

TEST_F(SocketInterface, LosesTheRestOfAClientThatLeftWhile24KibWaitAndSaysSo) {
  for (std::size_t i = 0; i < kWaitingThatCut; ++i) {
    m_input.ToQueue(Message("waiting"));
  }
  TCP_CLIENT client = StartWithClient();
  client.Send("last words");
  client.Close();
  EXPECT_TRUE(m_log.WaitForLine("[INF] connection is closed by client on CAE interface"));
  EXPECT_EQ(
      Count("[ERR] too many messages wait from CAE interface, the rest of its client's is lost"),
      1);
  EXPECT_EQ(m_input.Size(), kWaitingThatCut);
}

TEST_F(SocketInterface, IsNotDisturbedByAnInterruptedSelectOrRead) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.select.Fail(EINTR, 5);
  client.Send("first");
  EXPECT_EQ(NextInput(), "first");
  for (const int error : {EINTR, EAGAIN}) {
    socketCalls.recv.Fail(error, 3);
    client.Send("second");
    EXPECT_EQ(NextInput(), "second");
  }
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
  EXPECT_TRUE(m_worker->IsConnected());
}

TEST_F(SocketInterface, WritesButDoesNotReadWhenSelectFails) {
  TCP_CLIENT client = StartWithClient();
  unit::GATE gate;
  socketCalls.select.HoldAt(&gate);
  client.Send("read later");
  ASSERT_TRUE(gate.WaitUntilReached());
  Send("written now");
  unit::GATE next;
  socketCalls.select.Fail(ENOMEM);
  socketCalls.select.HoldAt(&next);
  gate.Open();
  EXPECT_TRUE(client.Receives("written now\r"));
  ASSERT_TRUE(next.WaitUntilReached());
  EXPECT_TRUE(m_input.IsEmpty());
  EXPECT_EQ(Log().back(), "[ERR] socket select error on CAE interface");
  socketCalls.select.HoldAt(nullptr);
  next.Open();
  EXPECT_EQ(NextInput(), "read later");
  EXPECT_TRUE(m_worker->IsConnected());
}

TEST_F(SocketInterface, TakesAFailedReadAsTheClientsClose) {
  TCP_CLIENT client = StartWithClient();
  socketCalls.recv.Fail(ETIMEDOUT);
  client.Send("x");
  EXPECT_TRUE(m_log.WaitForLine("[INF] connection is closed by client on CAE interface"));
  client.ReadToEnd();
  EXPECT_TRUE(WaitUntilListening(2));
}

}  // namespace vorn
