#include "sim/line/Faults.h"
#include "sim/rack/Protocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace sim {
namespace {

using namespace std::chrono_literals;

const std::string kPoll3 = "03 20 03 02";
const std::string kIdentify = "01 30";

/// Faults with a clock that goes only when told to, and what becomes of an answer.
class FaultEngine : public ::testing::Test {
 protected:
  using enum FAULT_KIND;

  /// What goes out for a request that was to be answered so: the pieces, "+2000us" between them.
  std::string Answer(const std::string& request = kPoll3,
                     const std::string& answer = "04 21 03 40 00") {
    REPLY reply;
    if (!answer.empty()) {
      reply.push_back({0us, FromHex(answer).value()});
    }
    hits = faults.Apply({1, now, FromHex(request).value()}, reply);
    std::string text;
    for (const CHUNK& chunk : reply) {
      if (chunk.delay.count() > 0) {
        text += "+" + std::to_string(chunk.delay.count()) + "us ";
      }
      text += ToHex(chunk.bytes) + " ";
    }
    return text.substr(0, text.size() - std::min<std::size_t>(text.size(), 1));
  }

  TIME now{};
  FAULT_ENGINE faults{[this] { return now; }};
  std::vector<std::string> hits;
};

TEST_F(FaultEngine, EachKindDoesToTheAnswerWhatItSaysOnce) {
  const auto length = [](LENGTH_FAULT how) {
    return FAULT{.kind = kLength, .length = how, .value = 0x55};
  };
  const struct {
    FAULT fault;
    const char* says;
    const char* answer;
  } kRows[] = {
      {{.kind = kNoAnswer}, "no-answer", ""},
      {{.kind = kLate, .time = 1500us}, "late 1.5", "+1500us 04 21 03 40 00"},
      {{.kind = kCut, .count = 0}, "cut 0", ""},
      {{.kind = kCut, .count = 1}, "cut 1", "04"},
      {{.kind = kCut, .count = 4}, "cut 4", "04 21 03 40"},
      {{.kind = kCut, .count = 6}, "cut 6", "04 21 03 40 00"},
      {{.kind = kSplit, .time = 5ms}, "split 5", "04 +5000us 21 +5000us 03 +5000us 40 +5000us 00"},
      {{.kind = kTrailing, .bytes = {0xAA, 0xBB}}, "trailing AA BB", "04 21 03 40 00 AA BB"},
      {{.kind = kLeading, .bytes = {0xAA, 0xBB}}, "leading AA BB", "AA BB 04 21 03 40 00"},
      {{.kind = kGarbage, .bytes = {0xAA}}, "garbage AA", "04 21 03 40 00 +2000us AA"},
      {length(LENGTH_FAULT::kShort), "length short", "03 21 03 40 00"},
      {length(LENGTH_FAULT::kLong), "length long", "05 21 03 40 00"},
      {length(LENGTH_FAULT::kOver), "length over", "C8 21 03 40 00"},
      {length(LENGTH_FAULT::kZero), "length zero", "00 21 03 40 00"},
      {length(LENGTH_FAULT::kValue), "length 55", "55 21 03 40 00"},
      {{.kind = kAddress, .value = 0xFF}, "address FF", "04 21 FF 40 00"},
      {{.kind = kError, .value = 0x77}, "error 77", "02 77 03"},
      {{.kind = kDuplicate}, "duplicate", "04 21 03 40 00 04 21 03 40 00"},
  };
  std::set<FAULT_KIND> seen;
  for (const auto& row : kRows) {
    faults.Add(row.fault);
    EXPECT_EQ(Describe(faults.List().at(0).fault), std::string(row.says) + " once");
    EXPECT_EQ(Answer(), row.answer) << row.says;
    EXPECT_EQ(hits, std::vector<std::string>{row.says});
    EXPECT_TRUE(faults.List().empty());
    EXPECT_EQ(Answer(), "04 21 03 40 00");
    EXPECT_TRUE(hits.empty());
    seen.insert(row.fault.kind);
  }
  EXPECT_EQ(seen.size(), std::size(kFaultTypes));
}

TEST_F(FaultEngine, EachErrorHasItsNameAndTheRequestsAddressWhereItHasOne) {
  for (const ERROR_CODE& row : kErrorCodes) {
    faults.Add({.kind = kError, .value = row.code});
    EXPECT_EQ(Answer(), "02 " + ToHex(row.code) + " 03");
    EXPECT_EQ(hits, std::vector<std::string>{std::string("error ") + row.keyword});
  }
  faults.Add({.kind = kError, .value = error::kBusy, .times = 2});
  EXPECT_EQ(Answer(kIdentify, "02 31 00"), "01 42");
  EXPECT_EQ(Answer(kPoll3, ""), "02 42 03");  // also where nothing was to be said
}

TEST_F(FaultEngine, AFaultWaitsForAnAnswerThatItCanSpoil) {
  faults.Add({.kind = kAddress, .value = 0xFF});
  for (const char* answer : {"", "11 31 05", "05 40 32 2E 30 34", "01 23"}) {
    EXPECT_EQ(Answer(kPoll3, answer), answer);
  }
  EXPECT_EQ(Answer(kPoll3, "02 43 03"), "02 43 FF");
  faults.Add({.kind = kCut, .count = 1});
  EXPECT_EQ(Answer(kPoll3, ""), "");
  EXPECT_EQ(faults.List().size(), 1U);
}

TEST_F(FaultEngine, SeveralAtOnceWorkInTheirOrder) {
  faults.Add({.kind = kTrailing, .bytes = {0xAA}});
  faults.Add({.kind = kDuplicate});
  faults.Add({.kind = kCut, .count = 8});
  EXPECT_EQ(Answer(), "04 21 03 40 00 AA 04 21");
}

TEST_F(FaultEngine, MeetsOnlyTheRequestsThatItIsMeantFor) {
  const struct {
    FAULT fault;
    std::string request;
    bool meets;
  } kRows[] = {
      {{}, kPoll3, true},
      {{}, kIdentify, true},
      {{}, "00", true},
      {{.address = 3}, kPoll3, true},
      {{.address = 3}, "05 10 03 02 FF FF", true},
      {{.address = 3}, "04 50 03 40 01", true},
      {{.address = 3}, "03 20 08 01", false},
      {{.address = 3}, "01 20", false},
      {{.address = 3}, "03 40 03 9A", false},  // names no card
      {{.address = 3}, kIdentify, false},
      {{.address = 3}, "00", false},
      {{.code = request::kIdentify}, kIdentify, true},
      {{.code = request::kIdentify}, kPoll3, false},
      {{.code = request::kIdentify}, "00", false},
      {{.address = 3, .code = request::kPoll}, kPoll3, true},
      {{.address = 3, .code = request::kOutput}, kPoll3, false},
  };
  for (const auto& row : kRows) {
    faults.Add(row.fault);
    EXPECT_EQ(Answer(row.request, "01 55"), row.meets ? "" : "01 55")
        << Describe(row.fault) << ": " << row.request;
    faults.ClearAll();
  }
}

TEST_F(FaultEngine, LastsForACountATimeOrUntilCleared) {
  EXPECT_EQ(faults.Add({.times = 2}), 1);
  EXPECT_EQ(faults.Add({.kind = kDuplicate, .times = std::nullopt, .lasts = 2s}), 2);
  EXPECT_EQ(faults.Add({.kind = kTrailing, .bytes = {0xAA}, .times = std::nullopt}), 3);
  EXPECT_EQ(Answer(kPoll3, "01 55"), "");
  EXPECT_EQ(Describe(faults.List().at(0).fault), "no-answer once");
  EXPECT_EQ(Answer(kPoll3, "01 55"), "");
  now += 1500ms;
  EXPECT_EQ(Describe(faults.List().at(0).fault), "duplicate for 0.5");
  EXPECT_EQ(Answer(kPoll3, "01 55"), "01 55 01 55 AA");
  now += 500ms;
  EXPECT_EQ(faults.List().size(), 1U);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(Answer(kPoll3, "01 55"), "01 55 AA");
  }
  EXPECT_FALSE(faults.Clear(1));
  EXPECT_TRUE(faults.Clear(3));
  EXPECT_FALSE(faults.Clear(3));
  EXPECT_EQ(Answer(kPoll3, "01 55"), "01 55");
}

TEST_F(FaultEngine, SaysWhatAPersonWouldOrder) {
  EXPECT_EQ(Describe({.kind = kCut, .count = 3, .address = 5, .code = 0x20, .times = 2}),
            "cut 3 on 5 code 20 times 2");
  EXPECT_EQ(Describe({.times = std::nullopt}), "no-answer always");
  EXPECT_EQ(Describe({.times = std::nullopt, .lasts = 1250ms}), "no-answer for 1.3");
}

}  // namespace
}  // namespace sim
