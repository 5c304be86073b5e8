// The commands of the IO client: each form's frame, and what is refused.

#include "tests/support/unit/Bytes.h"
#include "tests/support/unit/Folder.h"
#include "vorn/master/OUT_COMMAND_PARSER.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>

namespace unit {
namespace {

using LINES = std::vector<std::string>;

class OutCommandParser : public testing::Test {
 protected:
  OutCommandParser() { Make("\r\n", "\r\n"); }

  void Make(const std::string& ioInpSeparator, const std::string& caeOutSeparator) {
    parser = std::make_unique<OUT_COMMAND_PARSER>(
        ioInpSeparator, caeOutSeparator, cards,
        [this](std::size_t address, QList body) { busQueues.at(address).ToQueue(std::move(body)); },
        caeOutput, logger);
  }

  /// A card as identification leaves it, without its presets.
  void SetCard(std::size_t address, int typeCode, const char* values = "") {
    cards.With(address, [&](PERIFCARD& card) {
      card.typeCode = static_cast<std::uint8_t>(typeCode);
      const BYTES bytes = Hex(values);
      std::copy(bytes.begin(), bytes.end(), card.values.begin());
    });
  }

  std::string Values(std::size_t address) {
    return cards.With(address, [](const PERIFCARD& card) {
      return ToHex(BYTES(card.values.begin(), card.values.end()));
    });
  }

  /// Takes what was queued for the bus: "5: 10 05 02 FF FB", "5:" for an empty body.
  LINES TakeBodies() {
    LINES bodies;
    for (std::size_t address = 0; address < busQueues.size(); ++address) {
      while (!busQueues[address].IsEmpty()) {
        const std::string body = ToHex(busQueues[address].DeQueue());
        bodies.push_back(std::to_string(address) + ":" + (body.empty() ? "" : " ") + body);
      }
    }
    return bodies;
  }

  LINES TakeReplies() {
    LINES replies;
    while (!caeOutput.IsEmpty()) {
      const QList reply = caeOutput.DeQueue();
      replies.emplace_back(reply.begin(), reply.end());
    }
    return replies;
  }

  void Parse(const std::string& text) {
    EXPECT_EQ(parser->ParseOutCommand(QList(text.begin(), text.end())), 1);
  }

  void ExpectSent(const std::string& command, const LINES& bodies) {
    SCOPED_TRACE(command);
    Parse(command);
    EXPECT_EQ(TakeBodies(), bodies);
    EXPECT_EQ(TakeReplies(), LINES());
  }

  void ExpectRefused(const std::string& command) {
    SCOPED_TRACE(command);
    Parse(command);
    EXPECT_EQ(TakeBodies(), LINES());
    EXPECT_EQ(TakeReplies(), LINES({"COE:Illegal command -> " + command + "\r\n", ">\r\n"}));
  }

  CARD_TABLE cards;
  std::array<VOQUEUE, 16> busQueues;
  VOQUEUE caeOutput;
  LOGGER logger;
  std::unique_ptr<OUT_COMMAND_PARSER> parser;
};

// --- block commands -----------------------------------------------------------------------------

TEST_F(OutCommandParser, BlockCommandSendsBothGroupsOfADigitalOutputCard) {
  SetCard(5, 3, "FF FF");
  ExpectSent("a5b1dFB", {"5: 10 05 02 FF FB"});
  ExpectSent("a5b0d7F", {"5: 10 05 02 7F FB"});
  ExpectSent("a5b1dFF", {"5: 10 05 02 7F FF"});
}

TEST_F(OutCommandParser, BlockCommandSendsAllSixPositionsOfAServoCard) {
  SetCard(0, 5, "01 02 03 04 05 06 07");
  ExpectSent("a0b4d80", {"0: 10 00 06 01 02 03 04 80 06"});
}

TEST_F(OutCommandParser, BlockCommandSendsFourValuesOfADcMotorCard) {
  SetCard(1, 6, "01 02 03 04 05 06");
  ExpectSent("a1b3d80", {"1: 10 01 04 01 02 03 80"});
  ExpectSent("a1b4d99", {"1: 10 01 04 01 02 03 80"});
}

TEST_F(OutCommandParser, BlockCommandForAnyOtherCardStoresItsValueAndQueuesAnEmptyBody) {
  for (int type = 0; type <= 255; ++type) {
    if (type == 3 || type == 5 || type == 6) {
      continue;
    }
    SetCard(4, type, "00 00");
    ExpectSent("a4b1d5A", {"4:"});
    EXPECT_EQ(Values(4).substr(0, 5), "00 5A") << type;
  }
}

TEST_F(OutCommandParser, BlockBeyondTheCardsChannelsIsStoredAndNotSent) {
  SetCard(5, 3, "FF FF");
  ExpectSent("a5b2d11", {"5: 10 05 02 FF FF"});
  ExpectSent("a5bFd22", {"5: 10 05 02 FF FF"});
  EXPECT_EQ(Values(5), "FF FF 11 00 00 00 00 00 00 00 00 00 00 00 00 22");
}

TEST_F(OutCommandParser, BlockCommandReachesEachOfTheSixteenCards) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  for (std::size_t address = 0; address < 16; ++address) {
    SetCard(address, 3, "00 00");
    const std::string digit(1, kDigits[address]);
    ExpectSent("a" + digit + "b0d01", {std::to_string(address) + ": 10 0" + digit + " 02 01 00"});
  }
}

TEST_F(OutCommandParser, BlockCommandIgnoresWhatFollowsTheValue) {
  SetCard(5, 3, "FF FF");
  ExpectSent("a5b1dFBtrailing", {"5: 10 05 02 FF FB"});
}

TEST_F(OutCommandParser, BlockCommandTakesBadDigitsAsZero) {
  SetCard(0, 3, "FF FF");
  ExpectSent("axb0d11", {"0: 10 00 02 11 FF"});
  ExpectSent("a0bzd22", {"0: 10 00 02 22 FF"});
  ExpectSent("a0b0dfb", {"0: 10 00 02 00 FF"});
  ExpectSent("a0b0dF?", {"0: 10 00 02 F0 FF"});
  ExpectSent("a0b0d?F", {"0: 10 00 02 0F FF"});
}

TEST_F(OutCommandParser, BlockCommandTakesOneDigitAsTheLowOne) {
  SetCard(5, 3, "FF FF");
  ExpectSent("a5b1dB", {"5: 10 05 02 FF 0B"});
}

// --- IR streams ---------------------------------------------------------------------------------

TEST_F(OutCommandParser, IrStreamSendsItsBytesBehindTheirCount) {
  SetCard(9, 10);
  ExpectSent("a9sHS434F434B524F414348", {"9: 10 09 0A 09 43 4F 43 4B 52 4F 41 43 48"});
}

TEST_F(OutCommandParser, IrStreamIgnoresAnOddLastDigit) {
  SetCard(9, 10);
  ExpectSent("a9sHS434", {"9: 10 09 02 01 43"});
  ExpectSent("a9sHS4", {"9: 10 09 01 00"});
}

TEST_F(OutCommandParser, IrStreamMayBeEmpty) {
  SetCard(9, 10);
  ExpectSent("a9sHS", {"9: 10 09 01 00"});
}

TEST_F(OutCommandParser, IrStreamTakesBadDigitsAsZero) {
  SetCard(9, 10);
  ExpectSent("a9sHSfF0aG1~~", {"9: 10 09 05 04 0F 00 01 00"});
}

TEST_F(OutCommandParser, IrStreamOfTwentyThreeBytesIsTheLongest) {
  SetCard(9, 10);
  std::string digits;
  std::string sent = "9: 10 09 18 17";
  for (int i = 0; i < 23; ++i) {
    digits += "5A";
    sent += " 5A";
  }
  ExpectSent("a9sHS" + digits, {sent});
  ExpectSent("a9sHS" + digits + "F", {sent});
  ExpectRefused("a9sHS" + digits + "FF");
  ExpectRefused("a9sHS" + digits + std::string(180, 'F'));
}

TEST_F(OutCommandParser, IrStreamIsRefusedForEveryOtherCard) {
  for (int type = 0; type <= 255; ++type) {
    if (type != 10) {
      SetCard(9, type);
      ExpectRefused("a9sHS43");
    }
  }
}

TEST_F(OutCommandParser, IrStreamIsRefusedWithoutItsMarkAtItsPlace) {
  SetCard(9, 10);
  for (const char* const command :
       {"a9s", "a9sH", "a9sS", "a9sSH43", "a9shs43", "a9sxHS43", "a9s43HS", "a9s HS"}) {
    ExpectRefused(command);
  }
}

// --- LCD control --------------------------------------------------------------------------------

TEST_F(OutCommandParser, LcdControlSendsTheCodeOfItsText) {
  SetCard(14, 9);
  ExpectSent("aElCL", {"14: 10 0E 01 00"});
  ExpectSent("aElLO", {"14: 10 0E 01 01"});
  ExpectSent("aElLF", {"14: 10 0E 01 02"});
  ExpectSent("aElCO", {"14: 10 0E 01 03"});
  ExpectSent("aElCF", {"14: 10 0E 01 04"});
  ExpectSent("aElBO", {"14: 10 0E 01 05"});
  ExpectSent("aElBF", {"14: 10 0E 01 06"});
}

TEST_F(OutCommandParser, LcdControlKnowsNoOtherTexts) {
  SetCard(14, 9);
  const std::vector<std::string> known = {"CL", "LO", "LF", "CO", "CF", "BO", "BF"};
  for (char first = 'A'; first <= 'Z'; ++first) {
    for (char second = 'A'; second <= 'Z'; ++second) {
      const std::string text = {first, second};
      if (std::find(known.begin(), known.end(), text) == known.end()) {
        ExpectRefused("aEl" + text);
      }
    }
  }
  for (const char* const command : {"aEl", "aElC", "aElcl", "aElC L", "aEl CL", "aElP", "aElPA"}) {
    ExpectRefused(command);
  }
}

TEST_F(OutCommandParser, LcdControlIgnoresWhatFollows) {
  SetCard(14, 9);
  ExpectSent("aElCLxyz", {"14: 10 0E 01 00"});
}

TEST_F(OutCommandParser, LcdControlIsRefusedForEveryOtherCard) {
  for (int type = 0; type <= 255; ++type) {
    if (type != 9) {
      SetCard(14, type);
      ExpectRefused("aElCL");
    }
  }
}

// --- LCD text -----------------------------------------------------------------------------------

TEST_F(OutCommandParser, LcdTextSendsCodeColumnRowTextAndAZero) {
  SetCard(14, 9);
  ExpectSent("aElPAp0301tTail of the cat",
             {"14: 10 0E 13 09 03 01 54 61 69 6C 20 6F 66 20 74 68 65 20 63 61 74 00"});
}

TEST_F(OutCommandParser, LcdTextMayBeEmpty) {
  SetCard(14, 9);
  ExpectSent("aElPAp0301t", {"14: 10 0E 04 09 03 01 00"});
}

TEST_F(OutCommandParser, LcdTextDoesNotLookAtItsTenthCharacter) {
  SetCard(14, 9);
  ExpectSent("aElPAp0301?X", {"14: 10 0E 05 09 03 01 58 00"});
}

TEST_F(OutCommandParser, LcdTextKeepsHighBytes) {
  SetCard(14, 9);
  ExpectSent("aElPApFF0At\xFF\x80", {"14: 10 0E 06 09 FF 0A FF 80 00"});
}

TEST_F(OutCommandParser, LcdTextIsTakenWhereverItsMarkStands) {
  SetCard(14, 9);
  // Column from characters 6 and 7, row from 8 and 9 ("2t"), text from 11 on.
  ExpectSent("aElCL0102tPAp", {"14: 10 0E 06 09 10 20 41 70 00"});
}

TEST_F(OutCommandParser, LcdTextOfThirtyOneCharactersIsTheLongest) {
  SetCard(14, 9);
  std::string sent = "14: 10 0E 23 09 00 00";
  for (int i = 0; i < 31; ++i) {
    sent += " 78";
  }
  ExpectSent("aElPAp0000t" + std::string(31, 'x'), {sent + " 00"});
  ExpectRefused("aElPAp0000t" + std::string(32, 'x'));
  ExpectRefused("aElPAp0000t" + std::string(200, 'x'));
}

TEST_F(OutCommandParser, LcdTextShorterThanItsPositionIsRefused) {
  SetCard(14, 9);
  const std::string whole = "aElPAp0301t";
  for (std::size_t length = 6; length < whole.size(); ++length) {
    ExpectRefused(whole.substr(0, length));
  }
}

TEST_F(OutCommandParser, LcdTextIsRefusedForEveryOtherCard) {
  for (int type = 0; type <= 255; ++type) {
    if (type != 9) {
      SetCard(14, type);
      ExpectRefused("aElPAp0301tX");
    }
  }
}

// --- anything else ------------------------------------------------------------------------------

TEST_F(OutCommandParser, AnythingElseIsRefusedOnTheOperatorsConsole) {
  for (const int type : {3, 9, 10}) {
    SetCard(5, type);
    for (const char* const command :
         {"x", "a", "a5", "a5b", "a5b1", "a5b1x", "a5b1xFB", "A5b1dFB", "a5B1dFB", "a5b1DFB",
          "b5b1dFB", " a5b1dFB", "a05b1dFB", "a5x", "a5xCL", "EXIT", "HELP", "EXIT ", "\n"}) {
      ExpectRefused(command);
    }
  }
}

TEST_F(OutCommandParser, ARefusedCommandLeavesTheTableAlone) {
  SetCard(5, 3, "12 34");
  ExpectRefused("a5lCL");
  ExpectRefused("a5sHS55");
  ExpectRefused("a5x1dFB");
  EXPECT_EQ(Values(5).substr(0, 5), "12 34");
}

TEST_F(OutCommandParser, ABlockCommandCutBeforeItsValueIsRefusedAndStoresNothing) {
  SetCard(5, 3, "FF FF");
  ExpectRefused("a5b1d");
  EXPECT_EQ(Values(5).substr(0, 5), "FF FF");
}

TEST_F(OutCommandParser, EveryFormCutAnywhereIsSentOrRefusedAndNeverFails) {
  for (const char* const form : {"a5b1dFB", "aElPAp0301tTail", "aElCL", "a9sHS434F"}) {
    const std::string whole = form;
    SetCard(5, 3, "FF FF");
    SetCard(9, 10);
    SetCard(14, 9);
    for (std::size_t length = 1; length < whole.size(); ++length) {
      const std::string cut = whole.substr(0, length);
      SCOPED_TRACE(cut);
      Parse(cut);
      const std::size_t bodies = TakeBodies().size();
      const LINES replies = TakeReplies();
      EXPECT_EQ(bodies * 2 + replies.size(), 2U);
      if (bodies == 0) {
        EXPECT_EQ(replies.front(), "COE:Illegal command -> " + cut + "\r\n");
      }
    }
  }
}

// --- several commands in one message ------------------------------------------------------------

TEST_F(OutCommandParser, CommandsOfOneMessageAreHandledInTheirOrder) {
  SetCard(5, 3, "FF FF");
  ExpectSent("a5b0d01\r\na5b0d02\r\na5b0d03",
             {"5: 10 05 02 01 FF", "5: 10 05 02 02 FF", "5: 10 05 02 03 FF"});
}

TEST_F(OutCommandParser, EmptyPiecesAreSkippedSilently) {
  SetCard(5, 3, "FF FF");
  ExpectSent("\r\n\r\na5b0d01\r\n\r\na5b0d02\r\n\r\n", {"5: 10 05 02 01 FF", "5: 10 05 02 02 FF"});
  ExpectSent("", {});
  ExpectSent("\r\n", {});
  ExpectSent("\r\n\r\n\r\n", {});
}

TEST_F(OutCommandParser, CommandsBehindARefusedOneAreHandled) {
  SetCard(5, 3, "FF FF");
  Parse("bad\r\na5b0d01\r\nworse\r\n");
  EXPECT_EQ(TakeBodies(), LINES({"5: 10 05 02 01 FF"}));
  EXPECT_EQ(TakeReplies(), LINES({"COE:Illegal command -> bad\r\n", ">\r\n",
                                  "COE:Illegal command -> worse\r\n", ">\r\n"}));
}

TEST_F(OutCommandParser, HalfASeparatorBelongsToTheCommand) {
  SetCard(14, 9);
  ExpectSent("aElPAp0000tA\nB\r", {"14: 10 0E 08 09 00 00 41 0A 42 0D 00"});
}

TEST_F(OutCommandParser, UsesTheConfiguredSeparators) {
  Make(";", "<>");
  SetCard(5, 3, "FF FF");
  Parse(";a5b0d01;;bad;");
  EXPECT_EQ(TakeBodies(), LINES({"5: 10 05 02 01 FF"}));
  EXPECT_EQ(TakeReplies(), LINES({"COE:Illegal command -> bad<>", "><>"}));
}

TEST_F(OutCommandParser, WithoutASeparatorAMessageIsOneCommand) {
  Make("", "\r\n");
  SetCard(5, 3, "FF FF");
  ExpectSent("a5b0d01\r\na5b0d02", {"5: 10 05 02 01 FF"});
}

TEST_F(OutCommandParser, AMessageEndsAtItsFirstZeroByte) {
  SetCard(5, 3, "FF FF");
  ExpectSent(std::string("a5b0d01\r\n\0a5b0d02\r\n", 19), {"5: 10 05 02 01 FF"});
}

// --- the guard ----------------------------------------------------------------------------------

TEST_F(OutCommandParser, AnIntegerExceptionIsReportedOnOutputAndConsoleAndGoesNoFurther) {
  testing::internal::CaptureStdout();
  parser->RunGuarded("a5b1dFB", [](const std::string&) { throw 42; });
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Caught an exception -- value is: 42\nka>a5b1dFB<\n");
  EXPECT_EQ(TakeReplies(), LINES({"COE:Parser exception -> a5b1dFB\r\n", ">\r\n"}));
  EXPECT_EQ(TakeBodies(), LINES());
}

TEST_F(OutCommandParser, OtherExceptionsPassTheGuard) {
  EXPECT_THROW(
      parser->RunGuarded("x", [](const std::string&) { throw std::runtime_error("not an int"); }),
      std::runtime_error);
  EXPECT_EQ(TakeReplies(), LINES());
}

// --- an operator who never comes ----------------------------------------------------------------

TEST_F(OutCommandParser, ReportsOfRefusedCommandsEndWhere320KibWaitAndTheLogSaysSoOnce) {
  constexpr std::size_t kMark = 320 * 1024;
  const FOLDER folder;
  logger.SetFileName(folder.File("log"));
  std::size_t refused = 0;
  for (; caeOutput.Bytes() < kMark; ++refused) {
    Parse("bad\r\n");
  }
  EXPECT_EQ(ReadLog(folder.File("log")), LINES());
  for (int i = 0; i < 1000; ++i) {
    Parse("bad\r\n");
  }
  EXPECT_EQ(caeOutput.Size(), 2 * refused);
  EXPECT_EQ(ReadLog(folder.File("log")),
            LINES({"[ERR] too many messages wait on CAE interface, refused commands are not "
                   "reported"}));

  TakeReplies();
  ExpectRefused("bad");
}

}  // namespace
}  // namespace unit
