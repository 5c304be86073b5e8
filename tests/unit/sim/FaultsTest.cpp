#include "sim/line/Adapter.h"
#include "sim/line/Faults.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <set>

namespace sim {
namespace {

using namespace std::chrono_literals;

const Bytes kPoll3{0x03, 0x20, 0x03, 0x02};
const Bytes kPoll8{0x03, 0x20, 0x08, 0x01};
const Bytes kAnswer3{0x04, 0x21, 0x03, 0x40, 0x00};
const Bytes kAnswer8{0x03, 0x21, 0x08, 0x00};

/// What a program at the near end sees, byte for byte, with key 6 of card 3 pressed.
class Faults : public ::testing::Test {
 protected:
  Faults() : adapter(&rack, {folder.Path()}), near(PlugIn()) {}

  std::string PlugIn() {
    rack.PopulateDefault();
    EXPECT_TRUE(rack.Press(3, 6));
    EXPECT_TRUE(adapter.Plug(0));
    return adapter.LinkPath();
  }

  /// After the request exactly these bytes come: the answer to a poll of card 8, which no fault of
  /// these tests touches, follows them at once.
  void ExpectOnTheLine(const Bytes& request, const Bytes& expected) {
    ASSERT_TRUE(near.Write(request));
    EXPECT_EQ(ToHex(near.Read(expected.size())), ToHex(expected));
    ASSERT_TRUE(near.Write(kPoll8));
    EXPECT_EQ(ToHex(near.Read(kAnswer8.size())), ToHex(kAnswer8));
  }

  void ExpectFault(FAULT fault, const Bytes& expected) {
    fault.address = 3;
    adapter.Faults().Add(fault);
    ExpectOnTheLine(kPoll3, expected);
    EXPECT_TRUE(adapter.Faults().List().empty());
    ExpectOnTheLine(kPoll3, kAnswer3);  // once is once
  }

  TEMPORARY_FOLDER folder;
  support::RACK rack;
  support::ADAPTER adapter;
  NEAR_END near;
};

TEST_F(Faults, NoAnswer) {
  ExpectFault({.kind = FAULT_KIND::kNoAnswer}, {});
}

TEST_F(Faults, LateComesNotBeforeItsTime) {
  const auto begin = std::chrono::steady_clock::now();
  ExpectFault({.kind = FAULT_KIND::kLate, .time = 30ms}, kAnswer3);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
}

TEST_F(Faults, CutAtEachByte) {
  for (std::size_t count = 0; count <= kAnswer3.size() + 1; ++count) {
    const auto end = kAnswer3.begin() + static_cast<long>(std::min(count, kAnswer3.size()));
    ExpectFault({.kind = FAULT_KIND::kCut, .count = count}, Bytes(kAnswer3.begin(), end));
  }
}

TEST_F(Faults, SplitIntoSingleBytesWithAGap) {
  std::vector<Bytes> pieces;
  adapter.SetTap([&pieces](DIRECTION direction, TIME, const Bytes& bytes) {
    if (direction == DIRECTION::kAnswer)
      pieces.push_back(bytes);
  });
  const auto begin = std::chrono::steady_clock::now();
  ExpectFault({.kind = FAULT_KIND::kSplit, .time = 5ms}, kAnswer3);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
  ASSERT_TRUE(adapter.Unplug());
  ASSERT_GE(pieces.size(), kAnswer3.size());
  for (std::size_t i = 0; i < kAnswer3.size(); ++i)
    EXPECT_EQ(pieces[i], Bytes{kAnswer3[i]});
}

TEST_F(Faults, TrailingBytes) {
  ExpectFault({.kind = FAULT_KIND::kTrailing, .bytes = {0xAA, 0xBB}},
              {0x04, 0x21, 0x03, 0x40, 0x00, 0xAA, 0xBB});
}

TEST_F(Faults, LeadingBytes) {
  ExpectFault({.kind = FAULT_KIND::kLeading, .bytes = {0xAA, 0xBB}},
              {0xAA, 0xBB, 0x04, 0x21, 0x03, 0x40, 0x00});
}

TEST_F(Faults, GarbageBetweenFrames) {
  ExpectFault({.kind = FAULT_KIND::kGarbage, .bytes = {0xAA, 0xBB}},
              {0x04, 0x21, 0x03, 0x40, 0x00, 0xAA, 0xBB});
}

TEST_F(Faults, EachWrongLengthByte) {
  const auto fault = [](LENGTH_FAULT length) {
    return FAULT{.kind = FAULT_KIND::kLength, .length = length, .value = 0x55};
  };
  ExpectFault(fault(LENGTH_FAULT::kShort), {0x03, 0x21, 0x03, 0x40, 0x00});
  ExpectFault(fault(LENGTH_FAULT::kLong), {0x05, 0x21, 0x03, 0x40, 0x00});
  ExpectFault(fault(LENGTH_FAULT::kOver), {0xC8, 0x21, 0x03, 0x40, 0x00});
  ExpectFault(fault(LENGTH_FAULT::kZero), {0x00, 0x21, 0x03, 0x40, 0x00});
  ExpectFault(fault(LENGTH_FAULT::kValue), {0x55, 0x21, 0x03, 0x40, 0x00});
}

TEST_F(Faults, WrongAddress) {
  ExpectFault({.kind = FAULT_KIND::kAddress, .value = 0xFF}, {0x04, 0x21, 0xFF, 0x40, 0x00});
}

TEST_F(Faults, WrongAddressWaitsForAnAnswerThatNamesOne) {
  adapter.Faults().Add({.kind = FAULT_KIND::kAddress, .value = 0xFF});
  EXPECT_EQ(near.Exchange({0x30}).size(), 17U);
  EXPECT_EQ(adapter.Faults().List().size(), 1U);
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0xFF, 0x40, 0x00}));
}

TEST_F(Faults, EachErrorCode) {
  for (const ERROR_CODE& row : kErrorCodes)
    ExpectFault({.kind = FAULT_KIND::kError, .value = row.code}, {0x02, row.code, 0x03});
}

TEST_F(Faults, AnErrorOfARequestWithoutAddressNamesNone) {
  adapter.Faults().Add({.kind = FAULT_KIND::kError, .value = error::kBusy});
  EXPECT_EQ(near.Exchange({0x30}), Bytes{'B'});
}

TEST_F(Faults, DuplicateAnswer) {
  ExpectFault({.kind = FAULT_KIND::kDuplicate},
              {0x04, 0x21, 0x03, 0x40, 0x00, 0x04, 0x21, 0x03, 0x40, 0x00});
}

TEST_F(Faults, SeveralAtOnceWorkInTheirOrder) {
  adapter.Faults().Add({.kind = FAULT_KIND::kTrailing, .bytes = {0xAA}, .address = 3});
  adapter.Faults().Add({.kind = FAULT_KIND::kDuplicate, .address = 3});
  adapter.Faults().Add({.kind = FAULT_KIND::kCut, .count = 8, .address = 3});
  ExpectOnTheLine(kPoll3, {0x04, 0x21, 0x03, 0x40, 0x00, 0xAA, 0x04, 0x21});
}

TEST_F(Faults, ForACount) {
  adapter.Faults().Add({.kind = FAULT_KIND::kNoAnswer, .address = 3, .times = 3});
  for (int i = 0; i < 3; ++i)
    ExpectOnTheLine(kPoll3, {});
  ExpectOnTheLine(kPoll3, kAnswer3);
}

TEST(FaultEngine, ForATime) {
  TIME now{};
  FAULT_ENGINE faults([&now] { return now; });
  faults.Add({.kind = FAULT_KIND::kNoAnswer, .times = std::nullopt, .lasts = 2s});
  now += 1500ms;
  EXPECT_EQ(Describe(faults.List().at(0).fault), "no-answer for 0.5");
  REPLY reply{{0us, kAnswer3}};
  EXPECT_EQ(faults.Apply({1, now, kPoll3}, reply).size(), 1U);
  now += 500ms;
  EXPECT_TRUE(faults.List().empty());
  EXPECT_TRUE(faults.Apply({2, now, kPoll3}, reply).empty());
}

TEST_F(Faults, AlwaysUntilCleared) {
  const int number =
      adapter.Faults().Add({.kind = FAULT_KIND::kNoAnswer, .address = 3, .times = std::nullopt});
  for (int i = 0; i < 10; ++i)
    ExpectOnTheLine(kPoll3, {});
  EXPECT_TRUE(adapter.Faults().Clear(number));
  EXPECT_FALSE(adapter.Faults().Clear(number));
  ExpectOnTheLine(kPoll3, kAnswer3);
}

TEST_F(Faults, OnOneAddressOnly) {
  adapter.Faults().Add({.kind = FAULT_KIND::kNoAnswer, .address = 3, .times = std::nullopt});
  EXPECT_EQ(near.Exchange({0x20, 0x0F, 0x06}).size(), 8U);
  EXPECT_EQ(near.Exchange({0x30}).size(), 17U);  // names no card
  ExpectOnTheLine(kPoll3, {});
}

TEST_F(Faults, OnOneRequestCodeOnly) {
  adapter.Faults().Add({.kind = FAULT_KIND::kNoAnswer, .code = request::kIdentify});
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x40, 0x00}));
  ExpectOnTheLine({0x01, 0x30}, {});  // the identification unanswered
}

TEST_F(Faults, OfTheWholeBus) {
  adapter.Faults().Add({.kind = FAULT_KIND::kNoAnswer, .times = std::nullopt});
  for (const Bytes& request : {kPoll3, kPoll8, Bytes{0x01, 0x30}, Bytes{0x03, 0x40, 0x6F, 0x9A}}) {
    const std::uint64_t before = adapter.Requests().Last();
    ASSERT_TRUE(near.Write(request));
    ASSERT_TRUE(adapter.Requests().WaitForFrame(request, kLimit, before));
  }
  adapter.Faults().ClearAll();
  ExpectOnTheLine(kPoll3, kAnswer3);
}

TEST_F(Faults, ACardPulledAndAnotherPluggedIn) {
  rack.Remove(3);
  ExpectOnTheLine(kPoll3, {0x02, 'C', 0x03});
  rack.Insert(3, type::kAnalogue);
  ExpectOnTheLine(kPoll3, {0x02, 'N', 0x03});
  ExpectOnTheLine({0x03, 0x20, 0x03, 0x06}, {0x08, 0x21, 0x03, 0, 0, 0, 0, 0, 0});
}

TEST_F(Faults, AControllerResetRebootsTheCardsAndIsDeafForItsTime) {
  ASSERT_EQ(near.Exchange({0x10, 0x05, 0x02, 0x00, 0x00}), (Bytes{0x41, 0x05}));
  adapter.ResetController(1h);
  ASSERT_TRUE(near.Write(kPoll3));
  ASSERT_TRUE(adapter.Requests().WaitForFrame(kPoll3, kLimit));
  EXPECT_EQ(rack.Value(5, 0), 0xFF);
  adapter.ResetController(0ms);
  ExpectOnTheLine(kPoll3, kAnswer3);
}

TEST_F(Faults, ASecondAdapterChatters) {
  support::ADAPTER second(nullptr, {folder.Path()});
  ASSERT_TRUE(second.Plug(1));
  NEAR_END other(second.LinkPath());
  second.SetChatter(1ms);
  std::set<std::uint8_t> different;
  for (const std::uint8_t byte : other.Read(100))
    different.insert(byte);
  EXPECT_GT(different.size(), 10U);
  ExpectOnTheLine(kPoll3, kAnswer3);
}

TEST(FaultText, IsWhatAPersonWouldOrder) {
  EXPECT_EQ(
      Describe({.kind = FAULT_KIND::kCut, .count = 3, .address = 5, .code = 0x20, .times = 2}),
      "cut 3 on 5 code 20 times 2");
  EXPECT_EQ(Describe({.kind = FAULT_KIND::kLate, .time = 1500us}), "late 1.5 once");
  EXPECT_EQ(Describe({.kind = FAULT_KIND::kNoAnswer, .times = std::nullopt}), "no-answer always");
  EXPECT_EQ(Describe({.kind = FAULT_KIND::kTrailing, .bytes = {1, 2}}), "trailing 01 02 once");
  EXPECT_EQ(Describe({.kind = FAULT_KIND::kLength, .length = LENGTH_FAULT::kOver}),
            "length over once");
  EXPECT_EQ(Describe({.kind = FAULT_KIND::kError, .value = 'C'}), "error no-card once");
}

TEST(FaultText, EveryKindHasOneRow) {
  std::set<std::string> keywords;
  for (const FAULT_TYPE& row : kFaultTypes) {
    EXPECT_TRUE(keywords.insert(row.keyword).second);
    EXPECT_EQ(FindRow(kFaultTypes, row.keyword), &FaultType(row.kind));
  }
  EXPECT_EQ(FindRow(kFaultTypes, "bogus"), nullptr);
}

class Pacing : public ::testing::Test {
 protected:
  TEMPORARY_FOLDER folder;
  support::RACK rack;
};

TEST_F(Pacing, TakesTenBitsAByteInBothDirections) {
  rack.PopulateDefault();
  support::ADAPTER adapter(&rack, {.devDir = folder.Path(), .baud = 1200});
  ASSERT_TRUE(adapter.Plug(0));
  NEAR_END near(adapter.LinkPath());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 75ms);  // 4 + 5 bytes at 120 a second
}

TEST_F(Pacing, TwoFramesInOneWriteTakeTheirTurn) {
  rack.PopulateDefault();
  support::ADAPTER adapter(&rack, {.devDir = folder.Path(), .baud = 1200});
  ASSERT_TRUE(adapter.Plug(0));
  NEAR_END near(adapter.LinkPath());
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(near.Write({0x03, 0x20, 0x03, 0x02, 0x03, 0x20, 0x03, 0x02}));
  EXPECT_EQ(near.Read(10).size(), 10U);
  // Four bytes there, then both answers, the second request travelling meanwhile.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 115ms);
}

TEST_F(Pacing, TheLatencyTimerHoldsAnswersBack) {
  rack.PopulateDefault();
  support::ADAPTER adapter(&rack, {.devDir = folder.Path(), .latencyTimer = 16ms});
  ASSERT_TRUE(adapter.Plug(0));
  NEAR_END near(adapter.LinkPath());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(near.Exchange({0x20, 0x03, 0x02}), (Bytes{0x21, 0x03, 0x00, 0x00}));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 16ms);
}

}  // namespace
}  // namespace sim
