// One request and its reply, byte by byte.

#include "tests/unit/bus/SerialFixture.h"

namespace unit {
namespace {

constexpr std::uint32_t kShortLimit = 150000;
constexpr std::uint32_t kLongLimit = 300000;

class Exchange : public SERIAL_FIXTURE {
 protected:
  Exchange() { Connect(); }

  /// "TME", "LCE" or the hex of a reply's body.
  std::string Send(const QList& body) {
    const QList reply = serial->Comm2HW(body);
    const std::string text(reply.begin(), reply.end());
    return text == "TME" || text == "LCE" ? text : ToHex(reply);
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
};

TEST_F(Exchange, SendsTheBodyBehindItsLengthAndGivesTheReplysBody) {
  line.Expect("04 50 05 01 AB", "03 51 05 00");
  EXPECT_EQ(Send("50 05 01 AB"), "51 05 00");
}

TEST_F(Exchange, OfAnEmptyBodySendsNothingAndGivesLce) {
  EXPECT_EQ(Send(""), "LCE");
  EXPECT_EQ(line.Requests().size(), 1U);  // the handshake
}

TEST_F(Exchange, KeepsZeroAndHighBytesInBothDirections) {
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

TEST_F(Exchange, OfABodyThatFitsNoFrameSendsNothingAndGivesNothing) {
  for (const std::size_t length : {255U, 256U, 257U, 1000U}) {
    SCOPED_TRACE(length);
    EXPECT_EQ(Send(Body(length)), "");
  }
  EXPECT_EQ(line.Requests().size(), 1U);
  line.Expect("01 20", "01 21");
  EXPECT_EQ(Send("20"), "21");
}

TEST_F(Exchange, TakesAReplyOfEveryLengthTheBufferHolds) {
  for (const std::size_t length : {1U, 2U, 16U, 17U, 18U, 134U, 135U}) {
    SCOPED_TRACE(length);
    const QList body = Body(length);
    line.Expect(Hex("01 20"), AsFrame(body));
    EXPECT_EQ(Send("20"), ToHex(body));
  }
}

TEST_F(Exchange, AReplyOfLengthZeroIsCompleteWithOneByteAndEmpty) {
  line.Expect("01 20", "00");
  EXPECT_EQ(Send("20"), "");
  EXPECT_EQ(line.ReadsSinceRequest(), 1U);
}

TEST_F(Exchange, AReplyThatFitsNoBufferIsNoReplyAndTheLinkIsUsableAfterwards) {
  for (const std::size_t length : {136U, 137U, 200U, 254U, 255U}) {
    SCOPED_TRACE(length);
    line.Expect(Hex("01 20"), AsFrame(Body(length)));
    EXPECT_EQ(Send("20"), "");
    line.Expect("01 20", "02 21 05");
    EXPECT_EQ(Send("20"), "21 05");
  }
}

TEST_F(Exchange, AReplyThatFitsNoBufferIsTakenOffTheLineHoweverItIsSplit) {
  const BYTES frame = AsFrame(Body(255));
  FAR_END::READS reads;
  for (const std::uint8_t byte : frame) {
    reads.push_back({byte});
  }
  line.ExpectInReads(Hex("01 20"), reads);
  EXPECT_EQ(Send("20"), "");
  EXPECT_EQ(line.ReadsSinceRequest(), 256U);
}

TEST_F(Exchange, AnAnnouncedButMissingByteIsATimeout) {
  for (const char* const reply : {"02 21", "88 21", "FF 21"}) {
    SCOPED_TRACE(reply);
    line.Expect("01 20", reply);
    EXPECT_EQ(Send("20"), "TME");
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

TEST_F(Exchange, AReplyMayComeByteByByteWithEmptyReadsBetween) {
  FAR_END::READS reads;
  for (const std::uint8_t byte : Hex("11 31 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F")) {
    reads.push_back({byte});
    reads.push_back({});
  }
  line.ExpectInReads(Hex("01 30"), reads);
  EXPECT_EQ(Send("30"), "31 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");
}

TEST_F(Exchange, OfTwoRepliesInOneReadTheSecondIsDropped) {
  line.Expect("01 20", "02 21 05 02 51 06");
  EXPECT_EQ(Send("20"), "21 05");
  line.Expect("01 20", "02 21 07");
  EXPECT_EQ(Send("20"), "21 07");
}

TEST_F(Exchange, DiscardsWhatStoodOnTheLineBefore) {
  line.SendUnasked(Hex("02 51 06"));
  line.Expect("01 20", "02 21 05");
  EXPECT_EQ(Send("20"), "21 05");
}

TEST_F(Exchange, DiscardsAtMostOneReadOfStaleBytes) {
  line.SendUnasked(BYTES(255, 0xEE) + Hex("01 4E"));
  line.ExpectInReads(Hex("01 20"), {});
  EXPECT_EQ(Send("20"), "4E");
}

TEST_F(Exchange, EvenAnEmptyBodyDiscardsStaleBytes) {
  line.SendUnasked(Hex("01 4E"));
  EXPECT_EQ(Send(""), "LCE");
  line.Expect("01 20", "01 21");
  EXPECT_EQ(Send("20"), "21");
}

// --- the reply limit ----------------------------------------------------------------------------

TEST_F(Exchange, GivesUpAfterTheShortLimitOfReads) {
  for (const char* const body : {"10 05 02 FF FF", "20 03 02", "50 05 01 AB", "00", "FF", "4E"}) {
    SCOPED_TRACE(body);
    line.ExpectInReads(Frame(Hex(body)), {});
    EXPECT_EQ(Send(body), "TME");
    EXPECT_EQ(line.ReadsSinceRequest(), kShortLimit);
  }
}

TEST_F(Exchange, GivesUpOnIdentificationAndHandshakeAfterTheLongLimitOfReads) {
  for (const char* const body : {"30", "40 6F 9A"}) {
    SCOPED_TRACE(body);
    line.ExpectInReads(Frame(Hex(body)), {});
    EXPECT_EQ(Send(body), "TME");
    EXPECT_EQ(line.ReadsSinceRequest(), kLongLimit);
  }
}

TEST_F(Exchange, AReplyCompletedByTheLastPermittedReadIsLate) {
  line.ExpectInReads(Hex("01 20"), {Hex("02 21 05")}, kShortLimit);
  EXPECT_EQ(Send("20"), "TME");
  line.ExpectInReads(Hex("01 30"), {Hex("02 31 05")}, kLongLimit);
  EXPECT_EQ(Send("30"), "TME");
}

TEST_F(Exchange, AReplyCompletedByTheReadBeforeTheLastIsInTime) {
  line.ExpectInReads(Hex("01 20"), {Hex("02 21 05")}, kShortLimit - 1);
  EXPECT_EQ(Send("20"), "21 05");
  line.ExpectInReads(Hex("01 30"), {Hex("02 31 05")}, kLongLimit - 1);
  EXPECT_EQ(Send("30"), "31 05");
}

TEST_F(Exchange, AReplyThatWasLateIsNotTakenForTheNextOne) {
  line.ExpectInReads(Hex("01 20"), {Hex("02 21"), Hex("05")}, kShortLimit - 1);
  EXPECT_EQ(Send("20"), "TME");
  line.Expect("01 20", "02 21 07");
  EXPECT_EQ(Send("20"), "21 07");
}

// --- writing ------------------------------------------------------------------------------------

TEST_F(Exchange, AWriteThatTakesOnlyAPartIsCompleted) {
  line.TakeAtMost(2);
  line.Expect("05 10 05 02 FF FB", "01 06");
  EXPECT_EQ(Send("10 05 02 FF FB"), "06");
  EXPECT_EQ(line.Writes(), 1U + 3U);  // the handshake's before
}

TEST_F(Exchange, AFailedWriteIsLoggedWithTwoBlanksAndAwaitedAllTheSame) {
  line.PullOut();
  EXPECT_EQ(Send("20"), "TME");
  EXPECT_EQ(Log().back(), "[ERR] unable to  write to " + line.Path());
  EXPECT_EQ(line.ReadsSinceRequest(), kShortLimit);
}

TEST_F(Exchange, WithoutAPortIsAFailedWriteAndATimeout) {
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath, "/dev/no-such-port", {});
  const QList reply = worker.Comm2HW(HexList("20"));
  EXPECT_EQ(std::string(reply.begin(), reply.end()), "TME");
  EXPECT_EQ(Log().back(), "[ERR] unable to  write to /dev/no-such-port");
}

TEST_F(Exchange, EndsSoonWhenThePortIsToBeClosed) {
  serial->ClosePort();
  line.ExpectInReads(Hex("01 20"), {});
  EXPECT_EQ(Send("20"), "TME");
  EXPECT_LT(line.ReadsSinceRequest(), kShortLimit);
}

}  // namespace
}  // namespace unit
