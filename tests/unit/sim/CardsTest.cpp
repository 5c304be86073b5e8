#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

namespace sim {
namespace {

/// A field's value in words; a list of texts has commas.
struct IN_WORDS {
  std::string operator()(const std::string& value) const { return value; }
  std::string operator()(const Bytes& value) const { return ToHex(value); }
  std::string operator()(std::uint8_t value) const { return ToHex(value); }
  template <class ITEM>
  std::string operator()(const std::vector<ITEM>& values) const {
    const std::string between = std::is_same_v<ITEM, std::string> ? ", " : " ";
    std::string text;
    for (const ITEM& value : values) {
      text += between + (*this)(value);
    }
    return text.substr(std::min(between.size(), text.size()));
  }
  template <class NUMBER>
  std::string operator()(NUMBER value) const {
    std::ostringstream text;
    text << value;
    return text.str();
  }
};

/// The default rack with a clock that goes only when told to.
class Cards : public ::testing::Test {
 protected:
  Cards() : rack([this] { return now; }) {
    rack.PopulateDefault();
    rack.SetListener(
        [this](const std::string& line) { events.push_back(line.substr(sizeof "card")); });
  }

  std::string Ask(const std::string& request) { return sim::Ask(rack, request); }

  /// "20 03 02" asks on the bus, "wait 250" lets milliseconds pass, "events" are those since the
  /// last time, and all else names an action, a card, and numbers: "press 3 6", "see 3 pressed".
  std::string Do(const std::string& what) {
    std::istringstream words(what);
    std::string verb;
    words >> verb;
    if (verb.size() == 2) {
      return Ask(what);
    }
    if (verb == "events") {
      return IN_WORDS()(std::exchange(events, {}));
    }
    std::string first;
    words >> first;
    if (verb == "wait") {
      now += std::chrono::milliseconds(std::stoi(first));
      return rack.Advance() ? "moving" : "";
    }
    std::string text = "no card";
    std::string name;
    std::array<int, 3> n{};
    if (verb == "see" || verb == "preset") {
      words >> name;
    }
    for (int& number : n) {
      words >> number;
    }
    rack.WithCard(std::stoi(first, nullptr, 16), [&](CARD& card) {
      text = verb == "see" ? See(card, name) : Act(card, verb, name, n);
    });
    return text;
  }
  static std::string See(const CARD& card, std::string name) {
    std::replace(name.begin(), name.end(), '_', ' ');
    for (const FIELD& field : card.Show()) {
      if (field.name == name) {
        return std::visit(IN_WORDS(), field.value);
      }
    }
    return "shows nothing of that name";
  }
  static std::string Act(CARD& card, const std::string& verb, const std::string& name,
                         const std::array<int, 3>& n) {
    const std::map<std::string, std::function<RESULT()>> kActions{
        {"press", [&] { return card.Press(n[0]); }},
        {"release", [&] { return card.Release(n[0]); }},
        {"turn", [&] { return card.Turn(n[0]); }},
        {"set", [&] { return card.Set(n[0], n[1]); }},
        {"ramp", [&] { return card.Ramp(n[0], n[1], std::chrono::milliseconds(n[2])); }},
        {"noise", [&] { return card.SetNoise(n[0], n[1]); }},
        {"speed", [&] { return card.SetSpeed(n[0]); }},
        {"resize", [&] { return card.Resize(n[0], n[1]); }},
        {"preset", [&] { return card.PresetParameter(name, n[0], n[1]); }},
    };
    return kActions.at(verb)().text;
  }
  /// Nothing is good.
  void Converse(const std::string& steps) {
    sim::Converse(steps, "", [this](const std::string& what) { return Do(what); });
  }

  TIME now{};
  support::RACK rack;
  std::vector<std::string> events;
};

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
      if (row.writeCode == 0) {
        continue;
      }
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
      if (action.type == 0 || action.type == card.code) {
        expected = "51 02 " + code + " 00";
      } else if (card.code == type::kLcd && action.code == 0x02) {
        expected = "23";  // there it is a parameter whose value is missing
      }
      EXPECT_EQ(Ask("50 02 01 " + code), expected) << action.event << card.keyword;
    }
  }
}

TEST_F(Cards, WhatATypeOrANumberDoesNotHaveIsRefused) {
  Converse(R"(
      press 5 0 -> card 5 (digital-out) has no keys
      release 5 0 -> card 5 (digital-out) has no keys
      press 3 16 -> card 3 has no key 16; 0 to 15 are there
      press 3 -1 -> card 3 has no key -1; 0 to 15 are there
      press 8 0 -> a key code is 1 to 7F (hexadecimal)
      press 8 128 -> a key code is 1 to 7F (hexadecimal)
      release 8 128 -> a key code is 1 to 7F (hexadecimal)
      turn 3 1 -> card 3 (digital-in) has no encoder | turn 8 128 -> a turn is -127 to 127 steps
      turn 8 -128 -> a turn is -127 to 127 steps
      set 0 0 0 -> card 0 (servo) has no inputs to set
      set 3 2 0 -> card 3 has no block 2; 0 to 1 are there
      set 3 0 256 -> a block's value is 00 to FF
      set F 6 0 -> card F has no pot 6; 0 to 5 are there
      set F 0 -1 -> a pot's value is 00 to FF | ramp 3 0 0 1 -> card 3 (digital-in) has no pots
      ramp F 6 0 1 -> card F has no pot 6; 0 to 5 are there
      ramp F 0 256 1 -> a pot's value is 00 to FF
      noise 3 0 0 -> card 3 (digital-in) has no pots | noise F 0 256 -> noise is 00 to FF
      speed 3 1 -> card 3 (digital-in) has no servos
      speed 0 -1 -> a servo's speed is 0 (at once) to 100000 steps a second
      resize 0 1 1 -> only an lcd card has a Display
      resize E 41 2 -> a display has 1 to 40 columns and 1 to 4 rows
      resize E 16 0 -> a display has 1 to 40 columns and 1 to 4 rows
      preset 0 mask 0 1 -> a servo card has no parameter 'mask'; it has endA, endB, position
      preset 0 endA 6 1 -> card 0 has no channel 6; 0 to 5 are there
      preset 0 endA 0 256 -> endA is 00 to FF | preset 0 endA 5 32 | 50 00 40 26 -> 51 00 26 20
      events)");
}

TEST_F(Cards, ADigitalOutputLightsTheLampsWhoseBitIsZeroUntilAReboot) {
  Converse(R"(
      10 05 02 FE FB -> 41 05 | see 5 lit -> 0 10
      events -> 5 block 0 = FE, 5 block 1 = FB | 50 05 01 AB -> 51 05 AB 00 | see 5 lit)");
}

TEST_F(Cards, APressedKeyIsAOneBitAndABlockIsSetAtOnce) {
  Converse(R"(
      press 3 6 | press 3 15 | 20 03 02 -> 21 03 40 80 | see 3 pressed -> 6 15
      events -> 3 input block 0 = 40, 3 input block 1 = 80 | release 3 6
      set 3 1 165 | set 3 1 165 | 20 03 02 -> 21 03 00 A5
      events -> 3 input block 0 = 00, 3 input block 1 = A5)");
}

TEST_F(Cards, AServoTravelsToItsTargetWithItsSpeedAndTurnsBackOnItsWay) {
  Converse(R"(
      speed 0 100 | 10 00 06 80 80 80 80 B2 80 -> 41 00 | see 0 targets -> 80 80 80 80 B2 80
      see 0 positions -> 128 128 128 128 128 128 | wait 250 -> moving
      see 0 positions -> 128 128 128 128 153 128 | wait 250
      see 0 positions -> 128 128 128 128 178 128
      events -> 0 servo 4 = B2, 0 servo 4 reached B2
      10 00 06 FF 80 80 80 B2 80 -> 41 00 | wait 500 -> moving
      10 00 06 00 80 80 80 B2 80 -> 41 00 | wait 250 -> moving
      see 0 positions -> 153 128 128 128 178 128)");
}

TEST_F(Cards, AServoMovesBetweenItsEndPositions) {
  Converse(R"(
      speed 0 0 | 50 00 01 C3 40 -> 51 00 C3 40 | 50 00 01 D3 C0 -> 51 00 D3 C0
      events -> 0 endA3 = 40, 0 endB3 = C0 | 10 00 06 80 80 80 FF 80 80 -> 41 00
      see 0 pulses -> 128 128 128 192 128 128 | 10 00 06 80 80 80 00 80 80 -> 41 00
      see 0 pulses -> 128 128 128 64 128 128)");
}

TEST_F(Cards, ServosStoreTheirPositionsAndMoveToThemAlsoAfterAReboot) {
  Converse(R"(
      10 00 06 01 02 03 04 05 06 -> 41 00 | 50 00 01 AB -> 51 00 AB 00
      see 0 targets -> 80 80 80 80 80 80 | 10 00 06 01 02 03 04 05 06 -> 41 00
      50 00 01 74 -> 51 00 74 00)");
  for (const char* way : {"50 00 01 3F", "50 00 01 AB"}) {
    Ask("10 00 06 09 09 09 09 09 09");
    Ask(way);
    Converse("see 0 targets -> 01 02 03 04 05 06");
  }
}

TEST_F(Cards, AMotorTurnsAsSpeedSilentRangeAndControlByteSay) {
  Converse(R"(
      10 01 04 7F 81 00 00 -> 41 01 | see 1 percent -> 100 -100 0
      events -> 1 block 0 = 7F, 1 block 1 = 81, 1 motor 0 at 100%, 1 motor 1 at -100%
      10 01 04 7F 81 80 00 -> 41 01 | see 1 percent -> 100 -100 -100
      10 01 04 10 F1 0F 00 -> 41 01 | 50 01 01 C0 10 -> 51 01 C0 10
      50 01 01 C1 10 -> 51 01 C1 10 | 50 01 01 C2 10 -> 51 01 C2 10 | see 1 percent -> 12 0 0
      50 01 01 C0 11 -> 51 01 C0 11 | see 1 percent -> 0 0 0 | preset 1 silent 0 0
      preset 1 silent 1 0 | preset 1 silent 2 0 | 10 01 04 FF FF FF 24 -> 41 01
      see 1 percent -> 0 100 -100 | 10 01 04 FF FF 80 18 -> 41 01 | see 1 percent -> 0 -100 50
      10 01 04 FF FF FF 0F -> 41 01 | see 1 percent -> 0 0 0)");
}

TEST_F(Cards, AMotorReportsThatTheSilentRangeStopsIt) {
  Converse(R"(
      10 01 04 10 00 00 00 -> 41 01 | 50 01 01 C0 20 -> 51 01 C0 20
      events -> 1 block 0 = 10, 1 motor 0 at 12%, 1 silent0 = 20, 1 motor 0 at 0%)");
}

TEST_F(Cards, SilentRangesAndMaskLastOverARebootOnceStored) {
  Converse(R"(
      50 01 01 C2 20 -> 51 01 C2 20 | 50 01 01 CD -> 51 01 CD 00 | 50 01 01 AB -> 51 01 AB 00
      50 01 40 03 -> 51 01 03 20 | 50 0F 01 01 17 -> 51 0F 01 17 | 50 0F 01 02 -> 51 0F 02 00
      50 0F 01 AB -> 51 0F AB 00 | 50 0F 40 01 -> 51 0F 01 17)");
}

TEST_F(Cards, APotIsPolledWithItsValueAndAMaskedOneWithZero) {
  Converse(R"(
      set F 3 32 | set F 4 48 | 20 0F 06 -> 21 0F 00 00 00 20 30 00
      50 0F 01 01 17 -> 51 0F 01 17 | 20 0F 06 -> 21 0F 00 00 00 00 30 00)");
}

TEST_F(Cards, ANoisyPotStaysWithinItsAmplitudeAndDoesMove) {
  Converse("set F 0 128 | set F 1 255 | noise F 0 5 | noise F 1 5");
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
  Converse(R"(
      ramp F 2 200 1000 | wait 250 -> moving | see F values -> 00 00 32 00 00 00
      wait 500 -> moving | 20 0F 06 -> 21 0F 00 00 96 00 00 00 | wait 500
      see F values -> 00 00 C8 00 00 00 | events -> F pot 2 reached C8 | ramp F 2 0 1000
      wait 250 -> moving | set F 2 7 | wait 250 | see F values -> 00 00 07 00 00 00)");
}

TEST_F(Cards, KeysAndTurnsAreAnsweredOneByOne) {
  Converse(R"(
      press 8 18 | release 8 19 | release 8 18 | turn 8 2 | turn 8 -3
      events -> 8 key 12 pressed, 8 key 12 released, 8 encoder at 2, 8 encoder at 127)");
  for (const char* value : {"12", "00", "81", "82", "81", "80", "FF", "FF", "FF"}) {
    EXPECT_EQ(Ask("20 08 01"), std::string("21 08 ") + value);
  }
}

TEST_F(Cards, KeysHoldABoundedNumberOfEventsAndSaySo) {
  Converse(R"(
      press 8 18 | turn 8 127 | turn 8 127
      turn 8 3 -> the card holds 256 events already that nobody polled
      press 8 19 -> the card holds 256 events already that nobody polled
      release 8 18 -> the card holds 256 events already that nobody polled
      20 08 01 -> 21 08 12 | turn 8 1)");
}

TEST_F(Cards, AKeyThatIsDownSurvivesAReboot) {
  Converse("press 8 18 | turn 8 5 | 50 08 01 AB -> 51 08 AB 00 | 20 08 01 -> 21 08 12");
}

TEST_F(Cards, ADisplayShowsTextAtItsPlaceCutAtTheEndOfTheRow) {
  Converse(R"(
      10 0E 01 00 -> 41 0E | 10 0E 0A 09 03 01 54 61 69 6C 20 6F 00 -> 41 0E
      10 0E 0C 09 0F 02 41 42 43 44 45 46 47 48 00 -> 41 0E | see E cursor_at -> 19 2
      10 0E 08 09 00 00 61 DF 01 7A 00 -> 41 0E | see E cursor_at -> 4 0
      see E text -> a??z                ,    Tail o           ,                ABCDE,
      events -> E clear, E text 3,1 'Tail o', E text 15,2 'ABCDEFGH', E text 0,0 'a??z'
      10 0E 05 09 14 00 78 00 -> 4E 0E | 10 0E 05 09 00 04 78 00 -> 4E 0E
      10 0E 02 09 00 -> 4E 0E | 10 0E 01 07 -> 4E 0E | 10 0E 00 -> 4E 0E)");
}

TEST_F(Cards, ADisplayDoesWhatEachCodeSays) {
  Converse(R"(
      10 0E 01 02 -> 41 0E | see E light -> 0  | 10 0E 01 01 -> 41 0E | see E light -> 1
      10 0E 01 03 -> 41 0E | see E cursor -> 1 | 10 0E 01 04 -> 41 0E | see E cursor -> 0
      10 0E 01 05 -> 41 0E | see E blink -> 1  | 10 0E 01 06 -> 41 0E | see E blink -> 0
      events -> E light off, E light on, E cursor on, E cursor off, E blink on, E blink off
      resize E 2 2 | see E text -> SE, CA | 10 0E 01 00 -> 41 0E | see E text ->   ,
      see E light -> 1 | see E cursor_at -> 0 0 | events -> E clear)");
}

TEST_F(Cards, ADisplayShowsItsSelfTestAfterARebootUntilTheFirstText) {
  Converse(R"(
      resize E 13 3 | see E text -> SELF TEST OK , CARD E       ,
      10 0E 05 09 00 02 78 00 -> 41 0E | see E text ->              ,              , x
      50 0E 01 AB -> 51 0E AB 00 | see E text -> SELF TEST OK , CARD E       ,
      50 0E 01 01 00 -> 51 0E 01 00 | 50 0E 01 02 00 -> 51 0E 02 00 | 50 0E 01 AB -> 51 0E AB 00
      see E text ->              ,              , | see E light -> 0
      resize E 40 4 | see E columns -> 40 | see E rows -> 4)");
}

TEST_F(Cards, AnIrCardKeepsTheLastOfTheStreamsSentAndRefusesOthers) {
  for (int i = 0; i < 150; ++i) {
    Ask("10 09 02 01 " + ToHex(static_cast<std::uint8_t>(i)));
  }
  const auto sent = rack.Field<std::vector<std::string>>(9, "sent");
  EXPECT_EQ(sent.size(), 100U);
  EXPECT_EQ(sent.back(), "95");
  events.clear();
  const std::string longest = ToHex(Bytes(23, 0x55));
  Converse("10 09 18 17 " + longest + " -> 41 09 | events -> 9 sent " + longest + R"(
      10 09 19 18 55 )" +
           longest + R"( -> 4E 09 | see 9 count -> 151
      10 09 00 -> 4E 09 | 10 09 01 00 -> 4E 09 | 10 09 02 02 55 -> 4E 09)");
}

}  // namespace
}  // namespace sim
