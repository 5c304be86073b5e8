#include "tests/system/SystemTest.h"

#include <gtest/gtest.h>

/// Everything that can go wrong on the line, while the daemon polls: it lives on, and a key pressed
/// afterwards reaches the IO client.

namespace {

using sim::FAULT;
using sim::FAULT_KIND;
using sim::LENGTH_FAULT;
using std::chrono::milliseconds;

class LineFaults : public SYSTEM_TEST {
 protected:
  void StartPolling() {
    config.initPollState = "TRUE";
    StartIdentified();
    io.emplace(ConnectIo());
  }

  /// Key 6 of card 3 down and up: both changes are reported. What a spoiled answer may have
  /// reported before them is of no interest here.
  void ExpectKeyReported() {
    ASSERT_TRUE(rack.Press(3, 6));
    EXPECT_TRUE(io->ReadUntil(IoLine("a3b0d40")).ends_with(IoLine("a3b0d40")));
    ASSERT_TRUE(rack.Release(3, 6));
    EXPECT_TRUE(io->ReadUntil(IoLine("a3b0d00")).ends_with(IoLine("a3b0d00")));
  }

  bool WaitUntilFaultsAreUsedUp() {
    return support::WaitUntil([this] { return adapter.Faults().List().empty(); });
  }

  std::optional<TCP_CLIENT> io;
};

struct CASE {
  const char* name;
  FAULT fault;
};

/// For the name under which CTest lists the test.
void PrintTo(const CASE& row, std::ostream* out) {
  *out << row.name;
}

class EachLineFault : public LineFaults, public testing::WithParamInterface<CASE> {};

TEST_P(EachLineFault, IsSurvivedByThePollOfACardAndTheKeyIsReportedAfterwards) {
  StartPolling();
  FAULT fault = GetParam().fault;
  fault.address = 3;
  fault.code = sim::request::kPoll;
  fault.times = 2;
  adapter.Faults().Add(fault);
  ASSERT_TRUE(WaitUntilFaultsAreUsedUp());
  ExpectKeyReported();
  Synchronise(*cae);
}

INSTANTIATE_TEST_SUITE_P(
    OfTheTable, EachLineFault,
    testing::Values(
        CASE{"NoAnswer", {.kind = FAULT_KIND::kNoAnswer}},
        CASE{"Late", {.kind = FAULT_KIND::kLate, .time = milliseconds(5)}},
        CASE{"LateBeyondTheLimit", {.kind = FAULT_KIND::kLate, .time = milliseconds(400)}},
        CASE{"CutToNothing", {.kind = FAULT_KIND::kCut, .count = 0}},
        CASE{"CutBehindTheLength", {.kind = FAULT_KIND::kCut, .count = 1}},
        CASE{"CutBeforeTheEnd", {.kind = FAULT_KIND::kCut, .count = 4}},
        CASE{"Split", {.kind = FAULT_KIND::kSplit, .time = milliseconds(1)}},
        CASE{"Trailing", {.kind = FAULT_KIND::kTrailing, .bytes = {0xAA, 0x55, 0x00}}},
        CASE{"TrailingMoreThanTheBuffer",
             {.kind = FAULT_KIND::kTrailing, .bytes = sim::Bytes(300, 0xFF)}},
        CASE{"Leading", {.kind = FAULT_KIND::kLeading, .bytes = {0x02, 0x7E, 0x7E}}},
        CASE{"LeadingHalfAFrame", {.kind = FAULT_KIND::kLeading, .bytes = {0xFF}}},
        CASE{"Garbage", {.kind = FAULT_KIND::kGarbage, .bytes = {0xAA, 0xBB, 0xCC}}},
        CASE{"LengthShort", {.kind = FAULT_KIND::kLength, .length = LENGTH_FAULT::kShort}},
        CASE{"LengthLong", {.kind = FAULT_KIND::kLength, .length = LENGTH_FAULT::kLong}},
        CASE{"LengthOverTheBuffer", {.kind = FAULT_KIND::kLength, .length = LENGTH_FAULT::kOver}},
        CASE{"LengthZero", {.kind = FAULT_KIND::kLength, .length = LENGTH_FAULT::kZero}},
        CASE{"AddressOfAnotherCard", {.kind = FAULT_KIND::kAddress, .value = 0x0F}},
        CASE{"AddressOfNoSlot", {.kind = FAULT_KIND::kAddress, .value = 0xFF}},
        CASE{"ErrorTimeout", {.kind = FAULT_KIND::kError, .value = sim::error::kTimeout}},
        CASE{"ErrorDevice", {.kind = FAULT_KIND::kError, .value = sim::error::kDevice}},
        CASE{"ErrorFormat", {.kind = FAULT_KIND::kError, .value = sim::error::kFormat}},
        CASE{"ErrorOverflow", {.kind = FAULT_KIND::kError, .value = sim::error::kOverflow}},
        CASE{"ErrorRefused", {.kind = FAULT_KIND::kError, .value = sim::error::kRefused}},
        CASE{"ErrorBusy", {.kind = FAULT_KIND::kError, .value = sim::error::kBusy}},
        CASE{"ErrorNoCard", {.kind = FAULT_KIND::kError, .value = sim::error::kNoCard}},
        CASE{"Duplicate", {.kind = FAULT_KIND::kDuplicate}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(LineFaults, AnIdentificationThatIsNotAnsweredIsAskedForAgain) {
  adapter.Faults().Add({.kind = FAULT_KIND::kNoAnswer, .code = sim::request::kIdentify});
  StartIdentified();
  EXPECT_EQ(log.Count("[INF] comm timeout /dev/ttyUSB0"), 1);
}

TEST_F(LineFaults, AControllerThatStartsAnewIsFoundAgain) {
  StartPolling();
  adapter.ResetController(milliseconds(500));
  ASSERT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0"));
  ASSERT_TRUE(log.WaitForLine(kHardwareFound, 2));
  ExpectKeyReported();
}

TEST_F(LineFaults, BytesThatNobodyAskedForAreSurvived) {
  StartPolling();
  // Bytes of 31 can be taken for an identification, after which no slot has a card.
  constexpr int kIdentifies = 7;
  const auto burst = [this](int i) {
    adapter.Send(sim::Bytes(static_cast<std::size_t>(1 + i * 5), static_cast<std::uint8_t>(i * 7)));
  };
  for (int i = 0; i < 50; ++i) {
    if (i != kIdentifies) {
      burst(i);
    }
  }
  ExpectKeyReported();
  burst(kIdentifies);
  ASSERT_TRUE(support::WaitUntil([this] {
    cae->Send("FORCEDISCOVER" + config.cae.inpSeparator);
    const std::string prompt = CaeLine(">");
    return cae->ReadUntil(prompt).find("DTI:0x3:16 channel") != std::string::npos;
  }));
  ExpectKeyReported();
}

TEST_F(LineFaults, AChatteringAdapterBesideTheRightOneIsLeftAlone) {
  sim::ADAPTER other(nullptr, {});
  ASSERT_TRUE(other.Plug(1));
  other.SetChatter(milliseconds(1));
  StartPolling();
  ExpectKeyReported();
  EXPECT_EQ(other.Counters().openings, 0U);
}

TEST_F(LineFaults, AChatteringAdapterBeforeTheRightOneIsLeftOnceItIsUnplugged) {
  config.initPollState = "TRUE";
  sim::ADAPTER other(nullptr, {});
  ASSERT_TRUE(other.Plug(0));
  other.SetChatter(milliseconds(1));
  Plug(1);
  pauses.SetLength(2, milliseconds(20));
  Start();
  // Whatever the daemon takes the nonsense for, it stays the same daemon and serves its clients.
  ASSERT_TRUE(log.WaitForLine("[INF] try to catch hardware on /dev/ttyUSB0"));
  ASSERT_TRUE(other.Unplug());
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB1 version: 2.04"));
  cae.emplace(ConnectCae());
  io.emplace(ConnectIo());
  ASSERT_TRUE(WaitForFrame("01 30"));
  ExpectKeyReported();
  Synchronise(*cae);
}

TEST_F(LineFaults, AnotherCardInASlotKeepsItsOldRoleUntilTheNextDiscovery) {
  StartPolling();
  rack.Insert(8, sim::type::kDigitalInput);
  ExpectKeyReported();
  rack.Remove(8);
  ExpectKeyReported();
}

}  // namespace
