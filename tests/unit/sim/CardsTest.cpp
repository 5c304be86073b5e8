#include "sim/rack/Cards.h"
#include "sim/rack/Rack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// The default rack with a clock that goes only when told to.
class Cards : public ::testing::Test {
 protected:
  Cards() : rack([this] { return now; }) {
    rack.PopulateDefault();
    rack.SetListener([this](const std::string& line) { lines.push_back(line); });
  }

  Bytes Ask(const Bytes& request) { return rack.Answer(request).value_or(Bytes{}); }
  Bytes WriteParameter(std::uint8_t address, std::uint8_t code, std::uint8_t value) {
    return Ask({0x50, address, 0x01, code, value});
  }
  Bytes ReadParameter(std::uint8_t address, std::uint8_t code) {
    return Ask({0x50, address, 0x40, code});
  }
  Bytes Act(std::uint8_t address, std::uint8_t code) { return Ask({0x50, address, 0x01, code}); }
  template <class CARD_CLASS, class GET>
  auto Get(int address, GET get) {
    decltype(get(std::declval<CARD_CLASS&>())) value{};
    EXPECT_TRUE(rack.With<CARD_CLASS>(address, [&](CARD_CLASS& card) { value = get(card); }));
    return value;
  }

  TIME now{};
  RACK rack;
  std::vector<std::string> lines;
};

using Lines = std::vector<std::string>;

TEST_F(Cards, EveryTypeOfTheTableHasAClassThatIsOfThatType) {
  for (const CARD_TYPE& row : kCardTypes) {
    const auto card = MakeCard(row.code, 4, [](const std::string&) {});
    EXPECT_EQ(card->TypeCode(), row.code);
    EXPECT_EQ(card->Type(), &row);
    EXPECT_EQ(dynamic_cast<UNKNOWN_CARD*>(card.get()), nullptr) << row.keyword;
    EXPECT_EQ(FindCardType(row.keyword), &row);
  }
}

TEST_F(Cards, EveryParameterOfTheTableIsWrittenAndReadByItsCodes) {
  for (const PARAMETER& row : kParameters) {
    rack.Insert(2, row.type);
    for (int channel = 0; channel < row.channels; ++channel) {
      const auto at = [channel](std::uint8_t first) {
        return static_cast<std::uint8_t>(first + channel);
      };
      const auto value = static_cast<std::uint8_t>(row.maximum - channel);
      if (row.writeCode != 0) {
        EXPECT_EQ(WriteParameter(2, at(row.writeCode), value),
                  (Bytes{0x51, 2, at(row.writeCode), value}));
      }
      if (row.readCode != 0) {
        EXPECT_EQ(ReadParameter(2, at(row.readCode)), (Bytes{0x51, 2, at(row.readCode), value}));
      }
      if (row.writeCode != 0 && row.maximum < 0xFF) {
        EXPECT_EQ(WriteParameter(2, at(row.writeCode), static_cast<std::uint8_t>(row.maximum + 1)),
                  (Bytes{'N', 2}));
      }
    }
  }
}

TEST_F(Cards, EveryParameterComesBackFromARebootAsTheTableSays) {
  for (const PARAMETER& row : kParameters) {
    if (row.writeCode == 0)
      continue;
    rack.Insert(2, row.type);
    const auto changed = static_cast<std::uint8_t>(row.start == 0x10 ? 0x11 : 0x10);
    WriteParameter(2, row.writeCode, changed);
    Act(2, 0xAB);
    const int after = Get<CARD>(2, [&](CARD& card) { return card.Parameter(row.name); });
    EXPECT_EQ(after, row.keptAtOnce ? changed : row.start) << row.name;
  }
}

TEST_F(Cards, EveryActionOfTheTableIsAcknowledgedByItsTypeAndRefusedByOthers) {
  for (const ACTION& action : kActions) {
    for (const CARD_TYPE& card : kCardTypes) {
      rack.Insert(2, card.code);
      const Bytes answer = Act(2, action.code);
      if (action.type == 0 || action.type == card.code)
        EXPECT_EQ(answer, (Bytes{0x51, 2, action.code, 0})) << action.event << card.keyword;
      else if (card.code == type::kLcd && action.code == 0x02)
        EXPECT_EQ(answer, Bytes{'#'});  // there it is a parameter whose value is missing
      else
        EXPECT_EQ(answer, (Bytes{'N', 2})) << action.event << card.keyword;
    }
  }
}

TEST_F(Cards, APollWithAnotherCountIsRefused) {
  EXPECT_EQ(Ask({0x20, 3, 2}), (Bytes{0x21, 3, 0, 0}));
  EXPECT_EQ(Ask({0x20, 3, 1}), (Bytes{'N', 3}));
  EXPECT_EQ(Ask({0x20, 3, 0}), (Bytes{'N', 3}));
  EXPECT_EQ(Ask({0x20, 5, 2}), (Bytes{'N', 5}));
}

TEST_F(Cards, APollThatGrewByASecondIdentificationIsAnswered) {
  EXPECT_EQ(Ask({0x20, 3, 2, 0x20, 3, 2}), (Bytes{0x21, 3, 0, 0}));
}

TEST_F(Cards, ADigitalOutputLightsTheLampsWhoseBitIsZero) {
  EXPECT_EQ(Ask({0x10, 5, 2, 0xFE, 0xFB}), (Bytes{0x41, 5}));
  EXPECT_TRUE(Get<DIGITAL_OUTPUT_CARD>(5, [](auto& card) { return card.Lit(0) && card.Lit(10); }));
  EXPECT_FALSE(Get<DIGITAL_OUTPUT_CARD>(5, [](auto& card) { return card.Lit(1) || card.Lit(16); }));
  EXPECT_EQ(lines, (Lines{"card 5 block 0 = FE", "card 5 block 1 = FB"}));
}

TEST_F(Cards, ADigitalOutputRefusesAnythingButTwoBlocks) {
  EXPECT_EQ(Ask({0x10, 5, 1, 0x00}), (Bytes{'N', 5}));
  EXPECT_EQ(Ask({0x10, 5, 3, 0x00, 0x00, 0x00}), (Bytes{'N', 5}));
  EXPECT_EQ(rack.Value(5, 0), 0xFF);
}

TEST_F(Cards, ADigitalOutputIsDarkAfterAReboot) {
  Ask({0x10, 5, 2, 0x00, 0x00});
  EXPECT_EQ(Act(5, 0xAB), (Bytes{0x51, 5, 0xAB, 0}));
  EXPECT_EQ(rack.Value(5, 0), 0xFF);
  EXPECT_EQ(rack.Value(5, 1), 0xFF);
}

TEST_F(Cards, APressedKeyIsAOneBit) {
  ASSERT_TRUE(rack.Press(3, 6));
  ASSERT_TRUE(rack.Press(3, 15));
  EXPECT_EQ(Ask({0x20, 3, 2}), (Bytes{0x21, 3, 0x40, 0x80}));
  ASSERT_TRUE(rack.Release(3, 6));
  EXPECT_EQ(Ask({0x20, 3, 2}), (Bytes{0x21, 3, 0x00, 0x80}));
  EXPECT_EQ(lines, (Lines{"card 3 input block 0 = 40", "card 3 input block 1 = 80",
                          "card 3 input block 0 = 00"}));
}

TEST_F(Cards, ABlockOfKeysIsSetAtOnce) {
  ASSERT_TRUE(rack.Set(3, 1, 0xA5));
  EXPECT_EQ(Ask({0x20, 3, 2}), (Bytes{0x21, 3, 0x00, 0xA5}));
  EXPECT_FALSE(rack.Set(3, 2, 0));
  EXPECT_FALSE(rack.Set(3, 0, 256));
}

TEST_F(Cards, AServoTravelsToItsTargetWithItsSpeed) {
  EXPECT_TRUE(Get<SERVO_CARD>(0, [](auto& card) { return card.SetSpeed(100).ok; }));
  EXPECT_EQ(Ask({0x10, 0, 6, 0x80, 0x80, 0x80, 0x80, 0xB2, 0x80}), (Bytes{0x41, 0}));
  EXPECT_EQ(rack.Value(0, 4), 0xB2);
  const auto position = [this] {
    return Get<SERVO_CARD>(0, [](auto& card) { return card.Position(4); });
  };
  EXPECT_DOUBLE_EQ(position(), 128);
  now += 250ms;
  EXPECT_DOUBLE_EQ(position(), 153);
  EXPECT_TRUE(rack.Advance());
  now += 250ms;
  EXPECT_DOUBLE_EQ(position(), 178);
  EXPECT_FALSE(rack.Advance());
  EXPECT_EQ(lines, (Lines{"card 0 servo 4 = B2", "card 0 servo 4 reached B2"}));
}

TEST_F(Cards, AServoTurnsBackOnItsWay) {
  Get<SERVO_CARD>(0, [](auto& card) { return card.SetSpeed(100).ok; });
  Ask({0x10, 0, 6, 0xFF, 0x80, 0x80, 0x80, 0x80, 0x80});
  now += 500ms;
  Ask({0x10, 0, 6, 0x00, 0x80, 0x80, 0x80, 0x80, 0x80});
  now += 250ms;
  EXPECT_DOUBLE_EQ(Get<SERVO_CARD>(0, [](auto& card) { return card.Position(0); }), 153);
}

TEST_F(Cards, AServoMovesBetweenItsEndPositions) {
  WriteParameter(0, 0xC3, 0x40);
  WriteParameter(0, 0xD3, 0xC0);
  Get<SERVO_CARD>(0, [](auto& card) { return card.SetSpeed(0).ok; });
  Ask({0x10, 0, 6, 0x80, 0x80, 0x80, 0xFF, 0x80, 0x80});
  EXPECT_DOUBLE_EQ(Get<SERVO_CARD>(0, [](auto& card) { return card.Pulse(3); }), 0xC0);
  Ask({0x10, 0, 6, 0x80, 0x80, 0x80, 0x00, 0x80, 0x80});
  EXPECT_DOUBLE_EQ(Get<SERVO_CARD>(0, [](auto& card) { return card.Pulse(3); }), 0x40);
  EXPECT_EQ(lines[0], "card 0 endA3 = 40");
}

TEST_F(Cards, ServosStoreTheirPositionsAndMoveToThem) {
  Ask({0x10, 0, 6, 1, 2, 3, 4, 5, 6});
  EXPECT_EQ(Act(0, 0x74), (Bytes{0x51, 0, 0x74, 0}));
  Ask({0x10, 0, 6, 9, 9, 9, 9, 9, 9});
  EXPECT_EQ(rack.Value(0, 5), 9);
  EXPECT_EQ(Act(0, 0x3F), (Bytes{0x51, 0, 0x3F, 0}));
  for (int servo = 0; servo < 6; ++servo)
    EXPECT_EQ(rack.Value(0, servo), servo + 1);
}

TEST_F(Cards, ServosGoToTheirStoredPositionsAfterAReboot) {
  Ask({0x10, 0, 6, 1, 2, 3, 4, 5, 6});
  Act(0, 0xAB);
  EXPECT_EQ(rack.Value(0, 0), 0x80);
}

TEST_F(Cards, AMotorTakesSignedSpeedsAndStandsInItsSilentRange) {
  const auto percent = [this](int motor) {
    return Get<MOTOR_CARD>(1, [motor](auto& card) { return card.Percent(motor); });
  };
  EXPECT_EQ(Ask({0x10, 1, 4, 0x7F, 0x81, 0x80, 0x00}), (Bytes{0x41, 1}));
  EXPECT_EQ(percent(0), 100);
  EXPECT_EQ(percent(1), -100);
  EXPECT_EQ(percent(2), -100);
  WriteParameter(1, 0xC0, 0x10);
  Ask({0x10, 1, 4, 0x0F, 0x00, 0x00, 0x00});
  EXPECT_EQ(percent(0), 0);
  Ask({0x10, 1, 4, 0x10, 0x00, 0x00, 0x00});
  EXPECT_EQ(percent(0), 12);
}

TEST_F(Cards, AMotorWithoutSilentRangeObeysTheControlByte) {
  const auto percent = [this](int motor) {
    return Get<MOTOR_CARD>(1, [motor](auto& card) { return card.Percent(motor); });
  };
  WriteParameter(1, 0xC1, 0x00);
  Ask({0x10, 1, 4, 0x00, 0xFF, 0x00, 0x00});
  EXPECT_EQ(percent(1), 0);
  Ask({0x10, 1, 4, 0x00, 0xFF, 0x00, 0x04});
  EXPECT_EQ(percent(1), 100);
  Ask({0x10, 1, 4, 0x00, 0xFF, 0x00, 0x08});
  EXPECT_EQ(percent(1), -100);
  Ask({0x10, 1, 4, 0x00, 0xFF, 0x00, 0x0C});
  EXPECT_EQ(percent(1), 0);
}

TEST_F(Cards, AMotorReportsItsTurningWhenTheSilentRangeChangesIt) {
  Ask({0x10, 1, 4, 0x10, 0x00, 0x00, 0x00});
  WriteParameter(1, 0xC0, 0x20);
  EXPECT_EQ(lines, (Lines{"card 1 block 0 = 10", "card 1 motor 0 at 12%", "card 1 silent0 = 20",
                          "card 1 motor 0 at 0%"}));
}

TEST_F(Cards, SilentRangesLastOverARebootOnlyWhenStored) {
  WriteParameter(1, 0xC2, 0x20);
  Act(1, 0xAB);
  EXPECT_EQ(ReadParameter(1, 0x03), (Bytes{0x51, 1, 0x03, 0x01}));
  WriteParameter(1, 0xC2, 0x20);
  EXPECT_EQ(Act(1, 0xCD), (Bytes{0x51, 1, 0xCD, 0}));
  Act(1, 0xAB);
  EXPECT_EQ(ReadParameter(1, 0x03), (Bytes{0x51, 1, 0x03, 0x20}));
}

TEST_F(Cards, APotIsPolledWithItsValue) {
  ASSERT_TRUE(rack.Set(0xF, 3, 0x20));
  EXPECT_EQ(Ask({0x20, 0xF, 6}), (Bytes{0x21, 0xF, 0, 0, 0, 0x20, 0, 0}));
  EXPECT_FALSE(rack.Set(0xF, 6, 0));
  EXPECT_FALSE(rack.Set(0xF, 0, -1));
}

TEST_F(Cards, AMaskedPotAnswersZeroAndTheMaskIsStored) {
  ASSERT_TRUE(rack.Set(0xF, 3, 0x20));
  ASSERT_TRUE(rack.Set(0xF, 4, 0x30));
  WriteParameter(0xF, 0x01, 0x17);
  EXPECT_EQ(Ask({0x20, 0xF, 6}), (Bytes{0x21, 0xF, 0, 0, 0, 0, 0x30, 0}));
  EXPECT_EQ(Act(0xF, 0x02), (Bytes{0x51, 0xF, 0x02, 0}));
  Act(0xF, 0xAB);
  EXPECT_EQ(ReadParameter(0xF, 0x01), (Bytes{0x51, 0xF, 0x01, 0x17}));
}

TEST_F(Cards, ANoisyPotStaysWithinItsAmplitudeAndDoesMove) {
  ASSERT_TRUE(rack.Set(0xF, 0, 0x80));
  ASSERT_TRUE(rack.Set(0xF, 1, 0xFF));
  Get<ANALOGUE_CARD>(0xF, [](auto& card) { return card.SetNoise(0, 5) && card.SetNoise(1, 5); });
  std::set<int> seen;
  for (int i = 0; i < 1000; ++i) {
    const Bytes answer = Ask({0x20, 0xF, 6});
    seen.insert(answer[2]);
    EXPECT_GE(answer[3], 0xFA);
  }
  EXPECT_EQ(*seen.begin(), 0x7B);
  EXPECT_EQ(*seen.rbegin(), 0x85);
  EXPECT_EQ(seen.size(), 11U);
}

TEST_F(Cards, ARampTakesItsTime) {
  Get<ANALOGUE_CARD>(0xF, [](auto& card) { return card.Ramp(2, 200, 1000ms).ok; });
  now += 250ms;
  EXPECT_EQ(Ask({0x20, 0xF, 6})[4], 50);
  now += 500ms;
  EXPECT_EQ(Ask({0x20, 0xF, 6})[4], 150);
  EXPECT_TRUE(rack.Advance());
  now += 500ms;
  EXPECT_EQ(Ask({0x20, 0xF, 6})[4], 200);
  EXPECT_FALSE(rack.Advance());
  EXPECT_EQ(lines, Lines{"card F pot 2 reached C8"});
}

TEST_F(Cards, SettingAPotEndsItsRamp) {
  Get<ANALOGUE_CARD>(0xF, [](auto& card) { return card.Ramp(2, 200, 1000ms).ok; });
  now += 250ms;
  ASSERT_TRUE(rack.Set(0xF, 2, 7));
  now += 250ms;
  EXPECT_EQ(Ask({0x20, 0xF, 6})[4], 7);
}

TEST_F(Cards, KeysAndTurnsAreAnsweredOneByOne) {
  ASSERT_TRUE(rack.Press(8, 0x12));
  ASSERT_TRUE(rack.Release(8, 0x12));
  ASSERT_TRUE(rack.Turn(8, 2));
  ASSERT_TRUE(rack.Turn(8, -3));
  Bytes seen;
  for (int i = 0; i < 9; ++i)
    seen.push_back(Ask({0x20, 8, 1})[2]);
  EXPECT_EQ(seen, (Bytes{0x12, 0x00, 0x81, 0x82, 0x81, 0x80, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(lines, (Lines{"card 8 key 12 pressed", "card 8 key 12 released", "card 8 encoder at 2",
                          "card 8 encoder at 127"}));
}

TEST_F(Cards, KeysRefuseCodesThatTheByteCannotHold) {
  EXPECT_FALSE(rack.Press(8, 0));
  EXPECT_FALSE(rack.Press(8, 0x80));
  EXPECT_FALSE(rack.Turn(8, 128));
  EXPECT_FALSE(rack.Turn(8, -128));
}

TEST_F(Cards, KeysHoldABoundedNumberOfEventsAndSaySo) {
  ASSERT_TRUE(rack.Turn(8, 127));
  ASSERT_TRUE(rack.Turn(8, 127));
  EXPECT_EQ(rack.Turn(8, 3).text, "the card holds 256 events already that nobody polled");
  EXPECT_EQ(Ask({0x20, 8, 1}), (Bytes{0x21, 8, 0x81}));
  EXPECT_TRUE(rack.Turn(8, 1));
}

TEST_F(Cards, AKeyThatIsDownSurvivesAReboot) {
  ASSERT_TRUE(rack.Press(8, 0x12));
  ASSERT_TRUE(rack.Turn(8, 5));
  Act(8, 0xAB);
  EXPECT_EQ(Ask({0x20, 8, 1}), (Bytes{0x21, 8, 0x12}));
}

class Display : public Cards {
 protected:
  Display() {
    Ask({0x10, 0xE, 1, 0});
    lines.clear();
  }
  Bytes Text(std::uint8_t column, std::uint8_t row, const std::string& text) {
    Bytes body{0x10, 0xE, static_cast<std::uint8_t>(text.size() + 4), 9, column, row};
    for (const char c : text)
      body.push_back(static_cast<std::uint8_t>(c));
    body.push_back(0);
    return Ask(body);
  }
  Lines Rows() {
    return Get<LCD_CARD>(0xE, [](auto& card) { return card.Rows(); });
  }
  bool Is(bool (LCD_CARD::*property)() const) {
    return Get<LCD_CARD>(0xE, [property](auto& card) { return (card.*property)(); });
  }
};

TEST_F(Display, ShowsTextAtItsColumnAndRow) {
  EXPECT_EQ(Text(3, 1, "Tail of the cat"), (Bytes{0x41, 0xE}));
  EXPECT_EQ(Rows(), (Lines{"                    ", "   Tail of the cat  ", "                    ",
                           "                    "}));
  EXPECT_EQ(lines, Lines{"card E text 3,1 'Tail of the cat'"});
}

TEST_F(Display, CutsTextAtTheEndOfTheRow) {
  EXPECT_EQ(Text(15, 0, "ABCDEFGH"), (Bytes{0x41, 0xE}));
  EXPECT_EQ(Rows()[0], "               ABCDE");
  EXPECT_EQ(Rows()[1], "                    ");
  EXPECT_EQ(Get<LCD_CARD>(0xE, [](auto& card) { return card.CursorColumn(); }), 19);
}

TEST_F(Display, RefusesPlacesThatItDoesNotHaveAndCodesThatItDoesNotKnow) {
  EXPECT_EQ(Text(20, 0, "x"), (Bytes{'N', 0xE}));
  EXPECT_EQ(Text(0, 4, "x"), (Bytes{'N', 0xE}));
  EXPECT_EQ(Ask({0x10, 0xE, 1, 7}), (Bytes{'N', 0xE}));
  EXPECT_EQ(Ask({0x10, 0xE, 0}), (Bytes{'N', 0xE}));
  EXPECT_EQ(Ask({0x10, 0xE, 2, 9, 0}), (Bytes{'N', 0xE}));
}

TEST_F(Display, ShowsAQuestionMarkForWhatIsNoPrintableCharacter) {
  Text(0, 0, "a\xDF\x01z");
  EXPECT_EQ(Rows()[0].substr(0, 4), "a??z");
}

TEST_F(Display, SwitchesLightCursorAndBlinking) {
  struct CASE {
    std::uint8_t code;
    bool (LCD_CARD::*property)() const;
    bool after;
  };
  for (const CASE& each : {CASE{2, &LCD_CARD::Light, false}, CASE{1, &LCD_CARD::Light, true},
                           CASE{3, &LCD_CARD::Cursor, true}, CASE{4, &LCD_CARD::Cursor, false},
                           CASE{5, &LCD_CARD::Blink, true}, CASE{6, &LCD_CARD::Blink, false}}) {
    EXPECT_EQ(Ask({0x10, 0xE, 1, each.code}), (Bytes{0x41, 0xE}));
    EXPECT_EQ(Is(each.property), each.after) << static_cast<int>(each.code);
  }
}

TEST_F(Display, ClearsTheTextAndLeavesTheLight) {
  Ask({0x10, 0xE, 1, 1});
  Text(0, 0, "x");
  Ask({0x10, 0xE, 1, 0});
  EXPECT_EQ(Rows()[0], std::string(20, ' '));
  EXPECT_TRUE(Is(&LCD_CARD::Light));
}

TEST_F(Display, ShowsItsSelfTestAfterARebootUntilTheFirstText) {
  Act(0xE, 0xAB);
  EXPECT_EQ(Rows()[0], "SELF TEST OK        ");
  EXPECT_EQ(Rows()[1], "CARD E              ");
  Text(0, 2, "x");
  EXPECT_EQ(Rows()[0], std::string(20, ' '));
  EXPECT_EQ(Rows()[2], "x" + std::string(19, ' '));
}

TEST_F(Display, BootsWithoutSelfTestAndLightWhenToldSo) {
  EXPECT_EQ(WriteParameter(0xE, 0x01, 0x00), (Bytes{0x51, 0xE, 0x01, 0x00}));
  EXPECT_EQ(WriteParameter(0xE, 0x02, 0x00), (Bytes{0x51, 0xE, 0x02, 0x00}));
  Act(0xE, 0xAB);
  EXPECT_EQ(Rows()[0], std::string(20, ' '));
  EXPECT_FALSE(Is(&LCD_CARD::Light));
}

TEST_F(Display, HasAnySizeUpTo40By4) {
  EXPECT_TRUE(Get<LCD_CARD>(0xE, [](auto& card) { return card.Resize(16, 2).ok; }));
  EXPECT_EQ(Rows().size(), 2U);
  EXPECT_EQ(Rows()[0].size(), 16U);
  EXPECT_FALSE(Get<LCD_CARD>(0xE, [](auto& card) { return card.Resize(41, 2).ok; }));
  EXPECT_FALSE(Get<LCD_CARD>(0xE, [](auto& card) { return card.Resize(16, 0).ok; }));
}

TEST_F(Cards, AnIrCardKeepsTheStreamsSent) {
  EXPECT_EQ(Ask({0x10, 9, 0x0A, 9, 'C', 'O', 'C', 'K', 'R', 'O', 'A', 'C', 'H'}), (Bytes{0x41, 9}));
  EXPECT_EQ(lines, Lines{"card 9 sent 43 4F 43 4B 52 4F 41 43 48"});
  for (int i = 0; i < 150; ++i)
    Ask({0x10, 9, 2, 1, static_cast<std::uint8_t>(i)});
  const auto sent = Get<IR_CARD>(9, [](auto& card) { return card.Sent(); });
  EXPECT_EQ(sent.size(), IR_CARD::kMaximumLog);
  EXPECT_EQ(sent.back(), Bytes{149});
}

TEST_F(Cards, AnIrCardRefusesStreamsThatAreEmptyTooLongOrMiscounted) {
  EXPECT_EQ(Ask({0x10, 9, 0}), (Bytes{'N', 9}));
  EXPECT_EQ(Ask({0x10, 9, 1, 0}), (Bytes{'N', 9}));
  EXPECT_EQ(Ask({0x10, 9, 2, 2, 0x55}), (Bytes{'N', 9}));
  Bytes tooLong{0x10, 9, 25, 24};
  tooLong.resize(28);
  EXPECT_EQ(Ask(tooLong), (Bytes{'N', 9}));
}

TEST_F(Cards, PresetsAreCheckedAgainstTheTable) {
  const auto preset = [this](const std::string& name, int channel, int value) {
    return Get<SERVO_CARD>(0,
                           [&](auto& card) { return card.PresetParameter(name, channel, value); });
  };
  EXPECT_TRUE(preset("endA", 5, 0x20));
  EXPECT_EQ(ReadParameter(0, 0x26), (Bytes{0x51, 0, 0x26, 0x20}));
  EXPECT_EQ(preset("mask", 0, 1).text,
            "a servo card has no parameter 'mask'; it has endA, endB, position");
  EXPECT_FALSE(preset("endA", 6, 1));
  EXPECT_FALSE(preset("endA", 0, 256));
}

TEST_F(Cards, AllShowTheirStateAndParameters) {
  for (int address = 0; address < kSlots; ++address) {
    rack.WithCard(address, [&](CARD& card) {
      const auto fields = card.Show();
      ASSERT_GE(fields.size(), 4U);
      EXPECT_EQ(fields[0].name, "address");
      EXPECT_EQ(std::get<std::string>(fields[0].value), AddressText(address));
      EXPECT_EQ(std::get<std::string>(fields[1].value), card.Keyword());
    });
  }
}

}  // namespace
}  // namespace sim
