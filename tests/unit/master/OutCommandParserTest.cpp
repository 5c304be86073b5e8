// The commands of the IO client: each form's frame, and what is refused.

#include "tests/support/IoVectors.h"
#include "tests/support/unit/Bytes.h"
#include "tests/support/unit/ExampleRack.h"
#include "tests/support/unit/Folder.h"
#include "vorn/master/OutCommandParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>

namespace vorn {

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

// --- the forms ----------------------------------------------------------------------------------

TEST_F(OutCommandParser, CommandSendsItsFrameOrIsRefusedOnTheOperatorsConsole) {
  Identify(cards);
  for (const support::io::VECTOR& vector : support::io::kVectors) {
    const std::string body = vector.body == nullptr ? "" : vector.body;
    const auto address = HexCharToByte(vector.line[0] == 'a' ? vector.line[1] : '0');
    if (vector.body == nullptr) {
      ExpectRefused(vector.line);
    } else {
      ExpectSent(vector.line, {std::to_string(address) + ":" + (body.empty() ? "" : " ") + body});
    }
  }
  EXPECT_EQ(Values(5), "AA FF 12 00 00 00 00 00 00 00 00 00 00 00 00 22");
  EXPECT_EQ(Values(3).substr(0, 2), "55");
}

TEST_F(OutCommandParser, EachFormIsForItsCardsOnly) {
  for (int type = 0; type <= 255; ++type) {
    SCOPED_TRACE(type);
    SetCard(4, type, "00 00");
    const bool takesBlocks = type == 3 || type == 5 || type == 6;
    Parse("a4b1d5A");
    const LINES bodies = TakeBodies();
    ASSERT_EQ(bodies.size(), 1U);
    EXPECT_EQ(bodies[0] != "4:", takesBlocks);
    EXPECT_EQ(Values(4).substr(0, 5), "00 5A");
    if (type != 10) {
      ExpectRefused("a4sHS43");
    }
    if (type != 9) {
      ExpectRefused("a4lCL");
      ExpectRefused("a4lPAp0301tX");
    }
    EXPECT_EQ(Values(4).substr(0, 5), "00 5A");
  }
}

TEST_F(OutCommandParser, BlockCommandReachesEachOfTheSixteenCards) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  for (std::size_t address = 0; address < 16; ++address) {
    SetCard(address, 3, "00 00");
    const std::string digit(1, kDigits[address]);
    ExpectSent("a" + digit + "b0d01", {std::to_string(address) + ": 10 0" + digit + " 02 01 00"});
  }
}

TEST_F(OutCommandParser, LcdControlKnowsNoOtherTexts) {
  SetCard(14, 9);
  const std::string known = "CL LO LF CO CF BO BF";
  for (char first = 'A'; first <= 'Z'; ++first) {
    for (char second = 'A'; second <= 'Z'; ++second) {
      const std::string text = {first, second};
      if (known.find(text) == std::string::npos) {
        ExpectRefused("aEl" + text);
      }
    }
  }
}

TEST_F(OutCommandParser, ALongCommandIsRefused) {
  SetCard(9, 10);
  SetCard(14, 9);
  ExpectRefused("a9sHS" + std::string(240, 'F'));
  ExpectRefused("aElPAp0000t" + std::string(200, 'x'));
}

TEST_F(OutCommandParser, EveryFormCutAnywhereIsSentOrRefusedAndNeverFails) {
  Identify(cards);
  for (const std::string whole : {"a5b1dFB", "aElPAp0301tTail", "aElCL", "a9sHS434F"}) {
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

}  // namespace vorn
