#include "vornctl/ExitStatus.h"
#include "vornctl/Notation.h"

#include <gtest/gtest.h>

#include <functional>

namespace ctl {
namespace {

using client::CARD_KIND;
using client::CARD_TYPE;
using client::TypeOf;

constexpr std::uint8_t kByte = 0x40;

/// The status of the failure that the call ends with; kDone for none.
EXIT_STATUS StatusOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const FAILURE& failure) {
    return failure.Status();
  }
  return EXIT_STATUS::kDone;
}

std::string ReadText(const std::string& place, CARD_KIND kind, std::uint8_t block) {
  const auto reading = Read(*ReadPlace(place), TypeOf(kind), block);
  return reading ? reading->text : "nothing";
}

TEST(ReadPlace, TakesTheFormsThatItShows) {
  for (const char* text : {"5", "F", "5.0", "5.15", "5.b1", "8.key", "8.encoder"}) {
    const auto place = ReadPlace(text);
    ASSERT_TRUE(place) << text;
    EXPECT_EQ(TextOf(*place), text);
  }
  EXPECT_EQ(TextOf(*ReadPlace("f.b0")), "F.b0");
}

TEST(ReadPlace, TakesNothingElse) {
  for (const char* text : {"", ".", "5.", "5.b", "G.1", "15.1", "5,1", "5.-1", "5.1x", "5.1000",
                           "5.0x1", "5 .1", "5.KEY", "lamp", "5.1.1", "5.b-1"}) {
    EXPECT_FALSE(ReadPlace(text)) << text;
  }
}

TEST(FindPlace, KnowsTheNamesOfTheSettings) {
  const std::map<std::string, std::string> names = {{"lamp", "5.10"}, {"panel", "8.key"}};
  const PLACE lamp = FindPlace("lamp", names);
  EXPECT_EQ(TextOf(lamp), "5.10");
  EXPECT_EQ(TitleOf(lamp), "lamp");
  EXPECT_EQ(TitleOf(FindPlace("5.10", names)), "5.10");
  EXPECT_EQ(StatusOf([&] { FindPlace("lump", names); }), EXIT_STATUS::kNoSuch);
  EXPECT_EQ(StatusOf([&] { FindPlace("5,10", names); }), EXIT_STATUS::kUsage);
}

TEST(IsName, IsNeverTrueForAPlace) {
  for (const char* text : {"lamp", "Lamp-2", "ab", "b1", "front_door"}) {
    EXPECT_TRUE(IsName(text)) << text;
  }
  for (const char* text : {"", "F", "5", "5.1", "2nd", "_x", "-x", "a.b", "a b", "l\xC3\xA4mp"}) {
    EXPECT_FALSE(IsName(text)) << text;
  }
}

TEST(BlockOf, FollowsTheCardsBlocks) {
  const auto blockOf = [](const char* place, CARD_KIND kind) {
    return BlockOf(*ReadPlace(place), TypeOf(kind));
  };
  EXPECT_EQ(blockOf("5.7", CARD_KIND::kDigitalOutput), 0);
  EXPECT_EQ(blockOf("5.8", CARD_KIND::kDigitalOutput), 1);
  EXPECT_EQ(blockOf("3.15", CARD_KIND::kDigitalInput), 1);
  EXPECT_EQ(blockOf("0.5", CARD_KIND::kServo), 5);
  EXPECT_EQ(blockOf("1.b3", CARD_KIND::kMotor), client::kMotorControlBlock);
  EXPECT_EQ(blockOf("8.encoder", CARD_KIND::kKeys), 0);
}

TEST(BlockOf, RefusesWhatTheCardDoesNotHave) {
  const std::pair<const char*, CARD_KIND> refused[] = {{"5.16", CARD_KIND::kDigitalOutput},
                                                       {"5.b2", CARD_KIND::kDigitalOutput},
                                                       {"0.6", CARD_KIND::kServo},
                                                       {"1.3", CARD_KIND::kMotor},
                                                       {"8.0", CARD_KIND::kKeys},
                                                       {"5.key", CARD_KIND::kDigitalOutput},
                                                       {"E.0", CARD_KIND::kLcd},
                                                       {"E.b0", CARD_KIND::kLcd},
                                                       {"7.0", CARD_KIND::kEmpty}};
  for (const auto& channel : refused) {
    EXPECT_EQ(StatusOf([&] { BlockOf(*ReadPlace(channel.first), TypeOf(channel.second)); }),
              EXIT_STATUS::kNoSuch)
        << channel.first;
  }
  EXPECT_EQ(StatusOf([] { BlockOf(*ReadPlace("5"), TypeOf(CARD_KIND::kDigitalOutput)); }),
            EXIT_STATUS::kUsage);
}

TEST(Read, SaysWhatABlockMeansForAPlace) {
  EXPECT_EQ(ReadText("3.6", CARD_KIND::kDigitalInput, kByte), "on");
  EXPECT_EQ(ReadText("3.14", CARD_KIND::kDigitalInput, kByte), "on");
  EXPECT_EQ(ReadText("3.5", CARD_KIND::kDigitalInput, kByte), "off");
  EXPECT_EQ(ReadText("3.b0", CARD_KIND::kDigitalInput, kByte), "40");
  EXPECT_EQ(ReadText("F.3", CARD_KIND::kAnalogue, 0x80), "50.2%");
  EXPECT_EQ(ReadText("F.3", CARD_KIND::kAnalogue, 0xFF), "100%");
  EXPECT_EQ(ReadText("F.3", CARD_KIND::kAnalogue, 0x00), "0%");
}

TEST(Read, TellsAKeyFromTheEncoder) {
  EXPECT_EQ(ReadText("8.key", CARD_KIND::kKeys, 12), "12");
  EXPECT_EQ(ReadText("8.key", CARD_KIND::kKeys, 0), "none");
  EXPECT_EQ(ReadText("8.key", CARD_KIND::kKeys, 0x85), "nothing");
  EXPECT_EQ(ReadText("8.encoder", CARD_KIND::kKeys, 0x85), "5");
  EXPECT_EQ(ReadText("8.encoder", CARD_KIND::kKeys, 12), "nothing");
}

TEST(ReadLevel, TakesAPercentageOrAByte) {
  const CARD_TYPE& servo = TypeOf(CARD_KIND::kServo);
  const CARD_TYPE& motor = TypeOf(CARD_KIND::kMotor);
  EXPECT_EQ(ReadLevel("0%", servo, "x"), 0x00);
  EXPECT_EQ(ReadLevel("100%", servo, "x"), 0xFF);
  EXPECT_EQ(ReadLevel("12.5%", servo, "x"), 0x20);
  EXPECT_EQ(ReadLevel("0x80", servo, "x"), 0x80);
  EXPECT_EQ(ReadLevel("-100%", motor, "x"), 0x81);
  EXPECT_EQ(ReadLevel("+50%", motor, "x"), 0x40);
}

TEST(ReadLevel, RefusesWhatCouldMeanEither) {
  for (const char* text : {"", "50", "80", "on", "%", "50 %", "50%%", "0x", "0x8", "0x800", "1e1%",
                           "nan%", "inf%", "101%", "-1%", "0x50%"}) {
    EXPECT_EQ(StatusOf([&] { ReadLevel(text, TypeOf(CARD_KIND::kServo), "x"); }),
              EXIT_STATUS::kUsage)
        << text;
  }
}

TEST(ReadByte, TakesTwoHexadecimalDigitsOfEitherCase) {
  EXPECT_EQ(ReadByte("FB", "x"), 0xFB);
  EXPECT_EQ(ReadByte("fb", "x"), 0xFB);
  EXPECT_EQ(ReadByte("0xfB", "x"), 0xFB);
  for (const char* text : {"", "F", "FBF", "G0", "0xF", "on", " F"}) {
    EXPECT_EQ(StatusOf([&] { ReadByte(text, "x"); }), EXIT_STATUS::kUsage) << text;
  }
}

TEST(ReadSwitch, TakesOnAndOff) {
  EXPECT_TRUE(ReadSwitch("on", "x"));
  EXPECT_TRUE(ReadSwitch("ON", "x"));
  EXPECT_FALSE(ReadSwitch("Off", "x"));
  for (const char* text : {"", "1", "true", "onn", "o"}) {
    EXPECT_EQ(StatusOf([&] { ReadSwitch(text, "x"); }), EXIT_STATUS::kUsage) << text;
  }
}

TEST(ChannelsOf, AreThoseThatAPersonCanName) {
  EXPECT_EQ(ChannelsOf(5, TypeOf(CARD_KIND::kDigitalOutput)).size(), 16U);
  EXPECT_EQ(TextOf(ChannelsOf(8, TypeOf(CARD_KIND::kKeys))[1]), "8.encoder");
  EXPECT_TRUE(ChannelsOf(14, TypeOf(CARD_KIND::kLcd)).empty());
}

}  // namespace
}  // namespace ctl
