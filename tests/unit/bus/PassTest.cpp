// The worker's pass: connecting, serving its queues in turn, losing the link, polling.

#include "tests/support/unit/Gate.h"
#include "tests/unit/bus/SerialFixture.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

namespace vorn {

namespace unit {
namespace {

constexpr std::size_t kGeneral = SERIAL_INTERFACE::kGeneralQueue;

using SerialPass = SERIAL_FIXTURE;

TEST_F(SerialPass, HasSeventeenEmptyQueues) {
  SERIAL_INTERFACE& worker = MakeWorker();
  EXPECT_EQ(SERIAL_INTERFACE::kBusQueues, 17U);
  EXPECT_EQ(kGeneral, 16U);
  for (std::size_t i = 0; i < 17; ++i) {
    EXPECT_TRUE(worker.BusQueue(i).IsEmpty());
  }
  EXPECT_THROW(worker.BusQueue(17), std::out_of_range);
}

TEST_F(SerialPass, BeginsWithTheThreadDelayWhichIsThatOfOnePercentAtFirst) {
  SERIAL_INTERFACE& worker = MakeWorker();
  worker.SetThreadDelayUs(2525);
  EXPECT_EQ(worker.ThreadDelayUs(), 2525);
  EXPECT_TRUE(worker.OnTask());
  EXPECT_EQ(pauses.ThreadsThatDelayed(2525), 1U);
  EXPECT_EQ(RunWorker()->ThreadDelayUs(), 5000);
}

TEST_F(SerialPass, WithAPortThatIsOpenAndUnconfirmedDoesNothing) {
  SERIAL_INTERFACE& worker = MakeWorker();
  worker.BusQueue(3).ToQueue(HexList("10 03"));
  EXPECT_TRUE(worker.OnTask());
  EXPECT_EQ(Log(), LINES());
  EXPECT_EQ(pauses.Begun(), SECONDS());
  EXPECT_EQ(TakeBodies(3), LINES({"10 03"}));
}

// --- connecting ---------------------------------------------------------------------------------

TEST_F(SerialPass, ConnectsWithoutAPauseWhenDiscoveryIsOff) {
  MakeUnconnected({});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(serial->LinkStatus(), 3);
  EXPECT_EQ(pauses.Begun(), SECONDS());
  EXPECT_EQ(line.Requests().size(), 1U);
}

TEST_F(SerialPass, ConnectsAndAsksForTheCardsAfterASecondWhenDiscoveryIsOn) {
  MakeUnconnected({false, true});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  line.Expect("01 30", "11 31 05 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(pauses.Begun(), SECONDS({1}));
  EXPECT_EQ(Card(0).typeCode, 5);
  EXPECT_EQ(Card(3).typeCode, 4);
}

TEST_F(SerialPass, AsksForTheCardsAgainAfterEachReconnection) {
  MakeUnconnected({false, true});
  for (int round = 0; round < 2; ++round) {
    line.Expect(kHandshakeFrame, kHandshakeReply);
    line.Expect("01 30", "");
    EXPECT_TRUE(serial->OnTask());
    EXPECT_EQ(serial->LinkStatus(), 0);
  }
  EXPECT_EQ(pauses.Begun(), SECONDS({1, 1}));
}

TEST_F(SerialPass, PausesTwoSecondsAfterEachFailureToConnectAndKeepsWhatIsQueuedForTheConnection) {
  MakeUnconnected({});
  line.List({});
  serial->BusQueue(5).ToQueue(HexList("10 05 02 FF FB"));
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_TRUE(serial->OnTask());
    EXPECT_EQ(serial->LinkStatus(), 0);
  }
  EXPECT_EQ(pauses.Begun(), SECONDS({2, 2}));
  line.List({line.Path()});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  line.Expect("05 10 05 02 FF FB", "01 06");
  serial->OnTask();
}

TEST_F(SerialPass, RetriesAFixedPathAndHoldsItOpenOnce) {
  Connect();
  line.Expect("02 50 03", "01 54");  // "T": a timeout, which makes it unconnected
  serial->BusQueue(3).ToQueue(HexList("50 03"));
  serial->OnTask();
  for (int attempt = 0; attempt < 3; ++attempt) {
    line.Expect(kHandshakeFrame, "01 4E");
    serial->OnTask();
    EXPECT_EQ(serial->LinkStatus(), 0);
    EXPECT_EQ(line.Openings(), 1);
  }
  EXPECT_EQ(pauses.Begun(), SECONDS({2, 2, 2}));
  line.Expect(kHandshakeFrame, kHandshakeReply);
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);
  EXPECT_EQ(line.Openings(), 1);
}

TEST_F(SerialPass, AnAdapterPulledOutIsSearchedForUntilAControllerAnswers) {
  MakeUnconnected({});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  serial->OnTask();
  ASSERT_EQ(serial->LinkStatus(), 3);

  line.PullOut();
  line.List({});
  serial->BusQueue(3).ToQueue(HexList("20 03 02"));
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(line.Openings(), 0);
  serial->OnTask();
  serial->OnTask();
  EXPECT_EQ(pauses.Begun(), SECONDS({2, 2}));

  line.List({second.Path()});
  second.Expect(kHandshakeFrame, kHandshakeReply);
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);

  LINES log = Log();
  log.erase(log.begin());  // of the attempt that had made it unconnected
  EXPECT_EQ(
      log,
      LINES({FoundAt(line)[0], FoundAt(line)[1], "[ERR] unable to  write to " + line.Path(),
             "[INF] comm timeout " + line.Path(), "[ERR] ttyUSB devices couldn't be found",
             "[ERR] ttyUSB devices couldn't be found", FoundAt(second)[0], FoundAt(second)[1]}));
}

// --- the queues ---------------------------------------------------------------------------------

TEST_F(SerialPass, ServesTheQueuesInOrderOneMessageEach) {
  Connect();
  for (std::size_t queue = 17; queue-- > 0;) {
    serial->BusQueue(queue).ToQueue({'\x10', static_cast<char>(queue), 'A'});
    serial->BusQueue(queue).ToQueue({'\x10', static_cast<char>(queue), 'B'});
  }
  for (const std::uint8_t round : {std::uint8_t{'A'}, std::uint8_t{'B'}}) {
    for (std::uint8_t queue = 0; queue < 17; ++queue) {
      line.Expect(BYTES{3, 0x10, queue, round}, Hex("01 06"));
    }
    serial->OnTask();
    line.ExpectDone();
  }
  serial->OnTask();  // nothing left
}

TEST_F(SerialPass, ATimeoutIsLoggedClosesThePortAndEndsTheServing) {
  Connect();
  serial->BusQueue(3).ToQueue(HexList("10 03"));
  serial->BusQueue(5).ToQueue(HexList("10 05"));
  line.Expect("02 10 03", "");
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(line.Openings(), 0);
  EXPECT_EQ(Log().back(), "[INF] comm timeout " + line.Path());
  EXPECT_EQ(TakeBodies(3), LINES());  // lost
  EXPECT_EQ(TakeBodies(5), LINES({"10 05"}));
}

TEST_F(SerialPass, ARequestOrReplyThatIsRefusedIsDroppedWithoutALineAndTheNextQueueIsServed) {
  Connect();
  const std::size_t lines = Log().size();
  const std::pair<QList, BYTES> refused[] = {
      {HexList("10 03"), Hex("01 4E")},
      {HexList("10 03"), Hex("00")},
      {HexList("10 03"), BYTES{136} + BYTES(136, '!')},  // fits no buffer
      {QList(255, '\x20'), {}},                          // fits no frame
      {QList(), {}},
  };
  for (const auto& [request, reply] : refused) {
    serial->BusQueue(3).ToQueue(request);
    serial->BusQueue(5).ToQueue(HexList("10 05"));
    if (!reply.empty()) {
      line.Expect(Hex("02 10 03"), reply);
    }
    line.Expect("02 10 05", "01 06");
    serial->OnTask();
    line.ExpectDone();
    EXPECT_EQ(serial->LinkStatus(), 3);
  }
  EXPECT_EQ(Log().size(), lines);
  EXPECT_EQ(TakeLines(), LINES());
}

TEST_F(SerialPass, AReplyChangesItsCardAndItsLinesGoToTheMasterLoopInOrder) {
  Connect();
  MakePolled(3);
  TakeReply("21 03 40 01");
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40", "a3b1d01"}));
  EXPECT_EQ(Card(3).values[0], 0x40);
  const BYTES again = Hex("51 03");
  serial->WriteToQueue(again.data());
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40", "a3b1d01"}));
  EXPECT_EQ(Card(3).changeFlags[1], 1);
  TakeReply("51 05 02 03");
  EXPECT_EQ(Card(5).queryBytes[3], 3);
  EXPECT_EQ(TakeLines(), LINES());
  TakeReply("21");  // too short to have an address
  EXPECT_EQ(TakeLines(), LINES());
}

// --- polling ------------------------------------------------------------------------------------

TEST_F(SerialPass, QueuesThePollFrameOfEachInputCardWhoseFlagIsSet) {
  Connect({true, false});
  TakeReply("31 00 03 04 05 06 07 08 09 0A FF 2A 01 02 04 00 04");
  cards.With(15, [](PERIFCARD& card) { card.pollFlag = 0; });
  TakeBodies(15);
  serial->SetPolling(true);
  for (const std::size_t slot : {2U, 5U, 6U, 13U}) {
    TakeBodies(slot);
  }
  serial->OnTask();
  const std::pair<std::size_t, const char*> polls[] = {
      {2, "20 02 02"}, {5, "20 05 06"}, {6, "20 06 01"}, {13, "20 0D 02"}};
  for (const auto& [slot, frame] : polls) {
    EXPECT_EQ(TakeBodies(slot), LINES({frame}));
  }
  for (std::size_t queue = 0; queue < 17; ++queue) {
    EXPECT_EQ(TakeBodies(queue), LINES()) << queue;
  }
}

TEST_F(SerialPass, PollsNothingWhileTheSwitchIsOff) {
  Connect();
  MakePolled(3);
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES());
  serial->SetPolling(true);
  EXPECT_TRUE(serial->Polling());
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES({"20 03 02"}));
  serial->SetPolling(false);
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES());
}

TEST_F(SerialPass, PollsNoSlotThatIsNotAnInputCard) {
  Connect({true, false});
  MakePolled(3);
  for (const int state : {0, 3}) {
    cards.With(3, [&](PERIFCARD& card) { card.stateWord = state; });
    serial->OnTask();
    EXPECT_EQ(TakeBodies(3), LINES());
  }
}

TEST_F(SerialPass, QueuesPollFramesEvenInThePassThatLostTheLink) {
  Connect({true, false});
  MakePolled(3);
  serial->BusQueue(0).ToQueue(HexList("10 00"));
  line.Expect("02 10 00", "");
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(TakeBodies(3), LINES({"20 03 02"}));
}

TEST_F(SerialPass, QueuesNoPollFramesWhileUnconnected) {
  MakeWorker(kFixedPath, line.Path(), {true, false});
  MakePolled(3);
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES());
}

TEST_F(SerialPass, APolledCardIsAskedInThePassAfterWithAllThatItsPollFrameHolds) {
  Connect({true, false});
  TakeReply("31 00 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00");
  line.Expect("03 20 03 02", "04 21 03 40 00");
  serial->OnTask();
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40"}));
  cards.With(3, [](PERIFCARD& card) { card.pollFrame = QList(252, '\x20'); });
  line.Expect("03 20 03 02", "04 21 03 40 00");
  serial->OnTask();
  line.Expect(Frame(BYTES(252, 0x20)), Hex("04 21 03 41 00"));
  serial->OnTask();
  EXPECT_EQ(TakeLines(), LINES({"a3b0d41"}));
}

// --- stopping -----------------------------------------------------------------------------------

TEST_F(SerialPass, ClosesThePortForGoodWhenAsked) {
  Connect({true, true});
  serial->BusQueue(3).ToQueue(HexList("10 03"));
  serial->ClosePort();
  for (int pass = 0; pass < 3; ++pass) {
    EXPECT_TRUE(serial->OnTask());
    EXPECT_EQ(serial->LinkStatus(), 0);
    EXPECT_EQ(line.Openings(), 0);
  }
  EXPECT_EQ(pauses.Begun(), SECONDS());
  EXPECT_EQ(line.Requests().size(), 1U);
}

TEST_F(SerialPass, AnExchangeThatTheStopCutsShortIsNoTimeoutAndTheLastOne) {
  Connect();
  const LINES before = Log();
  line.AnswerWith([&](const BYTES&) {
    serial->ClosePort();
    return BYTES();
  });
  serial->BusQueue(3).ToQueue(HexList("10 03"));
  serial->BusQueue(5).ToQueue(HexList("10 05"));
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(Log(), before);
  EXPECT_EQ(line.Requests().size(), 2U);  // the handshake before
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(Log(), before);
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(line.Openings(), 0);
}

/// A worker whose thread runs, and an adapter with a digital input card at address 3.
class SerialThread : public SERIAL_FIXTURE {
 protected:
  SerialThread() {
    line.List({line.Path()});
    MakePolled(3);
  }

  std::atomic<int> m_polls{0};
};

TEST_F(SerialThread, ConnectsAndServes) {
  AnswerWith("04 21 03 40 00");
  const auto worker = RunWorker();
  worker->BusQueue(3).ToQueue(HexList("20 03 02"));
  LINES lines;
  while (lines.empty()) {
    lines = TakeLines();
    std::this_thread::yield();
  }
  EXPECT_EQ(lines, LINES({"a3b0d40"}));
  EXPECT_EQ(worker->LinkStatus(), 3);
}

TEST_F(SerialThread, CanBeReleasedInThePauseAfterAFailure) {
  line.List({});
  pauses.SetLength(2, support::milliseconds(20));
  auto worker = RunWorker();
  EXPECT_TRUE(pauses.WaitUntilBegun(2));
  worker.reset();
  EXPECT_EQ(pauses.Begun().front(), 2);
}

TEST_F(SerialThread, CanBeReleasedWhileItWaitsForTheControllerOrACard) {
  line.AnswerWith([](const BYTES&) { return BYTES(); });
  auto worker = RunWorker();
  while (line.Requests().empty()) {
    std::this_thread::yield();
  }
  worker.reset();
  EXPECT_EQ(line.Requests().front(), Hex(kHandshakeFrame));
  EXPECT_EQ(line.Openings(), 0);

  AnswerWith("");
  const std::size_t before = line.Requests().size();
  worker = RunWorker();
  worker->BusQueue(3).ToQueue(HexList("20 03 02"));
  while (line.Requests().size() < before + 2) {
    std::this_thread::yield();
  }
  worker.reset();
  EXPECT_EQ(line.Requests()[before + 1], Hex("03 20 03 02"));
  EXPECT_EQ(line.Openings(), 0);
}

TEST_F(SerialThread, ThatRestsIsWokenByWhatThereIsToDoAndByNothingElse) {
  AnswerWith("04 21 03 40 00");
  const auto worker = RunWorker();
  const auto asks = [&](std::size_t times) {
    return support::WaitUntil([&] { return line.Requests().size() >= times; });
  };
  ASSERT_TRUE(asks(1));  // the handshake
  worker->BusQueue(3).ToQueue(HexList("20 03 02"));
  ASSERT_TRUE(asks(2));
  EXPECT_FALSE(support::WaitUntil([&] { return line.Requests().size() > 2; }, support::kSilence));
  worker->SetPolling(true);
  ASSERT_TRUE(asks(20));
  cards.With(3, [](PERIFCARD& card) { card.pollFlag = 0; });
  std::size_t before = 0;
  EXPECT_TRUE(support::WaitUntil([&] {
    before = line.Requests().size();
    return !support::WaitUntil([&] { return line.Requests().size() > before; }, support::kSilence);
  }));
  cards.With(3, [](PERIFCARD& card) { card.pollFlag = 1; });
  worker->LookAgain();
  ASSERT_TRUE(asks(before + 20));
  worker->ClosePort();
  EXPECT_TRUE(support::WaitUntil([&] { return worker->LinkStatus() == 0; }));
}

TEST_F(SerialThread, PollsAgainWhenTheMasterLoopHasTakenOfWhatItReports) {
  AnswerWith([this] {
    const auto value = static_cast<std::uint8_t>(m_polls++);
    return BYTES{4, 0x21, 3, value, static_cast<std::uint8_t>(~value)};
  });
  const auto worker = RunWorker();
  worker->SetThreadDelayUs(0);
  worker->SetPolling(true);
  EXPECT_TRUE(support::WaitUntil([&] { return inbound.Bytes() >= 24U * 1024; }));
  std::size_t before = 0;
  EXPECT_TRUE(support::WaitUntil([&] {
    before = line.Requests().size();
    return !support::WaitUntil([&] { return line.Requests().size() > before; }, support::kSilence);
  }));
  TakeLines();
  EXPECT_TRUE(support::WaitUntil([&] { return line.Requests().size() > before; }));
}

TEST_F(SerialThread, TakesAnotherDelayAtOnce) {
  AnswerWith("04 21 03 40 00");
  const auto worker = RunWorker();
  // The pass that serves the last queue serves none before it.
  worker->BusQueue(kGeneral).ToQueue(HexList("20 03 02"));
  ASSERT_TRUE(support::WaitUntil([&] { return line.Requests().size() == 2; }));
  worker->SetThreadDelayUs(2'000'000'000);
  worker->BusQueue(3).ToQueue(HexList("20 03 02"));
  EXPECT_FALSE(support::WaitUntil([&] { return line.Requests().size() > 2; }, support::kSilence));
  worker->SetThreadDelayUs(1);
  EXPECT_TRUE(support::WaitUntil([&] { return line.Requests().size() > 2; }));
}

TEST_F(SerialThread, ThatIsToldToCloseWhileItListsDevicesTriesNoneOfThem) {
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  worker.ClosePort();
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(line.Searches(), 1);
  EXPECT_EQ(line.Requests().size(), 0U);
}

TEST_F(SerialThread, ThatIsReleasedTakesTheReplyThatItWaitsForFirst) {
  GATE reply;
  AnswerWith([&] {
    reply.Pass();
    return Hex("04 21 03 40 00");
  });
  auto worker = RunWorker();
  worker->BusQueue(3).ToQueue(HexList("20 03 02"));
  ASSERT_TRUE(reply.WaitUntilReached());
  const std::future<void> released = std::async(std::launch::async, [&] { worker.reset(); });
  EXPECT_EQ(released.wait_for(support::kSilence), std::future_status::timeout);
  reply.Open();
  released.wait();
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40"}));
}

}  // namespace
}  // namespace unit

}  // namespace vorn
