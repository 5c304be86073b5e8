#include "client/BadValue.h"
#include "client/CaeRequest.h"
#include "tests/unit/client/BadValues.h"

#include <gtest/gtest.h>

namespace client {
namespace {

using LINES = std::vector<std::string>;

/// The result of a request after these lines; nothing where the answer is not complete with the
/// last of them, or was before.
std::optional<CAE_RESULT> After(const CAE_REQUEST& request, const LINES& lines) {
  CAE_ANSWER answer(request);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (answer.Take(lines[i])) {
      return i + 1 == lines.size() ? std::optional(answer.Result()) : std::nullopt;
    }
  }
  return std::nullopt;
}

LINES CardList(const std::string& title) {
  LINES lines = {title};
  for (int address = 0; address < kAddresses; ++address) {
    lines.push_back(std::string("DTI:0x") + AddressDigit(address) + ":EMPTY");
  }
  lines.emplace_back(">");
  return lines;
}

// --- what is sent -------------------------------------------------------------------------------

TEST(CaeRequest, IsTheLineOfTheCommandWithItsParameters) {
  EXPECT_EQ(SetSpeed(1).line, "SPEED=1");
  EXPECT_EQ(SetSpeed(100).line, "SPEED=100");
  EXPECT_EQ(EnablePolling(true).line, "ENABLEPOLL");
  EXPECT_EQ(EnablePolling(false).line, "DISABLEPOLL");
  EXPECT_EQ(PollCard(10, true).line, "POLLON:A");
  EXPECT_EQ(PollCard(15, false).line, "POLLOFF:F");
  EXPECT_EQ(AskPollState().line, "POLLSTATE");
  EXPECT_EQ(AskVersion().line, "DRVVER");
  EXPECT_EQ(ListCards().line, "DISCOVER");
  EXPECT_EQ(IdentifyCards().line, "FORCEDISCOVER");
  EXPECT_EQ(Reboot(5).line, "REBOOT:5");
  EXPECT_EQ(StoreMask(15).line, "STOREANMASK:F");
  EXPECT_EQ(StorePositions(0).line, "STORESRVPOS:0");
  EXPECT_EQ(RecallPositions(0).line, "MOVESTRPOS:0");
  EXPECT_EQ(StoreSilentRanges(1).line, "STOREMSRS:1");
  EXPECT_EQ(AskLastInput(3, 0).line, "GETLASTINPST:3=0");
  EXPECT_EQ(AskLastInput(15, 5).line, "GETLASTINPST:F=5");
  EXPECT_EQ(AskHelp().line, "HELP");
  EXPECT_EQ(AskIoExamples().line, "IOEXAMPLES");
  EXPECT_EQ(EndCae().line, "EXIT");
}

TEST(CaeRequest, SetsAndAsksAParameterOfACard) {
  EXPECT_EQ(SetParameter(15, PARAMETER::kMask, 0, 0x3F).line, "SETANMASK:F=3F");
  EXPECT_EQ(SetParameter(0, PARAMETER::kEndA, 5, 0xFF).line, "SETSCA5:0=FF");
  EXPECT_EQ(SetParameter(0, PARAMETER::kEndB, 3, 0x0A).line, "SETSCB3:0=0A");
  EXPECT_EQ(SetParameter(1, PARAMETER::kSilentRange, 2, 0x20).line, "SETMSR2:1=20");
  EXPECT_EQ(SetParameter(1, PARAMETER::kSilentRange, 0, 0x00).line, "SETMSR0:1=00");
  EXPECT_EQ(SetParameter(14, PARAMETER::kSelfTest, 0, 0x00).line, "LCDSELFTEST:E=OFF");
  EXPECT_EQ(SetParameter(14, PARAMETER::kSelfTest, 0, 0x01).line, "LCDSELFTEST:E=ON");
  EXPECT_EQ(SetParameter(14, PARAMETER::kInitialLight, 0, 0xFF).line, "LCDINITLIGHT:E=ON");
  EXPECT_EQ(AskParameter(15, PARAMETER::kMask, 0).line, "GETANMASK:F");
  EXPECT_EQ(AskParameter(0, PARAMETER::kEndA, 0).line, "GETSCA0:0");
  EXPECT_EQ(AskParameter(0, PARAMETER::kEndB, 5).line, "GETSCB5:0");
  EXPECT_EQ(AskParameter(1, PARAMETER::kSilentRange, 1).line, "GETMSR1:1");
}

TEST(CaeRequest, RefusesWhatTheDaemonWouldRefuseOrMisread) {
  EXPECT_EQ(Refusal([] { SetSpeed(0); }), "speed 0: 1 to 100 percent");
  EXPECT_EQ(Refusal([] { SetSpeed(101); }), "speed 101: 1 to 100 percent");
  EXPECT_EQ(Refusal([] { Reboot(16); }), "address 16: a card has 0 to F");
  EXPECT_EQ(Refusal([] { PollCard(-1, true); }), "address -1: a card has 0 to F");
  EXPECT_EQ(Refusal([] { AskLastInput(3, 6); }), "block 6: an input card has 0 to 5");
  EXPECT_EQ(Refusal([] { AskLastInput(3, -1); }), "block -1: an input card has 0 to 5");
  EXPECT_EQ(Refusal([] { SetParameter(15, PARAMETER::kMask, 0, 0x40); }), "mask 40: 00 to 3F");
  EXPECT_EQ(Refusal([] { SetParameter(1, PARAMETER::kSilentRange, 0, 0x21); }),
            "silent 21: 00 to 20");
  EXPECT_EQ(Refusal([] { AskParameter(14, PARAMETER::kSelfTest, 0); }),
            "selftest: can be set only, no card tells it");
}

TEST(CaeRequest, RefusesAChannelThatTheCardDoesNotHave) {
  EXPECT_EQ(Refusal([] { SetParameter(0, PARAMETER::kEndA, 7, 0); }),
            "'7' is no channel of a servo card: 0 to 5");
  EXPECT_EQ(Refusal([] { AskParameter(0, PARAMETER::kEndB, 6); }),
            "'6' is no channel of a servo card: 0 to 5");
  EXPECT_EQ(Refusal([] { AskParameter(1, PARAMETER::kSilentRange, -1); }),
            "'-1' is no channel of a motor card: 0 to 2");
  EXPECT_EQ(Refusal([] { SetParameter(15, PARAMETER::kMask, 1, 0); }),
            "'1' is no channel of mask: a card has it once, as 0");
}

TEST(CaeRequest, LeavesATypedLineAsItIs) {
  EXPECT_EQ(TypedCae(" drvver").line, " drvver");
  EXPECT_EQ(TypedCae("").line, "");
  EXPECT_EQ(TypedCae(std::string(253, 'x')).line.size(), 253U);
  EXPECT_EQ(Refusal([] { TypedCae(std::string(254, 'x')); }),
            "line of 254 characters: at most 253");
  EXPECT_THROW(TypedCae(std::string_view("a\0b", 3)), BAD_VALUE);
  EXPECT_THROW(TypedCae("HELP\r\n"), BAD_VALUE);
  EXPECT_THROW(TypedCae("HELP\nHELP"), BAD_VALUE);
}

// --- what is answered ---------------------------------------------------------------------------

TEST(CaeAnswer, IsCompleteAtItsPrompt) {
  CAE_ANSWER answer(Reboot(5));
  EXPECT_FALSE(answer.Take("CIA: Card is REBOOTED"));
  EXPECT_FALSE(answer.Take("RBT:0x5:OK"));
  EXPECT_TRUE(answer.Take(">"));
  EXPECT_EQ(answer.Result().outcome, OUTCOME::kDone);
  EXPECT_EQ(answer.Result().lines, LINES({"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  EXPECT_TRUE(std::holds_alternative<std::monostate>(answer.Result().value));
}

TEST(CaeAnswer, TakesNothingBehindItsPrompt) {
  CAE_ANSWER answer(AskVersion());
  answer.Take("CIA: DRIVER VERSION 1.20");
  EXPECT_TRUE(answer.Take(">"));
  EXPECT_TRUE(answer.Take("RBT:0x5:OK"));
  EXPECT_TRUE(answer.Take(">"));
  EXPECT_EQ(answer.Result().lines, LINES({"CIA: DRIVER VERSION 1.20"}));
}

TEST(CaeAnswer, TakesOnlyALineOfItsOwnForAPrompt) {
  CAE_ANSWER answer(AskHelp());
  answer.Take("VORN quick HELP:");
  EXPECT_FALSE(answer.Take("> "));
  EXPECT_FALSE(answer.Take(">>"));
  EXPECT_FALSE(answer.Take(""));
  EXPECT_TRUE(answer.Take(">"));
}

TEST(CaeAnswer, SkipsPromptsAheadOfIt) {
  EXPECT_TRUE(After(AskVersion(), {">", ">", "CIA: DRIVER VERSION 1.20", ">"}));
  EXPECT_TRUE(After(TypedCae("DRVVER"), {">", "CIA: DRIVER VERSION 1.20", ">"}));
}

TEST(CaeAnswer, SkipsTheAnswerToAnotherCommand) {
  const auto result = After(AskParameter(15, PARAMETER::kMask, 0),
                            {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON", ">",
                             "CIE: PARAM READ ERROR", ">",  // a servo's
                             "CIA: MASK is GOT from card", "AMV:0xF:0x2A", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->lines, LINES({"CIA: MASK is GOT from card", "AMV:0xF:0x2A"}));
  EXPECT_EQ(std::get<std::uint8_t>(result->value), 0x2A);
}

TEST(CaeAnswer, SkipsTheAnswerOfAnotherCardChannelOrValue) {
  EXPECT_FALSE(After(Reboot(5), {"CIA: Card is REBOOTED", "RBT:0x6:OK", ">"}));
  EXPECT_FALSE(After(StoreMask(15), {"CIA: MASK IS STORED at address E", ">"}));
  EXPECT_FALSE(After(SetSpeed(5), {"CIA: SPEED IS SET to 50%", ">"}));
  EXPECT_FALSE(After(SetSpeed(50), {"CIA: SPEED IS SET to 5%", ">"}));
  const CAE_REQUEST get = AskParameter(0, PARAMETER::kEndB, 3);
  const std::string title = "CIA: SERVO PARAM is GOT from card";
  EXPECT_TRUE(After(get, {title, "SPG:0x0:SCB3:0x2A", ">"}));
  EXPECT_FALSE(After(get, {title, "SPG:0x1:SCB3:0x2A", ">"}));
  EXPECT_FALSE(After(get, {title, "SPG:0x0:SCA3:0x2A", ">"}));
  EXPECT_FALSE(After(get, {title, "SPG:0x0:SCB4:0x2A", ">"}));
  const CAE_REQUEST set = SetParameter(1, PARAMETER::kSilentRange, 2, 0x08);
  EXPECT_TRUE(After(set, {"CIA: MSR value of the card is SET", "MPS:0x1:MSR2:0x08", ">"}));
  EXPECT_FALSE(After(set, {"CIA: MSR value of the card is SET", "MPS:0x1:MSR2:0x09", ">"}));
  EXPECT_FALSE(After(set, {"CIA: MSR value of the card is SET", "MPS:0x1:MSR1:0x08", ">"}));
}

TEST(CaeAnswer, SkipsAnAnswerThatIsNotWhole) {
  const CAE_REQUEST request = AskParameter(15, PARAMETER::kMask, 0);
  const std::string title = "CIA: MASK is GOT from card";
  EXPECT_FALSE(After(request, {title, ">"}));
  EXPECT_FALSE(After(request, {title, "AMV:0xF:0x2", ">"}));
  EXPECT_FALSE(After(request, {title, "AMV:0xF:0x2a", ">"}));
  EXPECT_FALSE(After(request, {title, "AMV:0xF:0x2AB", ">"}));
  EXPECT_FALSE(After(request, {title, "AMV:0xF:0x2A", "AMV:0xF:0x2A", ">"}));
  EXPECT_FALSE(After(request, {"AMV:0xF:0x2A", ">"}));
  EXPECT_FALSE(After(AskVersion(), {"CIA: DRIVER VERSION ", ">"}));
  EXPECT_FALSE(After(EnablePolling(true), {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON", ">"}));
  EXPECT_FALSE(After(request, {"CIE: MASK READ ERROR", "AMV:0xF:0x2A", ">"}));
}

TEST(CaeAnswer, IsARefusalOfTheCommandsOwnOrOfAnyCommand) {
  const CAE_REQUEST request = RecallPositions(0);
  for (const char* const line :
       {"CIE: POSITIONS MOVING ERROR", "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY",
        "CIE: UNKNOWN COMMAND ", "CIE: UNKNOWN COMMAND"}) {
    const auto result = After(request, {line, ">"});
    ASSERT_TRUE(result) << line;
    EXPECT_EQ(result->outcome, OUTCOME::kRefused);
    EXPECT_EQ(result->lines, LINES({line}));
  }
  EXPECT_FALSE(After(request, {"CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY", ">"}));
  EXPECT_FALSE(After(request, {"CIE: ", ">"}));
  EXPECT_FALSE(After(AskVersion(), {"", ">"}));
}

TEST(CaeAnswer, HasTheVersion) {
  const auto result = After(AskVersion(), {"CIA: DRIVER VERSION 1.20", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(std::get<std::string>(result->value), "1.20");
}

TEST(CaeAnswer, HasTheCardsInWhateverOrderTheyAreListed) {
  LINES lines = CardList("DISCOVER LIST:");
  lines[1] = "DTI:0xF:6 channel ANALOGUE INPUT";
  lines[16] = "DTI:0x0:6 channel RC SERVO CONTROLLER";
  lines[2] = "DTI:0x1:CARD?";
  const auto result = After(ListCards(), lines);
  ASSERT_TRUE(result);
  CARD_LIST expected{};
  expected[0] = CARD_KIND::kServo;
  expected[1] = CARD_KIND::kSilent;
  expected[15] = CARD_KIND::kAnalogue;
  EXPECT_EQ(std::get<CARD_LIST>(result->value), expected);
}

TEST(CaeAnswer, HasACardWithAnUnknownNameForUnidentified) {
  LINES lines = CardList("FORCED DISCOVER LIST:");
  lines[4] = "DTI:0x3:24 channel TRACTOR BEAM";
  lines[5] = "DTI:0x4::::\xFF";
  const auto result = After(IdentifyCards(), lines);
  ASSERT_TRUE(result);
  EXPECT_EQ(std::get<CARD_LIST>(result->value)[3], CARD_KIND::kUnidentified);
  EXPECT_EQ(std::get<CARD_LIST>(result->value)[4], CARD_KIND::kUnidentified);
  EXPECT_EQ(std::get<CARD_LIST>(result->value)[5], CARD_KIND::kEmpty);
}

TEST(CaeAnswer, SkipsACardListThatIsNotWhole) {
  EXPECT_TRUE(After(ListCards(), CardList("DISCOVER LIST:")));
  EXPECT_FALSE(After(ListCards(), CardList("FORCED DISCOVER LIST:")));
  LINES tooShort = CardList("DISCOVER LIST:");
  tooShort.erase(tooShort.begin() + 5);
  EXPECT_FALSE(After(ListCards(), tooShort));
  LINES twice = CardList("DISCOVER LIST:");
  twice[5] = twice[6];
  EXPECT_FALSE(After(ListCards(), twice));
  LINES tooLong = CardList("DISCOVER LIST:");
  tooLong.insert(tooLong.begin() + 5, "DTI:0x4:EMPTY");
  EXPECT_FALSE(After(ListCards(), tooLong));
  LINES garbage = CardList("DISCOVER LIST:");
  garbage[5] = "DTI:0xG:EMPTY";
  EXPECT_FALSE(After(ListCards(), garbage));
}

TEST(CaeAnswer, HasThePollState) {
  auto result = After(AskPollState(), {"CIA: GLOBAL POLLING IS DISABLED", "PTI:0x3:ON",
                                       "PTI:0x8:OFF", "PTI:0xF:ON", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(std::get<POLL_STATE>(result->value),
            (POLL_STATE{false, {{3, true}, {8, false}, {15, true}}}));
  result = After(AskPollState(), {"CIA: GLOBAL POLLING IS ENABLED", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(std::get<POLL_STATE>(result->value), (POLL_STATE{true, {}}));
  EXPECT_FALSE(After(AskPollState(), {"CIA: GLOBAL POLLING IS BROKEN", ">"}));
  EXPECT_FALSE(After(AskPollState(), {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:MAYBE", ">"}));
}

TEST(CaeAnswer, HasAllLinesOfAText) {
  LINES lines = {"VORN quick HELP:", " "};
  for (int i = 2; i < 69; ++i) {
    lines.push_back(" - line " + std::to_string(i));
  }
  const LINES text = lines;
  lines.emplace_back(">");
  const auto result = After(AskHelp(), lines);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->lines, text);
  EXPECT_FALSE(After(AskIoExamples(), lines));
}

TEST(CaeAnswer, IsCompleteAtTheFarewellWhosePromptNeverComes) {
  const auto result = After(EndCae(), {"CIA: DRIVER VERSION 1.20", ">", "VORN: Bye Bye..."});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->outcome, OUTCOME::kDone);
  EXPECT_EQ(result->lines, LINES({"VORN: Bye Bye..."}));
  EXPECT_TRUE(After(TypedCae("EXIT"), {"VORN: Bye Bye..."}));
  EXPECT_FALSE(After(EndCae(), {"CIA: DRIVER VERSION 1.20", "VORN: Bye Bye..."}));
  EXPECT_FALSE(After(TypedCae("HELP"), {"something", "VORN: Bye Bye..."}));
  EXPECT_FALSE(After(AskVersion(), {"VORN: Bye Bye..."}));
}

TEST(CaeAnswer, ToATypedLineIsAnyAnswer) {
  auto result = After(TypedCae("GETANMASK:F"), {"CIA: MASK is GOT from card", "AMV:0xF:0x2A", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->outcome, OUTCOME::kDone);
  EXPECT_EQ(result->lines.size(), 2U);
  result = After(TypedCae("nonsense"), {"CIE: UNKNOWN COMMAND ", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->outcome, OUTCOME::kRefused);
  result = After(TypedCae("HELLO"), {"something new", ">"});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->outcome, OUTCOME::kDone);
}

TEST(CaeAnswer, IsNotAReportOfARefusedLine) {
  const LINES lines = {"COE:Illegal command -> aElXX", ">", "CIA: DRIVER VERSION 1.20", ">"};
  EXPECT_TRUE(After(AskVersion(), lines));
  EXPECT_TRUE(After(TypedCae("DRVVER"), lines));
}

TEST(CaeAnswer, KeepsSoManyLinesOfSoManyCharactersAndNoMore) {
  LINES lines = {"VORN quick HELP:"};
  for (int i = 0; i < 1000; ++i) {
    lines.emplace_back(5000, 'x');
  }
  lines.emplace_back(">");
  for (const CAE_REQUEST& request : {AskHelp(), TypedCae("HELP")}) {
    const auto result = After(request, lines);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->lines.size(), 128U);
    EXPECT_EQ(result->lines.back(), std::string(4096, 'x'));
  }
}

TEST(CaeAnswer, OfARequestWhoseLineIsNotItsCommandsIsARefusalOnly) {
  const CAE_REQUEST request = {CAE_COMMAND::kReboot, "reboot"};
  EXPECT_FALSE(After(request, {"CIA: Card is REBOOTED", "RBT:0x5:OK", ">"}));
  EXPECT_TRUE(After(request, {"CIE: UNKNOWN COMMAND ", ">"}));
}

TEST(CaeAnswer, SurvivesAnyLine) {
  // Every line that fits anywhere, with a byte changed, added or left out, for every command.
  const std::vector<CAE_REQUEST> requests = {AskVersion(),
                                             AskPollState(),
                                             ListCards(),
                                             AskParameter(1, PARAMETER::kSilentRange, 1),
                                             SetParameter(14, PARAMETER::kSelfTest, 0, 0),
                                             TypedCae("x")};
  const LINES seeds = {"CIA: DRIVER VERSION 1.20",
                       "CIA: GLOBAL POLLING IS ENABLED",
                       "PTI:0x3:ON",
                       "DISCOVER LIST:",
                       "DTI:0x0:EMPTY",
                       "CIA: MSR value is GOT from card",
                       "MSR1:0x1:0x2A",
                       "CIE: UNKNOWN COMMAND ",
                       "COE:Illegal command -> abc",
                       ">"};
  std::size_t complete = 0;
  for (const CAE_REQUEST& request : requests) {
    for (const std::string& first : seeds) {
      for (const std::string& second : seeds) {
        for (std::size_t i = 0; i <= second.size(); ++i) {
          for (const std::string& spoiled : {second.substr(0, i), second.substr(i),
                                             second.substr(0, i) + '\xFF' + second.substr(i),
                                             second.substr(0, i) + "{x}" + second.substr(i)}) {
            complete += After(request, {first, spoiled, ">"}) ? 1 : 0;
          }
        }
      }
    }
  }
  EXPECT_GT(complete, 0U);
}

// --- words --------------------------------------------------------------------------------------

std::string Said(LINES lines) {
  CAE_RESULT result;
  result.lines = std::move(lines);
  return result.Text();
}

TEST(CaeResult, SaysWhatTheDaemonSaysWithoutItsMarks) {
  EXPECT_EQ(Said({"CIA: Card is REBOOTED", "RBT:0x5:OK"}), "Card is REBOOTED");
  EXPECT_EQ(Said({"CIE: UNKNOWN COMMAND "}), "UNKNOWN COMMAND");
  EXPECT_EQ(Said({"VORN quick HELP:", " ", " - DRVVER"}), "VORN quick HELP:\n \n - DRVVER");
  EXPECT_EQ(Said({"CIA: "}), "");
  EXPECT_EQ(Said({" "}), "");
  EXPECT_EQ(Said({}), "");
}

TEST(CaeRefusal, TellsTheLineAsItWasTyped) {
  const auto refusal = ReadRefusal("COE:Illegal command ->  aElXX -> ");
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->line, " aElXX -> ");
  EXPECT_FALSE(refusal->isFault);
  const auto fault = ReadRefusal("COE:Parser exception -> a5b1dFF");
  ASSERT_TRUE(fault);
  EXPECT_EQ(fault->line, "a5b1dFF");
  EXPECT_TRUE(fault->isFault);
}

TEST(CaeRefusal, IsNothingElse) {
  for (const char* const line : {"", ">", "COE:", "CIE: UNKNOWN COMMAND ", "COE:Illegal command",
                                 " COE:Illegal command -> x", "COE: Illegal command -> x"}) {
    EXPECT_FALSE(ReadRefusal(line)) << line;
  }
}

}  // namespace
}  // namespace client
