#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

const std::string kEmptyRack = "31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

TEST(Rack, IsEmptyAtFirstAndShowsAnyTypeCode) {
  RACK rack;
  EXPECT_EQ(Ask(rack, "30"), kEmptyRack);
  rack.Insert(0x2, 255);
  rack.Insert(0xC, 42);
  EXPECT_EQ(Ask(rack, "30"), "31 00 00 FF 00 00 00 00 00 00 00 00 00 2A 00 00 00");
  for (const char* request : {"20 0C 02", "10 0C 00", "50 0C 40 01", "50 0C 01 01 00"}) {
    EXPECT_EQ(Ask(rack, request), "4E 0C") << request;
  }
  EXPECT_EQ(Ask(rack, "50 0C 01 AB"), "51 0C AB 00");
}

TEST(Rack, ReplacesACardAndPullsIt) {
  RACK rack;
  rack.Insert(3, type::kLcd);
  rack.Insert(3, type::kServo);
  EXPECT_EQ(rack.TypeAt(3), type::kServo);
  rack.Remove(3);
  EXPECT_EQ(rack.TypeAt(3), type::kEmpty);
  rack.Insert(4, type::kServo);
  rack.Insert(4, type::kEmpty);
  rack.Insert(16, type::kServo);
  rack.Insert(-1, type::kServo);
  EXPECT_EQ(rack.TypeAt(16), type::kEmpty);
  EXPECT_EQ(Ask(rack, "30"), kEmptyRack);
}

TEST(Rack, FillsAShortVersionAndCutsALongOne) {
  RACK rack;
  rack.SetVersion("1");
  EXPECT_EQ(Ask(rack, "40 6F 9A"), "40 31 20 20 20");
  rack.SetVersion("12.345");
  EXPECT_EQ(Ask(rack, "40 6F 9A"), "40 31 32 2E 33");
}

TEST(Rack, AnswersAnErrorToWhatIsNoRequestOrHasNoCard) {
  support::RACK rack;
  rack.PopulateDefault();
  for (const char* request :
       {"77 00", "40", "40 6F 9B", "10", "10 05", "10 05 02 FF", "20 03", "50 05", "50 05 01"}) {
    EXPECT_EQ(Ask(rack, request), "23") << request;
  }
  EXPECT_EQ(Ask(rack, ""), "silence");
  EXPECT_EQ(Ask(rack, "50 02 01 AB"), "43 02");
  EXPECT_EQ(Ask(rack, "20 10 02"), "43 10");
  EXPECT_EQ(Ask(rack, "10 FF 00"), "43 FF");
  EXPECT_EQ(Ask(rack, "50 05 02 00"), "4E 05");
}

TEST(Rack, SurvivesEveryRequestOfUpToThreeBytesToEveryCard) {
  support::RACK rack;
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

TEST(Rack, ReportsWhatHappensAtTheCards) {
  RACK rack;
  std::vector<std::string> lines;
  rack.SetListener([&lines](const std::string& line) { lines.push_back(line); });
  rack.Insert(5, type::kDigitalOutput);
  Ask(rack, "10 05 02 FF FB");
  Ask(rack, "10 05 02 FF FB");
  rack.Reset();
  rack.Remove(5);
  EXPECT_EQ(lines,
            (std::vector<std::string>{"card 5 plugged in: digital-out", "card 5 block 1 = FB",
                                      "card 5 rebooted", "card 5 block 1 = FF", "card 5 pulled"}));
}

}  // namespace
}  // namespace sim
