#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <numeric>
#include <set>

namespace sim {
namespace {

using namespace std::chrono_literals;

using Lines = std::vector<std::string>;

/// A request body and the answer to it.
struct EXCHANGE {
  std::string request;
  std::string answer;
};

/// The default rack with a clock that goes only when told to.
class Cards : public ::testing::Test {
 protected:
  Cards() : rack([this] { return now; }) {
    rack.PopulateDefault();
    rack.SetListener([this](const std::string& line) { lines.push_back(line); });
  }

  std::string Ask(const std::string& request) { return sim::Ask(rack, request); }
  void Converse(const std::vector<EXCHANGE>& exchanges) {
    for (const EXCHANGE& each : exchanges)
      EXPECT_EQ(Ask(each.request), each.answer) << each.request;
  }
  /// Does something at a card as a person would.
  RESULT Operate(int address, const std::function<RESULT(CARD&)>& action) {
    RESULT result;
    EXPECT_TRUE(rack.WithCard(address, [&](CARD& card) { result = action(card); }));
    return result;
  }
  double Position(std::size_t servo) {
    return rack.Field<std::vector<double>>(0, "positions").at(servo);
  }
  std::vector<int> Percents() { return rack.Field<std::vector<int>>(1, "percent"); }
  Lines TakeLines() { return std::exchange(lines, {}); }

  TIME now{};
  support::RACK rack;
  Lines lines;
};

// --- what all have in common --------------------------------------------------------------------

TEST_F(Cards, EachTypeOfTheTableIsMadeAndFoundAndShowsItself) {
  for (const CARD_TYPE& row : kCardTypes) {
    const auto card = MakeCard(row.code, 4, [](const std::string&) {});
    EXPECT_EQ(card->TypeCode(), row.code);
    EXPECT_EQ(card->Type(), &row);
    EXPECT_EQ(FindRow(kCardTypes, row.keyword), &row);
    const std::vector<FIELD> fields = card->Show();
    ASSERT_GE(fields.size(), 4U);
    EXPECT_EQ(std::get<std::string>(fields[0].value), "4");
    EXPECT_EQ(std::get<std::string>(fields[1].value), row.keyword);
    EXPECT_EQ(std::get<std::string>(fields[2].value), row.name);
    EXPECT_TRUE(std::any_of(fields.begin(), fields.end(), [](const FIELD& field) {
      return field.kind != FIELD_KIND::kDetail;
    })) << row.keyword;
  }
}

TEST_F(Cards, EachOutputThatIsNoStreamHasTheLengthOfTheTable) {
  for (const CARD_TYPE& row : kCardTypes) {
    rack.Insert(2, row.code);
    for (int count = 0; row.outputs > 0 && count < 9; ++count) {
      Bytes body{0x10, 2, static_cast<std::uint8_t>(count)};
      body.resize(body.size() + static_cast<std::size_t>(count));
      EXPECT_EQ(Ask(ToHex(body)), count == row.outputs ? "41 02" : "4E 02") << row.keyword << count;
    }
  }
}

TEST_F(Cards, EachPollHasTheCountOfTheTableWhateverFollowsIt) {
  for (const CARD_TYPE& row : kCardTypes) {
    rack.Insert(2, row.code);
    for (int count = 0; count < 9; ++count) {
      const std::string request = "20 02 " + ToHex(static_cast<std::uint8_t>(count));
      const bool isRight = row.inputs > 0 && count == row.inputs;
      const std::string answer = Ask(request);
      EXPECT_EQ(answer.substr(0, 5), isRight ? "21 02" : "4E 02") << row.keyword << count;
      EXPECT_EQ(answer.size(), isRight ? 5U + 3U * static_cast<std::size_t>(count) : 5U);
      // A second identification lets a poll grow by itself.
      EXPECT_EQ(Ask(request + " " + request), answer);
    }
  }
}

TEST_F(Cards, EachParameterOfTheTableIsWrittenAndReadByItsCodesAndKeptAsItSays) {
  for (const PARAMETER& row : kParameters) {
    for (int channel = 0; channel < row.channels; ++channel) {
      rack.Insert(2, row.type);
      const auto at = [channel](int first) {
        return ToHex(static_cast<std::uint8_t>(first + channel));
      };
      const std::string value = ToHex(static_cast<std::uint8_t>(row.maximum - channel - 1));
      const std::string write = "50 02 01 " + at(row.writeCode) + " ";
      const std::string read = "50 02 40 " + at(row.readCode);
      if (row.writeCode == 0)
        continue;
      EXPECT_EQ(Ask(write + value), "51 02 " + at(row.writeCode) + " " + value);
      if (row.maximum < 0xFF) {
        EXPECT_EQ(Ask(write + ToHex(static_cast<std::uint8_t>(row.maximum + 1))), "4E 02");
      }
      if (row.readCode != 0) {
        EXPECT_EQ(Ask(read), "51 02 " + at(row.readCode) + " " + value);
      }
      EXPECT_EQ(Ask("50 02 01 AB"), "51 02 AB 00");
      const auto after = rack.Field<Bytes>(2, row.name).at(static_cast<std::size_t>(channel));
      EXPECT_EQ(ToHex(after), row.keptAtOnce ? value : ToHex(row.start)) << row.name;
    }
  }
}

TEST_F(Cards, EachActionOfTheTableIsAcknowledgedByItsTypeAndRefusedByOthers) {
  for (const ACTION& action : kActions) {
    for (const CARD_TYPE& card : kCardTypes) {
      rack.Insert(2, card.code);
      const std::string code = ToHex(action.code);
      std::string expected = "4E 02";
      if (action.type == 0 || action.type == card.code)
        expected = "51 02 " + code + " 00";
      else if (card.code == type::kLcd && action.code == 0x02)
        expected = "23";  // there it is a parameter whose value is missing
      EXPECT_EQ(Ask("50 02 01 " + code), expected) << action.event << card.keyword;
    }
  }
}

TEST_F(Cards, PresetsAreCheckedAgainstTheTable) {
  const auto preset = [this](const char* name, int channel, int value) {
    return Operate(0, [=](CARD& card) { return card.PresetParameter(name, channel, value); }).text;
  };
  EXPECT_EQ(preset("endA", 5, 0x20), "");
  EXPECT_EQ(Ask("50 00 40 26"), "51 00 26 20");
  EXPECT_EQ(preset("mask", 0, 1),
            "a servo card has no parameter 'mask'; it has endA, endB, position");
  EXPECT_EQ(preset("endA", 6, 1), "card 0 has no channel 6; 0 to 5 are there");
  EXPECT_EQ(preset("endA", 0, 256), "endA is 00 to FF");
}

TEST_F(Cards, WhatATypeDoesNotHaveOrANumberThatItDoesNotHaveIsRefused) {
  using ACT = std::function<RESULT(CARD&)>;
  const auto press = [](int key) { return [key](CARD& card) { return card.Press(key); }; };
  const auto set = [](int channel, int value) {
    return [=](CARD& card) { return card.Set(channel, value); };
  };
  const struct {
    int address;
    ACT act;
    const char* why;
  } kRefusals[] = {
      {5, press(0), "card 5 (digital-out) has no keys"},
      {5, [](CARD& card) { return card.Release(0); }, "card 5 (digital-out) has no keys"},
      {3, press(16), "card 3 has no key 16; 0 to 15 are there"},
      {3, press(-1), "card 3 has no key -1; 0 to 15 are there"},
      {8, press(0), "a key code is 1 to 7F (hexadecimal)"},
      {8, press(0x80), "a key code is 1 to 7F (hexadecimal)"},
      {8, [](CARD& card) { return card.Release(0x80); }, "a key code is 1 to 7F (hexadecimal)"},
      {3, [](CARD& card) { return card.Turn(1); }, "card 3 (digital-in) has no encoder"},
      {8, [](CARD& card) { return card.Turn(128); }, "a turn is -127 to 127 steps"},
      {8, [](CARD& card) { return card.Turn(-128); }, "a turn is -127 to 127 steps"},
      {0, set(0, 0), "card 0 (servo) has no inputs to set"},
      {3, set(2, 0), "card 3 has no block 2; 0 to 1 are there"},
      {3, set(0, 256), "a block's value is 00 to FF"},
      {15, set(6, 0), "card F has no pot 6; 0 to 5 are there"},
      {15, set(0, -1), "a pot's value is 00 to FF"},
      {3, [](CARD& card) { return card.Ramp(0, 0, 1s); }, "card 3 (digital-in) has no pots"},
      {15, [](CARD& card) { return card.Ramp(6, 0, 1s); }, "card F has no pot 6; 0 to 5 are there"},
      {15, [](CARD& card) { return card.Ramp(0, 256, 1s); }, "a pot's value is 00 to FF"},
      {3, [](CARD& card) { return card.SetNoise(0, 0); }, "card 3 (digital-in) has no pots"},
      {15, [](CARD& card) { return card.SetNoise(0, 256); }, "noise is 00 to FF"},
      {3, [](CARD& card) { return card.SetSpeed(1); }, "card 3 (digital-in) has no servos"},
      {0, [](CARD& card) { return card.SetSpeed(-1); },
       "a servo's speed is 0 (at once) to 100000 steps a second"},
      {0, [](CARD& card) { return card.Resize(1, 1); }, "only an lcd card has a Display"},
      {14, [](CARD& card) { return card.Resize(41, 2); },
       "a display has 1 to 40 columns and 1 to 4 rows"},
      {14, [](CARD& card) { return card.Resize(16, 0); },
       "a display has 1 to 40 columns and 1 to 4 rows"},
  };
  for (const auto& each : kRefusals)
    EXPECT_EQ(Operate(each.address, each.act).text, each.why);
}

// --- digital ------------------------------------------------------------------------------------

TEST_F(Cards, ADigitalOutputLightsTheLampsWhoseBitIsZeroUntilAReboot) {
  Converse({{"10 05 02 FE FB", "41 05"}});
  EXPECT_EQ(rack.Field<std::vector<int>>(5, "lit"), (std::vector<int>{0, 10}));
  EXPECT_EQ(TakeLines(), (Lines{"card 5 block 0 = FE", "card 5 block 1 = FB"}));
  Converse({{"50 05 01 AB", "51 05 AB 00"}});
  EXPECT_TRUE(rack.Field<std::vector<int>>(5, "lit").empty());
}

TEST_F(Cards, APressedKeyIsAOneBitAndABlockIsSetAtOnce) {
  ASSERT_TRUE(rack.Press(3, 6));
  ASSERT_TRUE(rack.Press(3, 15));
  Converse({{"20 03 02", "21 03 40 80"}});
  EXPECT_EQ(rack.Field<std::vector<int>>(3, "pressed"), (std::vector<int>{6, 15}));
  ASSERT_TRUE(rack.Release(3, 6));
  Converse({{"20 03 02", "21 03 00 80"}});
  ASSERT_TRUE(rack.Set(3, 1, 0xA5));
  ASSERT_TRUE(rack.Set(3, 1, 0xA5));
  Converse({{"20 03 02", "21 03 00 A5"}});
  EXPECT_EQ(TakeLines(), (Lines{"card 3 input block 0 = 40", "card 3 input block 1 = 80",
                                "card 3 input block 0 = 00", "card 3 input block 1 = A5"}));
}

// --- servo --------------------------------------------------------------------------------------

TEST_F(Cards, AServoTravelsToItsTargetWithItsSpeed) {
  ASSERT_TRUE(Operate(0, [](CARD& card) { return card.SetSpeed(100); }));
  Converse({{"10 00 06 80 80 80 80 B2 80", "41 00"}});
  EXPECT_EQ(rack.Value(0, 4), 0xB2);
  EXPECT_DOUBLE_EQ(Position(4), 128);
  now += 250ms;
  EXPECT_DOUBLE_EQ(Position(4), 153);
  EXPECT_TRUE(rack.Advance());
  now += 250ms;
  EXPECT_DOUBLE_EQ(Position(4), 178);
  EXPECT_FALSE(rack.Advance());
  EXPECT_EQ(TakeLines(), (Lines{"card 0 servo 4 = B2", "card 0 servo 4 reached B2"}));
}

TEST_F(Cards, AServoTurnsBackOnItsWay) {
  ASSERT_TRUE(Operate(0, [](CARD& card) { return card.SetSpeed(100); }));
  Ask("10 00 06 FF 80 80 80 80 80");
  now += 500ms;
  Ask("10 00 06 00 80 80 80 80 80");
  now += 250ms;
  EXPECT_DOUBLE_EQ(Position(0), 153);
}

TEST_F(Cards, AServoMovesBetweenItsEndPositions) {
  ASSERT_TRUE(Operate(0, [](CARD& card) { return card.SetSpeed(0); }));
  Converse({{"50 00 01 C3 40", "51 00 C3 40"}, {"50 00 01 D3 C0", "51 00 D3 C0"}});
  EXPECT_EQ(lines[0], "card 0 endA3 = 40");
  const auto pulse = [this](const std::string& request) {
    Ask(request);
    return rack.Field<std::vector<double>>(0, "pulses").at(3);
  };
  EXPECT_DOUBLE_EQ(pulse("10 00 06 80 80 80 FF 80 80"), 0xC0);
  EXPECT_DOUBLE_EQ(pulse("10 00 06 80 80 80 00 80 80"), 0x40);
}

TEST_F(Cards, ServosStoreTheirPositionsAndMoveToThemAlsoAfterAReboot) {
  const Bytes stored{1, 2, 3, 4, 5, 6};
  Converse({{"10 00 06 01 02 03 04 05 06", "41 00"}, {"50 00 01 AB", "51 00 AB 00"}});
  EXPECT_EQ(rack.Field<Bytes>(0, "targets"), Bytes(6, 0x80));
  for (const char* way : {"50 00 01 3F", "50 00 01 AB"}) {
    Converse({{"10 00 06 01 02 03 04 05 06", "41 00"},
              {"50 00 01 74", "51 00 74 00"},
              {"10 00 06 09 09 09 09 09 09", "41 00"}});
    EXPECT_EQ(rack.Field<Bytes>(0, "targets"), Bytes(6, 9));
    Ask(way);
    EXPECT_EQ(rack.Field<Bytes>(0, "targets"), stored) << way;
  }
}

// --- motor --------------------------------------------------------------------------------------

TEST_F(Cards, AMotorTurnsAsSpeedSilentRangeAndControlByteSay) {
  const struct {
    const char* silent;  // of motor 1
    const char* speed;
    const char* control;
    int percent;
  } kRows[] = {
      // signed speeds, which stand inside the range
      {"01", "7F", "00", 100},
      {"01", "81", "00", -100},
      {"01", "80", "00", -100},
      {"10", "0F", "00", 0},
      {"10", "10", "00", 12},
      {"10", "F1", "00", 0},
      // manual: unsigned, turned by the motor's two bits
      {"00", "FF", "00", 0},
      {"00", "FF", "04", 100},
      {"00", "FF", "08", -100},
      {"00", "FF", "0C", 0},
      {"00", "FF", "33", 0},
      {"00", "80", "04", 50},
  };
  for (const auto& row : kRows) {
    Converse({{std::string("50 01 01 C1 ") + row.silent, std::string("51 01 C1 ") + row.silent},
              {std::string("10 01 04 00 ") + row.speed + " 00 " + row.control, "41 01"}});
    EXPECT_EQ(Percents(), (std::vector<int>{0, row.percent, 0})) << row.silent << row.speed;
  }
}

TEST_F(Cards, AMotorReportsItsTurningAlsoWhenTheSilentRangeChangesIt) {
  Ask("10 01 04 10 00 00 00");
  Ask("50 01 01 C0 20");
  EXPECT_EQ(TakeLines(), (Lines{"card 1 block 0 = 10", "card 1 motor 0 at 12%",
                                "card 1 silent0 = 20", "card 1 motor 0 at 0%"}));
}

TEST_F(Cards, SilentRangesAndMaskLastOverARebootOnceStored) {
  Converse({{"50 01 01 C2 20", "51 01 C2 20"},
            {"50 01 01 CD", "51 01 CD 00"},
            {"50 01 01 AB", "51 01 AB 00"},
            {"50 01 40 03", "51 01 03 20"},
            {"50 0F 01 01 17", "51 0F 01 17"},
            {"50 0F 01 02", "51 0F 02 00"},
            {"50 0F 01 AB", "51 0F AB 00"},
            {"50 0F 40 01", "51 0F 01 17"}});
}

// --- analogue -----------------------------------------------------------------------------------

TEST_F(Cards, APotIsPolledWithItsValueAndAMaskedOneWithZero) {
  ASSERT_TRUE(rack.Set(0xF, 3, 0x20));
  ASSERT_TRUE(rack.Set(0xF, 4, 0x30));
  Converse({{"20 0F 06", "21 0F 00 00 00 20 30 00"},
            {"50 0F 01 01 17", "51 0F 01 17"},
            {"20 0F 06", "21 0F 00 00 00 00 30 00"}});
}

TEST_F(Cards, ANoisyPotStaysWithinItsAmplitudeAndDoesMove) {
  ASSERT_TRUE(rack.Set(0xF, 0, 0x80));
  ASSERT_TRUE(rack.Set(0xF, 1, 0xFF));
  for (const int pot : {0, 1})
    ASSERT_TRUE(Operate(0xF, [=](CARD& card) { return card.SetNoise(pot, 5); }));
  std::set<int> seen;
  for (int i = 0; i < 1000; ++i) {
    const Bytes answer = rack.Answer({0x20, 0xF, 6}).value();
    seen.insert(answer[2]);
    EXPECT_GE(answer[3], 0xFA);
  }
  EXPECT_EQ(*seen.begin(), 0x7B);
  EXPECT_EQ(*seen.rbegin(), 0x85);
  EXPECT_EQ(seen.size(), 11U);
}

TEST_F(Cards, ARampTakesItsTimeAndEndsWhereThePotIsSet) {
  const auto ramp = [](CARD& card) { return card.Ramp(2, 200, 1000ms); };
  ASSERT_TRUE(Operate(0xF, ramp));
  for (const int expected : {50, 100, 150}) {
    now += 250ms;
    EXPECT_EQ(rack.Value(0xF, 2), expected);
    EXPECT_TRUE(rack.Advance());
  }
  now += 500ms;
  EXPECT_EQ(rack.Value(0xF, 2), 200);
  EXPECT_FALSE(rack.Advance());
  EXPECT_EQ(TakeLines(), Lines{"card F pot 2 reached C8"});
  ASSERT_TRUE(rack.Set(0xF, 2, 0));
  ASSERT_TRUE(Operate(0xF, ramp));
  now += 250ms;
  ASSERT_TRUE(rack.Set(0xF, 2, 7));
  now += 250ms;
  EXPECT_EQ(rack.Value(0xF, 2), 7);
}

// --- keys ---------------------------------------------------------------------------------------

TEST_F(Cards, KeysAndTurnsAreAnsweredOneByOne) {
  ASSERT_TRUE(rack.Press(8, 0x12));
  ASSERT_TRUE(rack.Release(8, 0x13));  // is not down
  ASSERT_TRUE(rack.Release(8, 0x12));
  ASSERT_TRUE(rack.Turn(8, 2));
  ASSERT_TRUE(rack.Turn(8, -3));
  for (const char* value : {"12", "00", "81", "82", "81", "80", "FF", "FF", "FF"})
    EXPECT_EQ(Ask("20 08 01"), std::string("21 08 ") + value);
  EXPECT_EQ(TakeLines(), (Lines{"card 8 key 12 pressed", "card 8 key 12 released",
                                "card 8 encoder at 2", "card 8 encoder at 127"}));
}

TEST_F(Cards, KeysHoldABoundedNumberOfEventsAndSaySo) {
  const std::string full = "the card holds 256 events already that nobody polled";
  ASSERT_TRUE(rack.Press(8, 0x12));
  ASSERT_TRUE(rack.Turn(8, 127));
  ASSERT_TRUE(rack.Turn(8, 127));
  EXPECT_EQ(rack.Turn(8, 3).text, full);
  EXPECT_EQ(rack.Press(8, 0x13).text, full);
  EXPECT_EQ(rack.Release(8, 0x12).text, full);
  Converse({{"20 08 01", "21 08 12"}});
  EXPECT_TRUE(rack.Turn(8, 1));
}

TEST_F(Cards, AKeyThatIsDownSurvivesAReboot) {
  ASSERT_TRUE(rack.Press(8, 0x12));
  ASSERT_TRUE(rack.Turn(8, 5));
  Converse({{"50 08 01 AB", "51 08 AB 00"}, {"20 08 01", "21 08 12"}});
}

// --- display ------------------------------------------------------------------------------------

class Display : public Cards {
 protected:
  Display() {
    Ask("10 0E 01 00");
    lines.clear();
  }
  std::string Text(std::uint8_t column, std::uint8_t row, const std::string& text) {
    Bytes body{0x10, 0xE, static_cast<std::uint8_t>(text.size() + 4), 9, column, row};
    body.insert(body.end(), text.begin(), text.end());
    body.push_back(0);
    return Ask(ToHex(body));
  }
  Lines Rows() { return rack.Field<Lines>(0xE, "text"); }

  const std::string empty = std::string(20, ' ');
};

TEST_F(Display, ShowsTextAtItsColumnAndRowCutAtTheEndOfTheRow) {
  EXPECT_EQ(Text(3, 1, "Tail of the cat"), "41 0E");
  EXPECT_EQ(Text(15, 0, "ABCDEFGH"), "41 0E");
  EXPECT_EQ(Text(0, 2, "a\xDF\x01z"), "41 0E");
  EXPECT_EQ(Rows(),
            (Lines{"               ABCDE", "   Tail of the cat  ", "a??z                ", empty}));
  EXPECT_EQ(rack.Field<std::vector<int>>(0xE, "cursor at"), (std::vector<int>{4, 2}));
  Text(15, 0, "ABCDE");
  EXPECT_EQ(rack.Field<std::vector<int>>(0xE, "cursor at"), (std::vector<int>{19, 0}));
  EXPECT_EQ(lines[0], "card E text 3,1 'Tail of the cat'");
}

TEST_F(Display, RefusesPlacesThatItDoesNotHaveAndCodesThatItDoesNotKnow) {
  EXPECT_EQ(Text(20, 0, "x"), "4E 0E");
  EXPECT_EQ(Text(0, 4, "x"), "4E 0E");
  Converse({{"10 0E 01 07", "4E 0E"}, {"10 0E 00", "4E 0E"}, {"10 0E 02 09 00", "4E 0E"}});
}

TEST_F(Display, DoesWhatEachCodeSays) {
  const struct {
    const char* code;
    const char* field;
    bool after;
    const char* event;
  } kCodes[] = {{"02", "light", false, "light off"}, {"01", "light", true, "light on"},
                {"03", "cursor", true, "cursor on"}, {"04", "cursor", false, "cursor off"},
                {"05", "blink", true, "blink on"},   {"06", "blink", false, "blink off"}};
  for (const auto& each : kCodes) {
    Converse({{std::string("10 0E 01 ") + each.code, "41 0E"}});
    EXPECT_EQ(rack.Field<bool>(0xE, each.field), each.after) << each.event;
    EXPECT_EQ(TakeLines(), Lines{std::string("card E ") + each.event});
  }
  Text(0, 0, "x");
  Converse({{"10 0E 01 00", "41 0E"}});
  EXPECT_EQ(Rows(), Lines(4, empty));
  EXPECT_TRUE(rack.Field<bool>(0xE, "light"));
}

TEST_F(Display, ShowsItsSelfTestAfterARebootUntilTheFirstText) {
  Ask("50 0E 01 AB");
  EXPECT_EQ(Rows(), (Lines{"SELF TEST OK        ", "CARD E              ", empty, empty}));
  Text(0, 2, "x");
  EXPECT_EQ(Rows(), (Lines{empty, empty, "x" + std::string(19, ' '), empty}));
}

TEST_F(Display, BootsWithoutSelfTestAndLightWhenToldSo) {
  Converse({{"50 0E 01 01 00", "51 0E 01 00"},
            {"50 0E 01 02 00", "51 0E 02 00"},
            {"50 0E 01 AB", "51 0E AB 00"}});
  EXPECT_EQ(Rows(), Lines(4, empty));
  EXPECT_FALSE(rack.Field<bool>(0xE, "light"));
}

TEST_F(Display, HasAnySize) {
  EXPECT_TRUE(Operate(0xE, [](CARD& card) { return card.Resize(10, 1); }));
  EXPECT_EQ(Rows(), Lines{"SELF TEST "});
}

// --- infrared -----------------------------------------------------------------------------------

TEST_F(Cards, AnIrCardKeepsTheLastOfTheStreamsSent) {
  Converse({{"10 09 0A 09 43 4F 43 4B 52 4F 41 43 48", "41 09"}});
  EXPECT_EQ(TakeLines(), Lines{"card 9 sent 43 4F 43 4B 52 4F 41 43 48"});
  for (int i = 0; i < 150; ++i)
    Ask("10 09 02 01 " + ToHex(static_cast<std::uint8_t>(i)));
  const Lines sent = rack.Field<Lines>(9, "sent");
  EXPECT_EQ(sent.size(), 100U);
  EXPECT_EQ(sent.back(), "95");
  EXPECT_EQ(rack.Field<int>(9, "count"), 151);
}

TEST_F(Cards, AnIrCardRefusesStreamsThatAreEmptyTooLongOrMiscounted) {
  Bytes stream(23, 0x55);
  stream.insert(stream.begin(), {0x10, 9, 24, 23});
  Converse({{"10 09 00", "4E 09"}, {"10 09 01 00", "4E 09"}, {"10 09 02 02 55", "4E 09"}});
  EXPECT_EQ(Ask(ToHex(stream)), "41 09");
  stream.push_back(0x55);
  stream[2] = 25;
  stream[3] = 24;
  EXPECT_EQ(Ask(ToHex(stream)), "4E 09");
}

}  // namespace
}  // namespace sim
