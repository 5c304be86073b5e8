// What the worker does while others are behind, or it is behind itself.

#include "tests/unit/bus/SerialFixture.h"
#include "vorn/base/Budget.h"

namespace vorn {

namespace unit {
namespace {

constexpr const char* kOldestLost =
    "[ERR] too many messages wait for the card bus, the oldest are lost";
constexpr const char* kNoDevice = "[ERR] ttyUSB devices couldn't be found";
constexpr const char* kLinesLost =
    "[ERR] too many messages wait from the card bus, input lines are lost";

class SerialBacklog : public SERIAL_FIXTURE {
 protected:
  /// So many bytes, as the queues count them, of lines for the master loop.
  void FillInbound(std::size_t bytes) {
    while (inbound.Bytes() < bytes) {
      inbound.ToQueue(HexList("61"));
    }
    ASSERT_EQ(inbound.Bytes(), bytes);
  }

  /// Bodies of ten bytes as a queue counts them, each with its number.
  static QList Numbered(std::size_t number) {
    QList body = HexList("10 05 06");
    for (int i = 0; i < 6; ++i) {
      body.push_back(static_cast<char>(number >> (4 * i) & 0xF));
    }
    return body;
  }
};

TEST_F(SerialBacklog, NoCardIsPolledWhile24KibOfLinesWaitForTheMasterLoop) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  MakePolled(3);
  FillInbound(24U * 1024);
  EXPECT_TRUE(worker.OnTask());
  EXPECT_TRUE(worker.BusQueue(3).IsEmpty());

  inbound.DeQueue();
  EXPECT_TRUE(worker.OnTask());
  EXPECT_EQ(TakeBodies(3).size(), 1U);
}

TEST_F(SerialBacklog, LinesOfCardsThatReportWithoutAPollAreLostWhere32KibWaitAndTheLogSaysSoOnce) {
  Connect();
  MakePolled(3);
  FillInbound(32U * 1024);
  TakeReply("21 03 01 02");
  TakeReply("21 03 03 04");
  EXPECT_EQ(inbound.Bytes(), 32U * 1024);
  EXPECT_EQ(CountLog(kLinesLost), 1);
  // What is stored is true all the same.
  EXPECT_EQ(Card(3).values[0], 3);

  inbound.DeQueue();
  TakeReply("21 03 05 04");
  const LINES lines = TakeLines();
  EXPECT_EQ(lines.back(), "a3b0d05");
  EXPECT_EQ(CountLog(kLinesLost), 1);
}

TEST_F(SerialBacklog, LinksLostAgainAndAgainDoNotPileUpPolls) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  MakePolled(3);
  MakePolled(8);
  // Card 3's poll costs the link each time, so that card 8's is never reached.
  AnswerWith("01 54");
  for (int pass = 0; pass < 40; ++pass) {
    worker.OnTask();
  }
  EXPECT_GT(line.Requests().size(), 40U);
  EXPECT_EQ(worker.BusQueue(3).Size(), 1U);
  EXPECT_EQ(worker.BusQueue(8).Size(), 16U);
}

TEST_F(SerialBacklog, OtherRequestsOfACardDoNotKeepItsPollsOut) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  MakePolled(3);
  AnswerWith("01 06");
  for (int i = 0; i < 20; ++i) {
    worker.BusQueue(3).ToQueue(HexList("10 03 01 00"));
  }
  for (int pass = 0; pass < 3; ++pass) {
    worker.OnTask();
  }
  EXPECT_EQ(worker.BusQueue(3).Size(), 20U - 3 + 3);
}

TEST_F(SerialBacklog, EmptyRequestsBeforeAFrameAreAnsweredInTheSamePass) {
  SERIAL_INTERFACE& worker = Connect();
  for (int i = 0; i < 100; ++i) {
    worker.BusQueue(3).ToQueue({});
  }
  worker.BusQueue(3).ToQueue(HexList("20 03 02"));
  worker.BusQueue(3).ToQueue({});
  worker.BusQueue(3).ToQueue(HexList("20 03 02"));
  line.Expect("03 20 03 02", "01 06");
  worker.OnTask();
  EXPECT_EQ(worker.BusQueue(3).Size(), 2U);
  line.Expect("03 20 03 02", "01 06");
  worker.OnTask();
  EXPECT_TRUE(worker.BusQueue(3).IsEmpty());
}

TEST_F(SerialBacklog, ACardWhoseClientKeepsSendingEmptyRequestsIsPolledAsOftenAsItsNeighbour) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  MakePolled(3);
  MakePolled(4);
  AnswerWith("01 06");
  constexpr int kPasses = 30;
  for (int pass = 0; pass <= kPasses; ++pass) {
    for (int i = 0; i < 31; ++i) {
      worker.QueueRequest(3, {});
    }
    worker.OnTask();
  }
  const std::vector<BYTES> requests = line.Requests();
  EXPECT_EQ(std::count(requests.begin(), requests.end(), Hex("03 20 03 02")), kPasses);
  EXPECT_EQ(std::count(requests.begin(), requests.end(), Hex("03 20 04 02")), kPasses);
}

TEST_F(SerialBacklog, WithALinkItIsBehindFrom4KibInAQueueOnAndDropsNothing) {
  SERIAL_INTERFACE& worker = Connect();
  worker.OnTask();  // the link serves
  for (const std::size_t number :
       {std::size_t{0}, std::size_t{15}, SERIAL_INTERFACE::kGeneralQueue}) {
    std::size_t queued = 0;
    for (; worker.BusQueue(number).Bytes() < 4096; ++queued) {
      EXPECT_FALSE(worker.IsBehind());
      worker.QueueRequest(number, Numbered(queued));
    }
    EXPECT_TRUE(worker.IsBehind());
    worker.QueueRequest(number, Numbered(queued));
    EXPECT_EQ(worker.BusQueue(number).Size(), queued + 1);
    for (std::size_t i = 0; i <= queued; ++i) {
      ASSERT_EQ(worker.BusQueue(number).DeQueue(), Numbered(i));
    }
  }
  EXPECT_EQ(Log().size(), 2U);  // the controller was found
}

TEST_F(SerialBacklog, WithoutALinkAQueueKeepsTheLatestThatFitAndTheLogSaysSoOnceForEachAbsence) {
  SERIAL_INTERFACE& worker = MakeUnconnected({});
  constexpr std::size_t kFit = 4096 / 10;
  for (int absence = 1; absence <= 2; ++absence) {
    for (const std::size_t number : {std::size_t{5}, SERIAL_INTERFACE::kGeneralQueue}) {
      for (std::size_t i = 0; i < 3 * kFit; ++i) {
        worker.QueueRequest(number, Numbered(i));
        EXPECT_FALSE(worker.IsBehind());
      }
      ASSERT_EQ(worker.BusQueue(number).Size(), kFit);
      for (std::size_t i = 2 * kFit; i < 3 * kFit; ++i) {
        ASSERT_EQ(worker.BusQueue(number).DeQueue(), Numbered(i));
      }
    }
    EXPECT_EQ(CountLog(kOldestLost), absence);
    // The link is there for a moment.
    line.List({line.Path()});
    AnswerWith("01 54");
    for (int pass = 0; pass < 3 && worker.LinkStatus() != kControllerFound; ++pass) {
      worker.OnTask();
    }
    ASSERT_EQ(worker.LinkStatus(), kControllerFound);
    worker.OnTask();  // it serves
    worker.QueueRequest(5, HexList("10 05"));
    worker.OnTask();
    ASSERT_EQ(worker.LinkStatus(), kNotConnected);
  }
}

TEST_F(SerialBacklog, ALinkThatACardCostsInEachPassIsNoneToTheOthers) {
  SERIAL_INTERFACE& worker = Connect({.polling = true, .autoDiscover = true});
  MakePolled(3);
  AnswerWith("01 54");
  worker.OnTask();  // carries nothing, and so a whole pass; queues a poll
  constexpr std::size_t kPasses = 60;
  for (std::size_t pass = 0; pass < kPasses; ++pass) {
    worker.OnTask();
    for (std::size_t i = 0; i < 50; ++i) {
      worker.QueueRequest(5, Numbered(i));
      ASSERT_FALSE(worker.IsBehind());
    }
  }
  EXPECT_GT(line.Requests().size(), kPasses);
  EXPECT_EQ(worker.BusQueue(5).Size(), 4096U / 10);
  // The cards are asked for once, however often the link was made.
  EXPECT_EQ(TakeBodies(SERIAL_INTERFACE::kGeneralQueue), LINES{"30"});
  EXPECT_EQ(CountLog(kOldestLost), 1);
}

TEST_F(SerialBacklog, ALinkServesFromItsFirstRequestOnWhereTheOneBeforeCarriedAWholePass) {
  SERIAL_INTERFACE& worker = Connect();
  worker.OnTask();
  worker.BusQueue(5).ToQueue(HexList("10 05"));
  AnswerWith("01 54");
  worker.OnTask();
  ASSERT_EQ(worker.LinkStatus(), kNotConnected);
  for (std::size_t i = 0; i < 1000; ++i) {
    worker.BusQueue(5).ToQueue(Numbered(i));
  }
  bool isBehind = false;
  AnswerWith([&] {
    isBehind = worker.IsBehind();
    return Hex("01 06");
  });
  worker.OnTask();
  EXPECT_TRUE(isBehind);
}

TEST_F(SerialBacklog, OnePollIsQueuedWhereTheQueueIsFullOfOtherRequests) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  MakePolled(3);
  AnswerWith("01 06");
  for (std::size_t i = 0; i < 1000; ++i) {
    worker.BusQueue(3).ToQueue(Numbered(i));
  }
  for (int pass = 0; pass < 20; ++pass) {
    worker.OnTask();
  }
  EXPECT_EQ(worker.BusQueue(3).Size(), 1000U - 20 + 1);
}

TEST_F(SerialBacklog, WithoutALinkAnEmptyRequestPushesOutNoFrame) {
  SERIAL_INTERFACE& worker = MakeUnconnected({});
  constexpr std::size_t kFit = 4090 / 10;
  for (std::size_t i = 0; i < kFit; ++i) {
    worker.QueueRequest(5, Numbered(i));
  }
  for (int i = 0; i < 100; ++i) {
    worker.QueueRequest(5, {});
  }
  EXPECT_EQ(worker.BusQueue(5).Bytes(), 4096U);
  EXPECT_EQ(worker.BusQueue(5).DeQueue(), Numbered(0));
  EXPECT_EQ(Log(), LINES{kNoDevice});
}

TEST_F(SerialBacklog, PollsThatGaveWayToLaterRequestsAreQueuedAgain) {
  SERIAL_INTERFACE& worker = Connect({.polling = true});
  MakePolled(3);
  AnswerWith("01 54");
  worker.OnTask();  // queues a poll
  worker.OnTask();  // loses the link with it, and queues another
  ASSERT_EQ(worker.LinkStatus(), kNotConnected);
  ASSERT_EQ(worker.BusQueue(3).Size(), 1U);
  for (std::size_t i = 0; i <= 4096 / 10; ++i) {
    worker.QueueRequest(3, Numbered(i));
  }
  ASSERT_EQ(worker.BusQueue(3).DeQueue(), Numbered(1));
  TakeBodies(3);
  AnswerWith("01 06");
  // Sixteen may wait: none of them is counted that is not there.
  for (int i = 0; i < 20; ++i) {
    worker.BusQueue(0).ToQueue(HexList("10 00"));
  }
  cards.With(3, [](PERIFCARD& card) { card.pollFlag = 1; });
  worker.OnTask();
  ASSERT_EQ(worker.LinkStatus(), kControllerFound);
  worker.OnTask();
  EXPECT_EQ(worker.BusQueue(3).Size(), 1U);
}

}  // namespace
}  // namespace unit

}  // namespace vorn
