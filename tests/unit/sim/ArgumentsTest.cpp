#include "sim/tool/Arguments.h"
#include "sim/tool/LineBuffer.h"
#include "sim/tool/WakeQueue.h"

#include <gtest/gtest.h>
#include <poll.h>

namespace sim {
namespace {

using namespace std::chrono_literals;
using WORDS = std::vector<std::string>;

TEST(Arguments, SplitAtBlanksAndKeepQuotedWordsWhole) {
  EXPECT_EQ(SplitWords("press 3.6\t3.7\r"), (WORDS{"press", "3.6", "3.7"}));
  EXPECT_EQ(SplitWords("name 3 \"my keys\""), (WORDS{"name", "3", "my keys"}));
  EXPECT_EQ(SplitWords("name 3 \"\""), (WORDS{"name", "3", ""}));
  EXPECT_TRUE(SplitWords("  ").empty());
  EXPECT_THROW(SplitWords("name 3 \"my keys"), ARGUMENT_ERROR);
}

TEST(Arguments, AreReadWholeOrNotAtAll) {
  EXPECT_EQ(ReadAddress("0"), 0);
  EXPECT_EQ(ReadAddress("f"), 15);
  EXPECT_EQ(ReadPlace("E.12").address, 14);
  EXPECT_EQ(ReadPlace("E.12").channel, "12");
  EXPECT_EQ(ReadNumber("-12", "n"), -12);
  EXPECT_EQ(ReadNumber("+12", "n"), 12);
  EXPECT_EQ(ReadHexByte("7", "v"), 7);
  EXPECT_EQ(ReadHexByte("fB", "v"), 0xFB);
  EXPECT_EQ(ReadHexBytes("01 30AA"), (Bytes{0x01, 0x30, 0xAA}));
  EXPECT_EQ(ReadSeconds("1.25"), 1250ms);
  EXPECT_EQ(ReadMilliseconds("0.5"), 500us);
  EXPECT_EQ(ReadCardType("servo"), 5);
  EXPECT_EQ(ReadCardType("2A"), 0x2A);
  const struct {
    void (*read)(const std::string& word);
    WORDS wrong;
  } kReaders[] = {
      {[](const std::string& word) { ReadAddress(word); }, {"", "10", "G", "-1"}},
      {[](const std::string& word) { ReadPlace(word); }, {"", "3", "3.", ".6", "33.6"}},
      {[](const std::string& word) { ReadNumber(word, "n"); },
       {"", "+", "1x", "99999999999", "0x10", "1.5"}},
      {[](const std::string& word) { ReadHexByte(word, "v"); }, {"", "100", "0x1", "-1", "GG"}},
      {[](const std::string& word) { ReadHexBytes(word); }, {"", "0"}},
      {[](const std::string& word) { ReadSeconds(word); },
       {"", "-1", "soon", "inf", "nan", "1e9", "1s"}},
      {[](const std::string& word) { ReadCardType(word); }, {"", "0", "00", "bogus", "100"}},
  };
  for (const auto& reader : kReaders) {
    for (const std::string& word : reader.wrong) {
      EXPECT_THROW(reader.read(word), ARGUMENT_ERROR) << word;
    }
  }
}

TEST(LineBuffer, JoinsPiecesAndCutsLines) {
  LINE_BUFFER buffer;
  EXPECT_TRUE(buffer.Feed("pre").empty());
  const auto lines = buffer.Feed("ss 3.6\nhelp\nlis");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].text, "press 3.6");
  EXPECT_EQ(lines[1].text, "help");
  ASSERT_EQ(buffer.Finish().size(), 1U);
  EXPECT_TRUE(buffer.Finish().empty());
}

TEST(LineBuffer, ReportsALineThatIsTooLongOnceAndGoesOnBehindIt) {
  LINE_BUFFER buffer;
  int tooLong = 0;
  for (int i = 0; i < 1000; ++i) {
    for (const auto& line : buffer.Feed(std::string(1000, 'x'))) {
      tooLong += line.tooLong ? 1 : 0;
    }
  }
  EXPECT_EQ(tooLong, 1);
  const auto lines = buffer.Feed("x\nhelp\n");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "help");
}

TEST(LineBuffer, TakesALineOfExactlyTheLimit) {
  LINE_BUFFER buffer;
  const std::string longest(LINE_BUFFER::kMaximumLine, 'x');
  const auto lines = buffer.Feed(longest + "\n" + longest + "x\n");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].text, longest);
  EXPECT_TRUE(lines[1].tooLong);
}

TEST(WakeQueue, IsReadableWhileSomethingWaits) {
  WAKE_QUEUE<int> queue;
  pollfd watched{queue.Descriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&watched, 1, 0), 0);
  queue.Push(1);
  queue.Push(2);
  EXPECT_EQ(poll(&watched, 1, 0), 1);
  EXPECT_EQ(queue.Take(), (std::vector<int>{1, 2}));
  EXPECT_EQ(poll(&watched, 1, 0), 0);
  EXPECT_TRUE(queue.Take().empty());
}

TEST(WakeQueue, CountsWhatItCannotHold) {
  WAKE_QUEUE<int> queue;
  for (std::size_t i = 0; i < WAKE_QUEUE<int>::kCapacity + 5; ++i) {
    queue.Push(0);
  }
  EXPECT_EQ(queue.Take().size(), WAKE_QUEUE<int>::kCapacity);
  EXPECT_EQ(queue.TakeLost(), 5U);
  EXPECT_EQ(queue.TakeLost(), 0U);
}

}  // namespace
}  // namespace sim
