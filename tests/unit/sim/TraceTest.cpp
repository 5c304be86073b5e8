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
  const auto request = [](const std::string& frame) {
    return DescribeRequest(FromHex(frame).value());
  };
  const auto answer = [](const std::string& bytes) {
    return DescribeAnswer(FromHex(bytes).value());
  };
  EXPECT_EQ(request(""), "nothing");
  EXPECT_EQ(answer(""), "nothing");
  Converse(R"(
      01 30 -> identify | 03 40 6F 9A -> handshake | 03 40 6F 00 -> wrong handshake
      03 20 0F 06 -> poll card F, 6 bytes | 05 20 03 -> poll card 3, ? bytes (3 bytes missing)
      05 10 05 02 FF FB -> output to card 5: FF FB | 02 10 10 -> output to card 10: nothing
      04 50 05 01 AB -> reboot card 5 | 04 50 00 01 74 -> action 74 of card 0
      05 50 02 01 D3 7F -> write parameter D3 of card 2: 7F
      04 50 06 40 02 -> read parameter 02 of card 6
      04 50 06 02 02 -> unknown parameter request 02 02 to card 6
      03 50 06 01 -> parameter request to card 6, unfinished | 02 77 00 -> unknown request
      01 20 -> unknown request | 05 -> beginning of a request | 00 -> empty frame)",
           "", request);
  Converse(R"(
      05 40 32 2E 30 01 -> controller version '2.0?' | 04 31 05 06 00 -> cards 05 06 00
      04 21 03 40 00 -> card 3 input 40 00
      04 21 03 40 00 AA -> card 3 input 40 00 AA (1 bytes too many)
      04 51 06 02 01 -> card 6 parameter 02 01 | 02 41 05 -> card 5 done
      02 43 05 -> error no-card | 02 77 05 -> unknown answer | 01 21 -> unknown answer
      55 -> single byte)",
           "", answer);
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
  Replay() {
    replay.SetListener([this](const std::string& line) { said.push_back(line); });
  }

  /// What the replay answers, "+2000us" between the pieces; "silence" for nothing.
  std::string Ask(const std::string& frame) {
    const REPLY reply = replay.Hook()({1, {}, FromHex(frame).value()}, {}).value();
    std::string text;
    for (const CHUNK& chunk : reply) {
      text += " +" + std::to_string(chunk.delay.count()) + "us " + ToHex(chunk.bytes);
    }
    return text.empty() ? "silence" : text.substr(1);
  }

  std::vector<std::string> said;
  REPLAY replay{{{0us, DIRECTION::kAnswer, {0x99}},
                 {1000us, DIRECTION::kRequest, {0x03, 0x40, 0x6F, 0x9A}},
                 {1100us, DIRECTION::kAnswer, {0x05, 0x40, '1'}},
                 {3100us, DIRECTION::kAnswer, {'.', '0', '0'}},
                 {4000us, DIRECTION::kRequest, {0x05, 0x10, 0x05}},  // dropped unfinished
                 {9000us, DIRECTION::kRequest, {0x00}}}};
};

TEST_F(Replay, AnswersAsTheTraceDidAndNothingAfterItsEnd) {
  EXPECT_EQ(replay.Expected(), 2U);
  EXPECT_EQ(Ask("03 40 6F 9A"), "+100us 05 40 31 +2000us 2E 30 30");
  EXPECT_FALSE(replay.Complete());
  EXPECT_EQ(Ask("00"), "silence");
  EXPECT_TRUE(replay.Complete());
  EXPECT_EQ(said, std::vector<std::string>{"replay complete: 2 requests"});
  EXPECT_EQ(Ask("01 31"), "silence");
  EXPECT_EQ(replay.Difference(), "request 3 differs: expected no more, received 01 31");
  EXPECT_FALSE(replay.Complete());
}

TEST_F(Replay, ReportsTheFirstDifferenceAndThenKeepsSilent) {
  EXPECT_EQ(Ask("01 30"), "silence");
  EXPECT_EQ(Ask("03 40 6F 9A"), "silence");
  EXPECT_EQ(replay.Difference(), "request 1 differs: expected 03 40 6F 9A, received 01 30");
  EXPECT_EQ(said, std::vector<std::string>{"replay: " + replay.Difference()});
  EXPECT_EQ(replay.Answered(), 0U);
}

}  // namespace
}  // namespace sim
