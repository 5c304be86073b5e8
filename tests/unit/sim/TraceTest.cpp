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

TEST(Trace, DescribesEachRequest) {
  EXPECT_EQ(DescribeRequest({0x01, 0x30}), "identify");
  EXPECT_EQ(DescribeRequest({0x03, 0x40, 0x6F, 0x9A}), "handshake");
  EXPECT_EQ(DescribeRequest({0x03, 0x40, 0x6F, 0x00}), "wrong handshake");
  EXPECT_EQ(DescribeRequest({0x03, 0x20, 0x0F, 0x06}), "poll card F, 6 bytes");
  EXPECT_EQ(DescribeRequest({0x05, 0x10, 0x05, 0x02, 0xFF, 0xFB}), "output to card 5: FF FB");
  EXPECT_EQ(DescribeRequest({0x04, 0x50, 0x05, 0x01, 0xAB}), "reboot card 5");
  EXPECT_EQ(DescribeRequest({0x04, 0x50, 0x00, 0x01, 0x74}), "action 74 of card 0");
  EXPECT_EQ(DescribeRequest({0x05, 0x50, 0x02, 0x01, 0xD3, 0x7F}),
            "write parameter D3 of card 2: 7F");
  EXPECT_EQ(DescribeRequest({0x04, 0x50, 0x06, 0x40, 0x02}), "read parameter 02 of card 6");
  EXPECT_EQ(DescribeRequest({0x05, 0x20, 0x03}), "poll card 3, ? bytes (3 bytes missing)");
  EXPECT_EQ(DescribeRequest({0x00}), "empty frame");
  EXPECT_EQ(DescribeRequest({}), "nothing");
}

TEST(Trace, DescribesEachAnswer) {
  EXPECT_EQ(DescribeAnswer({0x05, 0x40, '2', '.', '0', '4'}), "controller version '2.04'");
  EXPECT_EQ(DescribeAnswer({0x04, 0x21, 0x03, 0x40, 0x00}), "card 3 input 40 00");
  EXPECT_EQ(DescribeAnswer({0x04, 0x51, 0x06, 0x02, 0x01}), "card 6 parameter 02 01");
  EXPECT_EQ(DescribeAnswer({0x02, 0x41, 0x05}), "card 5 done");
  EXPECT_EQ(DescribeAnswer({0x02, 'C', 0x05}), "error no-card");
  EXPECT_EQ(DescribeAnswer({0x04, 0x21, 0x03, 0x40, 0x00, 0xAA}),
            "card 3 input 40 00 AA (1 bytes too many)");
  EXPECT_EQ(DescribeAnswer({0x55}), "single byte");
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

  TEMPORARY_FOLDER folder;
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
