// One request and what becomes of it, byte by byte.

#include "tests/support/unit/FarEnd.h"
#include "vorn/bus/Exchange.h"

#include <gtest/gtest.h>

namespace vorn {

namespace unit {
namespace {

constexpr std::uint32_t kShortLimit = 150000;
constexpr std::uint32_t kLongLimit = 300000;

class Exchange : public testing::Test {
 protected:
  Exchange() { line.Open(line.Path()); }

  /// The hex of a reply's body, behind the outcome where that is another.
  std::string Send(const QList& body) {
    wasWritten = exchange.Send(body);
    const ANSWER answer = exchange.Await(isGivenUp);
    const std::string outcomes[] = {"", "TIMEOUT ", "REFUSED "};
    return outcomes[static_cast<std::size_t>(answer.outcome)] + ToHex(answer.reply);
  }
  std::string Send(const char* body) { return Send(HexList(body)); }

  static QList Body(std::size_t length) {
    QList body = {'\x10'};
    for (std::size_t i = 1; i < length; ++i) {
      body.push_back(static_cast<char>(i));
    }
    return body;
  }
  static BYTES AsFrame(const QList& body) { return Frame(BYTES(body.begin(), body.end())); }

  FAR_END line;
  EXCHANGE exchange{line};
  SHARED_FIELD<bool> isGivenUp = false;
  bool wasWritten = false;
};

// --- requests -----------------------------------------------------------------------------------

TEST_F(Exchange, SendsTheBodyBehindItsLengthAndGivesTheReplysBody) {
  line.Expect("05 10 00 FF 80 00", "04 00 FF 80 00");
  EXPECT_EQ(Send("10 00 FF 80 00"), "00 FF 80 00");
}

TEST_F(Exchange, TakesABodyOfEveryLengthThatFitsAFrame) {
  for (const std::size_t length : {1U, 2U, 17U, 38U, 127U, 128U, 253U, 254U}) {
    SCOPED_TRACE(length);
    const QList body = Body(length);
    line.Expect(AsFrame(body), Hex("01 06"));
    EXPECT_EQ(Send(body), "06");
  }
}

TEST_F(Exchange, RefusesABodyThatIsEmptyOrFitsNoFrameAndSendsNothing) {
  EXPECT_EQ(Send(""), "REFUSED ");
  for (const std::size_t length : {255U, 256U, 257U, 1000U}) {
    SCOPED_TRACE(length);
    EXPECT_EQ(Send(Body(length)), "REFUSED ");
  }
  EXPECT_TRUE(wasWritten);
  EXPECT_EQ(line.Writes(), 0U);
  line.Expect("01 20", "01 21");
  EXPECT_EQ(Send("20"), "21");
}

TEST_F(Exchange, CompletesAWriteThatTakesOnlyAPart) {
  line.TakeAtMost(2);
  line.Expect("05 10 05 02 FF FB", "01 06");
  EXPECT_EQ(Send("10 05 02 FF FB"), "06");
  EXPECT_EQ(line.Writes(), 3U);
}

TEST_F(Exchange, TellsAFailedWriteAndAwaitsTheReplyAllTheSame) {
  line.PullOut();
  EXPECT_EQ(Send("20"), "TIMEOUT ");
  EXPECT_FALSE(wasWritten);
  EXPECT_EQ(line.ReadsSinceRequest(), kShortLimit);
  line.Close();
  EXPECT_EQ(Send("20"), "TIMEOUT ");
  EXPECT_FALSE(wasWritten);
}

// --- what stood on the line before --------------------------------------------------------------

TEST_F(Exchange, DiscardsWhatStoodOnTheLineBefore) {
  line.SendUnasked(Hex("02 51 06"));
  line.Expect("01 20", "02 21 05");
  EXPECT_EQ(Send("20"), "21 05");
}

TEST_F(Exchange, DiscardsAtMostOneReadOfStaleBytes) {
  line.SendUnasked(BYTES(255, 0xEE) + Hex("01 06"));
  line.ExpectInReads(Hex("01 20"), {});
  EXPECT_EQ(Send("20"), "06");
}

TEST_F(Exchange, DiscardsStaleBytesForAnEmptyBodyToo) {
  line.SendUnasked(Hex("01 06"));
  EXPECT_EQ(Send(""), "REFUSED ");
  line.Expect("01 20", "01 21");
  EXPECT_EQ(Send("20"), "21");
}

// --- replies ------------------------------------------------------------------------------------

TEST_F(Exchange, TakesAReplyOfEveryLengthTheBufferHolds) {
  for (const std::size_t length : {1U, 2U, 16U, 17U, 18U, 134U, 135U}) {
    SCOPED_TRACE(length);
    line.Expect(Hex("01 20"), AsFrame(Body(length)));
    EXPECT_EQ(Send("20"), ToHex(Body(length)));
  }
}

TEST_F(Exchange, RefusesAnErrorReplyAndTakesATForATimeout) {
  const std::pair<const char*, const char*> replies[] = {
      {"01 12", "REFUSED 12"}, {"01 23", "REFUSED 23"},       {"01 24", "REFUSED 24"},
      {"01 4E", "REFUSED 4E"}, {"01 42", "REFUSED 42"},       {"01 43", "REFUSED 43"},
      {"00", "REFUSED "},      {"02 54 05", "TIMEOUT 54 05"},
  };
  for (const auto& [reply, outcome] : replies) {
    line.Expect("01 20", reply);
    EXPECT_EQ(Send("20"), outcome);
    EXPECT_EQ(line.ReadsSinceRequest(), 1U);
  }
}

TEST_F(Exchange, RefusesAReplyThatFitsNoBufferAndTakesItOffTheLineHoweverItIsSplit) {
  for (const std::size_t length : {136U, 137U, 200U, 254U, 255U}) {
    SCOPED_TRACE(length);
    const BYTES frame = AsFrame(Body(length));
    FAR_END::READS reads;
    for (const std::uint8_t byte : frame) {
      reads.push_back({byte});
    }
    for (const FAR_END::READS& each : {FAR_END::READS{frame}, reads}) {
      line.ExpectInReads(Hex("01 20"), each);
      EXPECT_EQ(Send("20"), "REFUSED ");
    }
    EXPECT_EQ(line.ReadsSinceRequest(), length + 1);
    line.Expect("01 20", "02 21 05");
    EXPECT_EQ(Send("20"), "21 05");
  }
}

TEST_F(Exchange, TakesAnAnnouncedButMissingByteForATimeout) {
  for (const char* const reply : {"02 21", "88 21", "FF 21"}) {
    SCOPED_TRACE(reply);
    line.Expect("01 20", reply);
    EXPECT_EQ(Send("20"), "TIMEOUT ");
  }
}

TEST_F(Exchange, AReplyMayBeSplitAnywhere) {
  const BYTES reply = Hex("08 21 05 01 02 03 04 05 06");
  for (std::size_t cut = 1; cut < reply.size(); ++cut) {
    SCOPED_TRACE(cut);
    const auto middle = reply.begin() + static_cast<std::ptrdiff_t>(cut);
    line.ExpectInReads(Hex("03 20 05 06"),
                       {BYTES(reply.begin(), middle), BYTES(), BYTES(middle, reply.end())});
    EXPECT_EQ(Send("20 05 06"), "21 05 01 02 03 04 05 06");
    EXPECT_EQ(line.ReadsSinceRequest(), 3U);
  }
}

TEST_F(Exchange, OfTwoRepliesInOneReadTheSecondIsDropped) {
  line.Expect("01 20", "02 21 05 02 51 06");
  EXPECT_EQ(Send("20"), "21 05");
  line.Expect("01 20", "02 21 07");
  EXPECT_EQ(Send("20"), "21 07");
}

// --- the reply limit ----------------------------------------------------------------------------

TEST_F(Exchange, GivesUpAfterTheLimitOfReadsWhichIsLongForIdentificationAndHandshake) {
  const std::pair<const char*, std::uint32_t> limits[] = {
      {"10 05 02 FF FF", kShortLimit},
      {"20 03 02", kShortLimit},
      {"50 05 01 AB", kShortLimit},
      {"00", kShortLimit},
      {"FF", kShortLimit},
      {"4E", kShortLimit},
      {"30", kLongLimit},
      {"40 6F 9A", kLongLimit},
  };
  for (const auto& [body, limit] : limits) {
    SCOPED_TRACE(body);
    line.ExpectInReads(Frame(Hex(body)), {});
    EXPECT_EQ(Send(body), "TIMEOUT ");
    EXPECT_EQ(line.ReadsSinceRequest(), limit);
    // One that the last permitted read completes is late, one read sooner is not.
    line.ExpectInReads(Frame(Hex(body)), {Hex("02 21 05")}, limit);
    EXPECT_EQ(Send(body), "TIMEOUT ");
    line.ExpectInReads(Frame(Hex(body)), {Hex("02 21 05")}, limit - 1);
    EXPECT_EQ(Send(body), "21 05");
  }
}

TEST_F(Exchange, AReplyThatWasLateIsNotTakenForTheNextOne) {
  line.ExpectInReads(Hex("01 20"), {Hex("02 21"), Hex("05")}, kShortLimit - 1);
  EXPECT_EQ(Send("20"), "TIMEOUT ");
  line.Expect("01 20", "02 21 07");
  EXPECT_EQ(Send("20"), "21 07");
}

TEST_F(Exchange, IsATimeoutSoonWhereItIsGivenUp) {
  isGivenUp = true;
  line.ExpectInReads(Hex("01 20"), {});
  EXPECT_EQ(Send("20"), "TIMEOUT ");
  EXPECT_LT(line.ReadsSinceRequest(), kShortLimit);
}

}  // namespace
}  // namespace unit

}  // namespace vorn
