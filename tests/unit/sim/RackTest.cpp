#include "sim/rack/Rack.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <thread>

namespace sim {
namespace {

using namespace std::chrono_literals;

TEST(Rack, IsEmptyAtFirst) {
  RACK rack;
  EXPECT_EQ(rack.Answer({0x30}), (Bytes{0x31, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Rack, HoldsTheCardsOfTheExamplesByDefault) {
  RACK rack;
  rack.PopulateDefault();
  EXPECT_EQ(rack.Answer({0x30}), (Bytes{0x31, 5, 6, 0, 4, 0, 3, 0, 0, 8, 10, 0, 0, 0, 0, 9, 7}));
}

TEST(Rack, ShowsAnyTypeCodeInTheIdentification) {
  RACK rack;
  rack.Insert(0x2, 255);
  rack.Insert(0xC, 42);
  EXPECT_EQ(rack.Answer({0x30}), (Bytes{0x31, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0, 42, 0, 0, 0}));
  EXPECT_EQ(rack.Answer({0x20, 0x0C, 0x02}), (Bytes{'N', 0x0C}));
}

TEST(Rack, ReplacesACardAndPullsIt) {
  RACK rack;
  rack.PopulateDefault();
  rack.Insert(3, type::kServo);
  EXPECT_EQ(rack.TypeAt(3), type::kServo);
  rack.Remove(3);
  EXPECT_EQ(rack.TypeAt(3), type::kEmpty);
  rack.Insert(4, type::kEmpty);
  rack.Insert(16, type::kServo);
  rack.Insert(-1, type::kServo);
  EXPECT_EQ(rack.TypeAt(16), type::kEmpty);
}

TEST(Rack, FillsAShortVersionAndCutsALongOne) {
  RACK rack;
  rack.SetVersion("1");
  EXPECT_EQ(rack.Answer({0x40, 0x6F, 0x9A}), (Bytes{0x40, '1', ' ', ' ', ' '}));
  rack.SetVersion("12.345");
  EXPECT_EQ(rack.Answer({0x40, 0x6F, 0x9A}), (Bytes{0x40, '1', '2', '.', '3'}));
}

TEST(Rack, AnswersNoCardForAnEmptySlotAndForAnAddressAboveF) {
  RACK rack;
  EXPECT_EQ(rack.Answer({0x50, 0x05, 0x01, 0xAB}), (Bytes{'C', 0x05}));
  EXPECT_EQ(rack.Answer({0x20, 0x10, 0x02}), (Bytes{'C', 0x10}));
  EXPECT_EQ(rack.Answer({0x10, 0xFF, 0x00}), (Bytes{'C', 0xFF}));
}

TEST(Rack, AnswersAFormatErrorToWhatIsNoRequest) {
  RACK rack;
  rack.PopulateDefault();
  const Bytes formatError{'#'};
  EXPECT_EQ(rack.Answer({0x77, 0x00}), formatError);
  EXPECT_EQ(rack.Answer({0x40}), formatError);
  EXPECT_EQ(rack.Answer({0x40, 0x6F, 0x9B}), formatError);
  EXPECT_EQ(rack.Answer({0x10}), formatError);
  EXPECT_EQ(rack.Answer({0x10, 0x05}), formatError);
  EXPECT_EQ(rack.Answer({0x10, 0x05, 0x02, 0xFF}), formatError);
  EXPECT_EQ(rack.Answer({0x20, 0x03}), formatError);
  EXPECT_EQ(rack.Answer({0x50, 0x05}), formatError);
  EXPECT_EQ(rack.Answer({0x50, 0x05, 0x01}), formatError);
  EXPECT_EQ(rack.Answer({}), std::nullopt);
}

TEST(Rack, SurvivesEveryRequestOfUpToThreeBytesToEveryCard) {
  RACK rack;
  rack.PopulateDefault();
  for (int code = 0; code < 256; ++code) {
    for (int address = 0; address < 16; ++address) {
      for (int third = 0; third < 256; ++third) {
        const auto byte = [](int value) { return static_cast<std::uint8_t>(value); };
        EXPECT_TRUE(rack.Answer({byte(code), byte(address), byte(third)}));
        EXPECT_TRUE(rack.Answer({byte(code), byte(address), 0x01, byte(third)}));
      }
    }
  }
}

TEST(Rack, WaitsForAValueThatAnotherThreadSends) {
  RACK rack;
  rack.PopulateDefault();
  std::thread sender([&rack] { rack.Answer({0x10, 0x05, 0x02, 0xFF, 0xFB}); });
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB, kLimit));
  sender.join();
  EXPECT_FALSE(rack.WaitForValue(5, 1, 0x00, 1ms));
  EXPECT_FALSE(rack.WaitForValue(7, 0, 0x00, 1ms));
}

TEST(Rack, WaitsForAServoToArrive) {
  RACK rack;
  rack.PopulateDefault();
  rack.Answer({0x10, 0x00, 0x06, 0x90, 0x80, 0x80, 0x80, 0x80, 0x80});
  EXPECT_TRUE(rack.WaitFor<SERVO_CARD>(
      0, [](const SERVO_CARD& card) { return card.Position(0) == 0x90; }, kLimit));
}

TEST(Rack, WaitsForTextOnADisplay) {
  RACK rack;
  rack.PopulateDefault();
  rack.Answer({0x10, 0x0E, 0x06, 9, 3, 1, 'H', 'i', 0});
  EXPECT_TRUE(rack.WaitForText(0xE, 3, 1, "Hi", kLimit));
  EXPECT_FALSE(rack.WaitForText(0xE, 3, 9, "Hi", 1ms));
  EXPECT_FALSE(rack.WaitForText(0xE, 99, 1, "Hi", 1ms));
  EXPECT_FALSE(rack.WaitForText(0x5, 0, 0, "Hi", 1ms));
}

TEST(Rack, ReportsWhatHappensAtTheCards) {
  RACK rack;
  std::vector<std::string> lines;
  rack.SetListener([&lines](const std::string& line) { lines.push_back(line); });
  rack.Insert(5, type::kDigitalOutput);
  rack.Answer({0x10, 0x05, 0x02, 0xFF, 0xFB});
  rack.Answer({0x10, 0x05, 0x02, 0xFF, 0xFB});
  rack.Reset();
  rack.Remove(5);
  EXPECT_EQ(lines,
            (std::vector<std::string>{"card 5 plugged in: digital-out", "card 5 block 1 = FB",
                                      "card 5 rebooted", "card 5 block 1 = FF", "card 5 pulled"}));
}

TEST(Rack, RefusesActionsAtEmptySlotsAndWrongCards) {
  RACK rack;
  rack.PopulateDefault();
  EXPECT_EQ(rack.Press(2, 0).text, "no card at address 2");
  EXPECT_EQ(rack.Press(16, 0).text, "an address is 0 to F");
  EXPECT_EQ(rack.Press(5, 0).text, "card 5 (digital-out) has no keys");
  EXPECT_EQ(rack.Press(3, 16).text, "card 3 has no key 16; 0 to 15 are there");
  EXPECT_EQ(rack.Turn(3, 1).text, "card 3 (digital-in) has no encoder");
  EXPECT_EQ(rack.Set(0, 0, 0).text, "card 0 (servo) has no inputs to set");
}

}  // namespace
}  // namespace sim
