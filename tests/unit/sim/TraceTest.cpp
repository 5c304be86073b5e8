#include "sim/line/Trace.h"
#include "sim/rack/Describe.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

using namespace std::chrono_literals;

TEST(Trace, WritesTimeDirectionBytesAndMeaning) {
  EXPECT_EQ(TraceLine({12345us, DIRECTION::kRequest, {0x03, 0x40, 0x6F, 0x9A}}),
            "    0.012345 > 03 40 6F 9A                                     ; handshake");
  EXPECT_EQ(TraceLine({1s, DIRECTION::kAnswer, {0x04, 0x21, 0x03, 0x40, 0x00}}),
            "    1.000000 < 04 21 03 40 00                                  ; card 3 input 40 00");
}

TEST(Trace, ReadsWhatItWrote) {
  const std::vector<TRACE_ENTRY> entries{{12345us, DIRECTION::kRequest, {0x01, 0x30}},
                                         {12400us, DIRECTION::kAnswer, Bytes(256, 0xA5)}};
  std::vector<TRACE_ENTRY> read;
  const RESULT result = ParseTrace(
      TraceHeader() + TraceLine(entries[0]) + "\n\n" + TraceLine(entries[1]) + "\r\n", read);
  ASSERT_TRUE(result) << result.text;
  ASSERT_EQ(read.size(), 2U);
  EXPECT_EQ(read[0].when, 12345us);
  EXPECT_EQ(read[0].direction, DIRECTION::kRequest);
  EXPECT_EQ(read[1].bytes, Bytes(256, 0xA5));
}

TEST(Trace, NamesTheLineOfAnError) {
  std::vector<TRACE_ENTRY> read;
  EXPECT_EQ(ParseTrace("# fine\n0.1 > 01 30\nsoon > 01\n", read).text,
            "line 3: expected seconds, found 'soon'");
  EXPECT_EQ(ParseTrace("0.1 = 01", read).text, "line 1: expected > or <, found '='");
  EXPECT_EQ(ParseTrace("0.1 > 0x", read).text,
            "line 1: expected bytes in hexadecimal, found ' 0x'");
  EXPECT_FALSE(ParseTrace("0.1 >", read));
  EXPECT_FALSE(ParseTrace("-1 > 01", read));
  EXPECT_FALSE(ParseTrace("nan > 01", read));
}

TEST(Trace, DescribesWhatCrossesTheLine) {
  const std::pair<const char*, const char*> kRequests[] = {
      {"01 30", "identify"},
      {"03 40 6F 9A", "handshake"},
      {"03 40 6F 00", "wrong handshake"},
      {"03 20 0F 06", "poll card F, 6 bytes"},
      {"05 20 03", "poll card 3, ? bytes (3 bytes missing)"},
      {"05 10 05 02 FF FB", "output to card 5: FF FB"},
      {"02 10 10", "output to card 10: nothing"},
      {"04 50 05 01 AB", "reboot card 5"},
      {"04 50 00 01 74", "action 74 of card 0"},
      {"05 50 02 01 D3 7F", "write parameter D3 of card 2: 7F"},
      {"04 50 06 40 02", "read parameter 02 of card 6"},
      {"04 50 06 02 02", "unknown parameter request 02 02 to card 6"},
      {"03 50 06 01", "parameter request to card 6, unfinished"},
      {"02 77 00", "unknown request"},
      {"01 20", "unknown request"},
      {"05", "beginning of a request"},
      {"00", "empty frame"},
      {"", "nothing"},
  };
  const std::pair<const char*, const char*> kAnswers[] = {
      {"05 40 32 2E 30 01", "controller version '2.0?'"},
      {"04 31 05 06 00", "cards 05 06 00"},
      {"04 21 03 40 00", "card 3 input 40 00"},
      {"04 21 03 40 00 AA", "card 3 input 40 00 AA (1 bytes too many)"},
      {"04 51 06 02 01", "card 6 parameter 02 01"},
      {"02 41 05", "card 5 done"},
      {"02 43 05", "error no-card"},
      {"02 77 05", "unknown answer"},
      {"01 21", "unknown answer"},
      {"55", "single byte"},
      {"", "nothing"},
  };
  for (const auto& [frame, meaning] : kRequests)
    EXPECT_EQ(DescribeRequest(FromHex(frame).value()), meaning);
  for (const auto& [frame, meaning] : kAnswers)
    EXPECT_EQ(DescribeAnswer(FromHex(frame).value()), meaning);
}

TEST(Trace, DescribesAnyBytesWithoutHarm) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      Bytes bytes{static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(second)};
      for (int length = 2; length < 7; ++length) {
        EXPECT_FALSE(DescribeRequest(bytes).empty());
        EXPECT_FALSE(DescribeAnswer(bytes).empty());
        bytes.push_back(static_cast<std::uint8_t>(0x11 * length));
      }
    }
  }
}

class Replay : public ::testing::Test {
 protected:
  Replay()
      : replay({{0us, DIRECTION::kAnswer, {0x99}},
                {1000us, DIRECTION::kRequest, {0x03, 0x40, 0x6F, 0x9A}},
                {1100us, DIRECTION::kAnswer, {0x05, 0x40, '1'}},
                {3100us, DIRECTION::kAnswer, {'.', '0', '0'}},
                {9000us, DIRECTION::kRequest, {0x01, 0x30}}}),
        adapter(nullptr, {folder.Path()}) {
    adapter.SetReplyHook(replay.Hook());
    replay.SetListener([this](const std::string& line) { said.push_back(line); });
    EXPECT_TRUE(adapter.Plug(0));
  }
  ~Replay() override { adapter.SetReplyHook(nullptr); }

  unit::FOLDER folder;
  std::vector<std::string> said;
  REPLAY replay;
  support::ADAPTER adapter;
};

TEST_F(Replay, AnswersAsTheTraceDid) {
  NEAR_END near(adapter.LinkPath());
  ASSERT_TRUE(near.Write({0x03, 0x40, 0x6F, 0x9A}));
  EXPECT_EQ(near.Read(6), (Bytes{0x05, 0x40, '1', '.', '0', '0'}));
  EXPECT_FALSE(replay.Complete());
  ASSERT_TRUE(near.Write({0x01, 0x30}));
  ASSERT_TRUE(adapter.Requests().WaitForFrame({0x01, 0x30}, kLimit));
  EXPECT_TRUE(replay.Complete());
  ASSERT_TRUE(adapter.Unplug());
  EXPECT_EQ(said, std::vector<std::string>{"replay complete: 2 requests"});
}

TEST_F(Replay, ReportsTheFirstDifferenceAndThenKeepsSilent) {
  NEAR_END near(adapter.LinkPath());
  ASSERT_TRUE(near.Write({0x01, 0x30, 0x03, 0x40, 0x6F, 0x9A}));
  ASSERT_TRUE(adapter.Requests().WaitForFrame({0x03, 0x40, 0x6F, 0x9A}, kLimit));
  EXPECT_EQ(replay.Difference(), "request 1 differs: expected 03 40 6F 9A, received 01 30");
  EXPECT_EQ(adapter.Counters().replies, 0U);
  EXPECT_EQ(replay.Answered(), 0U);
}

TEST_F(Replay, ExpectsNoRequestThatWasDroppedUnfinished) {
  const REPLAY cut({{0us, DIRECTION::kRequest, {0x05, 0x10, 0x05}},
                    {300us, DIRECTION::kRequest, {0x00}},
                    {500us, DIRECTION::kRequest, {0x01, 0x30}}});
  EXPECT_EQ(cut.Expected(), 2U);  // a frame without a body is a whole one
}

TEST_F(Replay, ReportsARequestAfterTheEnd) {
  NEAR_END near(adapter.LinkPath());
  ASSERT_TRUE(near.Write({0x03, 0x40, 0x6F, 0x9A, 0x01, 0x30, 0x01, 0x31}));
  ASSERT_TRUE(adapter.Requests().WaitForFrame({0x01, 0x31}, kLimit));
  EXPECT_EQ(replay.Difference(), "request 3 differs: expected no more, received 01 31");
  EXPECT_FALSE(replay.Complete());
}

}  // namespace
}  // namespace sim
