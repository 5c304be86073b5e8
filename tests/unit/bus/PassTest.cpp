// The worker's pass: connecting, serving its queues in turn, losing the link, polling.

#include "tests/support/unit/Gate.h"
#include "tests/support/unit/SystemCalls.h"
#include "tests/unit/bus/SerialFixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

namespace unit {
namespace {

constexpr std::size_t kGeneral = SERIAL_INTERFACE::kGeneralQueue;

class SerialPass : public SERIAL_FIXTURE {
 protected:
  using LINES = std::vector<std::string>;

  /// A worker in search mode that has failed to connect once.
  SERIAL_INTERFACE& Unconnected(OPTIONS options) {
    MakeWorker(kSearchDevices, "", options);
    EXPECT_FALSE(serial->Init());
    EXPECT_EQ(serial->LinkStatus(), 0);
    commands.ListDevices({line.Entry()});
    return *serial;
  }

  /// The bodies that wait in a bus queue, as hex; takes them.
  LINES TakeBodies(std::size_t queue) {
    LINES bodies;
    while (!serial->BusQueue(queue).IsEmpty()) {
      bodies.push_back(ToHex(serial->BusQueue(queue).DeQueue()));
    }
    return bodies;
  }
};

TEST_F(SerialPass, HasSeventeenEmptyQueues) {
  SERIAL_INTERFACE& worker = MakeWorker();
  EXPECT_EQ(SERIAL_INTERFACE::kBusQueues, 17U);
  EXPECT_EQ(kGeneral, 16U);
  for (std::size_t i = 0; i < 17; ++i) {
    EXPECT_TRUE(worker.BusQueue(i).IsEmpty());
  }
  EXPECT_THROW(worker.BusQueue(17), std::out_of_range);
}

TEST_F(SerialPass, BeginsWithTheThreadDelay) {
  SERIAL_INTERFACE& worker = MakeWorker();
  const CALLS_RECORDED calls;
  worker.SetThreadDelayUs(2525);
  EXPECT_EQ(worker.ThreadDelayUs(), 2525);
  EXPECT_TRUE(worker.OnTask());
  EXPECT_EQ(calls.ThreadsThatPaused(2'525'000), 1U);
}

TEST_F(SerialPass, ANegativeOrZeroDelayIsNoPause) {
  SERIAL_INTERFACE& worker = MakeWorker();
  const CALLS_RECORDED calls;
  for (const int delayUs : {0, -1, -49, INT32_MIN}) {
    worker.SetThreadDelayUs(delayUs);
    EXPECT_TRUE(worker.OnTask());
  }
  EXPECT_TRUE(calls.Pauses().empty());
}

TEST_F(SerialPass, StartsWithTheDelayOfOnePercent) {
  const SERIAL_INTERFACE worker("", kFixedPath, kPortOpen, logger, inbound, cards, false, false);
  EXPECT_EQ(worker.ThreadDelayUs(), 5000);
}

TEST_F(SerialPass, WithAPortThatIsOpenAndUnconfirmedDoesNothing) {
  SERIAL_INTERFACE& worker = MakeWorker();
  worker.BusQueue(3).ToQueue(HexList("10 03"));
  EXPECT_TRUE(worker.OnTask());
  EXPECT_EQ(Log(), LINES());
  EXPECT_EQ(commands.Pauses(), LINES());
  EXPECT_EQ(TakeBodies(3), LINES({"10 03"}));
}

// --- connecting ---------------------------------------------------------------------------------

TEST_F(SerialPass, ConnectsWithoutAPauseWhenDiscoveryIsOff) {
  Unconnected({});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(serial->LinkStatus(), 3);
  EXPECT_EQ(commands.Pauses(), LINES());
  EXPECT_EQ(line.Requests().size(), 1U);
}

TEST_F(SerialPass, ConnectsAndAsksForTheCardsAfterASecondWhenDiscoveryIsOn) {
  Unconnected({false, true});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  line.Expect("01 30", "11 31 05 00 00 04 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(commands.Pauses(), LINES({"1"}));
  EXPECT_EQ(Card(0).typeCode, 5);
  EXPECT_EQ(Card(3).typeCode, 4);
}

TEST_F(SerialPass, AsksForTheCardsAgainAfterEachReconnection) {
  Unconnected({false, true});
  for (int round = 0; round < 2; ++round) {
    line.Expect(kHandshakeFrame, kHandshakeReply);
    line.Expect("01 30", "");
    EXPECT_TRUE(serial->OnTask());
    EXPECT_EQ(serial->LinkStatus(), 0);
  }
  EXPECT_EQ(commands.Pauses(), LINES({"1", "1"}));
}

TEST_F(SerialPass, PausesTwoSecondsAfterEachFailureToConnect) {
  Unconnected({});
  commands.ListDevices({});
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_TRUE(serial->OnTask());
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(commands.Pauses(), LINES({"2", "2"}));
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
    EXPECT_EQ(line.Openings().size(), 1U);
  }
  EXPECT_EQ(commands.Pauses(), LINES({"2", "2", "2"}));
  line.Expect(kHandshakeFrame, kHandshakeReply);
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);
  EXPECT_EQ(line.Openings().size(), 1U);
}

TEST_F(SerialPass, WhatWasQueuedWhileUnconnectedIsSentAfterConnecting) {
  Unconnected({});
  commands.ListDevices({});
  serial->BusQueue(5).ToQueue(HexList("10 05 02 FF FB"));
  serial->OnTask();
  commands.ListDevices({line.Entry()});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  line.Expect("05 10 05 02 FF FB", "01 06");
  serial->OnTask();
}

TEST_F(SerialPass, AnAdapterPulledOutIsSearchedForUntilAControllerAnswers) {
  Unconnected({});
  line.Expect(kHandshakeFrame, kHandshakeReply);
  serial->OnTask();
  ASSERT_EQ(serial->LinkStatus(), 3);

  line.PullOut();
  commands.ListDevices({});
  serial->BusQueue(3).ToQueue(HexList("20 03 02"));
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(line.Openings(), std::vector<int>());
  serial->OnTask();
  serial->OnTask();
  EXPECT_EQ(commands.Pauses(), LINES({"2", "2"}));

  FAR_END again;
  commands.ListDevices({again.Entry()});
  again.Expect(kHandshakeFrame, kHandshakeReply);
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);

  LINES log = Log();
  log.erase(log.begin());  // of the attempt that had made it unconnected
  EXPECT_EQ(
      log,
      LINES({"[INF] try to catch hardware on " + line.Path(),
             "[INF] hardware found on " + line.Path() + " version: 1.07",
             "[ERR] unable to  write to " + line.Path(), "[INF] comm timeout " + line.Path(),
             "[ERR] ttyUSB devices couldn't be found", "[ERR] ttyUSB devices couldn't be found",
             "[INF] try to catch hardware on " + again.Path(),
             "[INF] hardware found on " + again.Path() + " version: 1.07"}));
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
  EXPECT_EQ(line.Openings(), std::vector<int>());
  EXPECT_EQ(Log().back(), "[INF] comm timeout " + line.Path());
  EXPECT_EQ(TakeBodies(3), LINES());  // lost
  EXPECT_EQ(TakeBodies(5), LINES({"10 05"}));
}

TEST_F(SerialPass, OtherErrorRepliesAreDroppedWithoutALineAndTheNextQueueIsServed) {
  for (const char* const reply : {"01 12", "01 23", "01 24", "01 4E", "01 42", "01 43", "00"}) {
    SCOPED_TRACE(reply);
    Connect();
    const std::size_t lines = Log().size();
    serial->BusQueue(3).ToQueue(HexList("10 03"));
    serial->BusQueue(5).ToQueue(HexList("10 05"));
    line.Expect("02 10 03", reply);
    line.Expect("02 10 05", "01 06");
    serial->OnTask();
    EXPECT_EQ(serial->LinkStatus(), 3);
    EXPECT_EQ(Log().size(), lines);
  }
}

TEST_F(SerialPass, AnEmptyBodyIsAnsweredWithoutTheLineAndIgnored) {
  Connect();
  serial->BusQueue(3).ToQueue({});
  serial->BusQueue(5).ToQueue(HexList("10 05"));
  line.Expect("02 10 05", "01 06");
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);
  EXPECT_EQ(TakeBodies(3), LINES());
  EXPECT_EQ(TakeLines(), LINES());
}

TEST_F(SerialPass, ABodyThatFitsNoFrameIsDroppedWithoutHarmToLinkAndQueues) {
  Connect();
  serial->BusQueue(3).ToQueue(QList(255, '\x20'));
  serial->BusQueue(3).ToQueue(HexList("10 03"));
  serial->BusQueue(5).ToQueue(HexList("10 05"));
  line.Expect("02 10 05", "01 06");
  serial->OnTask();
  line.Expect("02 10 03", "01 06");
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);
}

TEST_F(SerialPass, AReplyThatFitsNoBufferIsDroppedWithoutHarmToTheLink) {
  Connect();
  for (const std::uint8_t length : {std::uint8_t{136}, std::uint8_t{255}}) {
    serial->BusQueue(3).ToQueue(HexList("10 03"));
    serial->BusQueue(5).ToQueue(HexList("10 05"));
    line.Expect(Hex("02 10 03"), BYTES{length} + BYTES(length, '!'));
    line.Expect("02 10 05", "01 06");
    serial->OnTask();
    EXPECT_EQ(serial->LinkStatus(), 3);
  }
}

// --- polling ------------------------------------------------------------------------------------

TEST_F(SerialPass, QueuesThePollFrameOfEachInputCardWhoseFlagIsSet) {
  Connect({true, false});
  TakeReply("31 00 03 04 05 06 07 08 09 0A FF 0B 01 02 04 00 00");
  for (std::size_t slot = 0; slot < 16; ++slot) {
    SCOPED_TRACE(slot);
    LINES expected;
    if (slot == 2) {
      expected = {"20 02 02"};
    } else if (slot == 5) {
      expected = {"20 05 06"};
    } else if (slot == 6) {
      expected = {"20 06 01"};
    } else if (slot == 13) {
      expected = {"20 0D 02"};
    }
    EXPECT_EQ(TakeBodies(slot), expected);
  }
  EXPECT_EQ(TakeBodies(kGeneral), LINES());
}

TEST_F(SerialPass, PollsNothingWhileTheSwitchIsOff) {
  Connect();
  Identify(3, 4);
  EXPECT_EQ(TakeBodies(3), LINES());
  serial->SetPolling(true);
  EXPECT_TRUE(serial->Polling());
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES({"20 03 02"}));
  serial->SetPolling(false);
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES());
}

TEST_F(SerialPass, PollsNoCardWhoseFlagIsClear) {
  Connect();
  Identify(3, 4);
  Identify(8, 8);
  cards.With(3, [](PERIFCARD& card) { card.pollFlag = 0; });
  serial->SetPolling(true);
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES());
  EXPECT_EQ(TakeBodies(8), LINES({"20 08 01"}));
}

TEST_F(SerialPass, PollsNoSlotThatIsNotAnInputCard) {
  Connect({true, false});
  PERIFCARD card = Card(3);
  card.pollFlag = 1;
  card.pollFrame = HexList("20 03 02");
  for (const int state : {0, 3}) {
    card.stateWord = state;
    SetCard(3, card);
    serial->OnTask();
    EXPECT_EQ(TakeBodies(3), LINES());
  }
}

TEST_F(SerialPass, QueuesPollFramesEvenInThePassThatLostTheLink) {
  Connect();
  Identify(3, 4);
  serial->SetPolling(true);
  serial->BusQueue(0).ToQueue(HexList("10 00"));
  line.Expect("02 10 00", "");
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 0);
  EXPECT_EQ(TakeBodies(3), LINES({"20 03 02"}));
}

TEST_F(SerialPass, QueuesNoPollFramesWhileUnconnected) {
  MakeWorker(kFixedPath, line.Path(), {true, false});
  PERIFCARD card = Card(3);
  card.stateWord = 1;
  card.pollFlag = 1;
  card.pollFrame = HexList("20 03 02");
  SetCard(3, card);
  serial->OnTask();
  EXPECT_EQ(TakeBodies(3), LINES());
}

TEST_F(SerialPass, APolledCardIsAskedInThePassAfter) {
  Connect({true, false});
  Identify(3, 4);
  line.Expect("03 20 03 02", "04 21 03 40 00");
  serial->OnTask();
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40"}));
}

TEST_F(SerialPass, EachIdentificationAppendsToThePollFrame) {
  Connect();
  Identify(3, 4);
  Identify(3, 4);
  EXPECT_EQ(ToHex(Card(3).pollFrame), "20 03 02 20 03 02");
  serial->SetPolling(true);
  serial->OnTask();
  serial->SetPolling(false);
  line.Expect("06 20 03 02 20 03 02", "04 21 03 01 00");
  serial->OnTask();
  cards.With(3, [](PERIFCARD& card) { card.clearPerifCard(); });
  Identify(3, 4);
  EXPECT_EQ(ToHex(Card(3).pollFrame), "20 03 02");
}

TEST_F(SerialPass, APollFrameGrowsNoLongerThanAFrameAndTheCardIsPolledForEver) {
  Connect();
  constexpr int kThatFit = 84;
  for (int i = 1; i <= kThatFit + 3; ++i) {
    Identify(3, 4);
    ASSERT_EQ(Card(3).pollFrame.size(), 3U * static_cast<unsigned>(std::min(i, kThatFit)));
  }
  serial->SetPolling(true);
  serial->OnTask();
  const QList frame = Card(3).pollFrame;
  line.AnswerWith(
      [](const BYTES& body) { return body[1] == 3 ? Hex("04 21 03 01 00") : Hex("01 06"); });
  serial->OnTask();
  EXPECT_EQ(line.Requests().back().size(), 253U);
  EXPECT_EQ(TakeLines(), LINES({"a3b0d01"}));
}

TEST_F(SerialPass, APollFrameThatHasOutgrownAFrameIsDroppedWithoutHarm) {
  Connect({true, false});
  PERIFCARD card = Card(3);
  card.typeCode = 4;
  card.stateWord = 1;
  card.pollFlag = 1;
  card.pollFrame = QList(255, '\x20');
  SetCard(3, card);
  serial->BusQueue(3).ToQueue(QList(255, '\x20'));
  serial->OnTask();
  serial->OnTask();
  EXPECT_EQ(serial->LinkStatus(), 3);
  EXPECT_EQ(line.Requests().size(), 1U);  // the handshake
}

// --- stopping -----------------------------------------------------------------------------------

TEST_F(SerialPass, ClosesThePortForGoodWhenAsked) {
  Connect({true, true});
  serial->BusQueue(3).ToQueue(HexList("10 03"));
  serial->ClosePort();
  for (int pass = 0; pass < 3; ++pass) {
    EXPECT_TRUE(serial->OnTask());
    EXPECT_EQ(serial->LinkStatus(), 0);
    EXPECT_EQ(line.Openings(), std::vector<int>());
  }
  EXPECT_EQ(commands.Pauses(), LINES());
  EXPECT_EQ(line.Requests().size(), 1U);
}

TEST_F(SerialPass, ARunningWorkerConnectsServesAndStops) {
  commands.ListDevices({line.Entry()});
  line.AnswerWith([](const BYTES& body) {
    return body.front() == '@' ? Hex(kHandshakeReply) : Hex("04 21 03 40 00");
  });
  cards.With(3, [](PERIFCARD& card) { card.typeCode = 4; });
  SERIAL_INTERFACE worker("", kSearchDevices, kNotConnected, logger, inbound, cards, false, false);
  worker.SetThreadDelayUs(100);
  worker.BusQueue(3).ToQueue(HexList("20 03 02"));
  LINES lines;
  while (lines.empty()) {
    lines = TakeLines();
    std::this_thread::yield();
  }
  EXPECT_EQ(lines, LINES({"a3b0d40"}));
  EXPECT_EQ(worker.LinkStatus(), 3);
}

TEST_F(SerialPass, AWorkerCanBeReleasedInThePauseAfterAFailure) {
  {
    const SERIAL_INTERFACE worker("", kSearchDevices, kNotConnected, logger, inbound, cards, false,
                                  false);
    while (commands.Pauses().empty()) {
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(commands.Pauses().front(), "2");
}

TEST_F(SerialPass, AWorkerCanBeReleasedWhileItWaitsForAController) {
  commands.ListDevices({line.Entry()});
  line.AnswerWith([](const BYTES&) { return BYTES(); });
  {
    const SERIAL_INTERFACE worker("", kSearchDevices, kNotConnected, logger, inbound, cards, false,
                                  false);
    while (line.Requests().empty()) {
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(line.Requests().front(), Hex(kHandshakeFrame));
  EXPECT_EQ(line.Openings().size(), 0U);
}

TEST_F(SerialPass, AWorkerCanBeReleasedWhileItWaitsForACard) {
  commands.ListDevices({line.Entry()});
  line.AnswerWith(
      [](const BYTES& body) { return body.front() == '@' ? Hex(kHandshakeReply) : BYTES(); });
  {
    SERIAL_INTERFACE worker("", kSearchDevices, kNotConnected, logger, inbound, cards, false,
                            false);
    worker.BusQueue(3).ToQueue(HexList("20 03 02"));
    while (line.Requests().size() < 2) {
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(line.Requests().back(), Hex("03 20 03 02"));
  EXPECT_EQ(line.Openings().size(), 0U);
}

TEST_F(SerialPass, AWorkerThatIsReleasedWhileItListsDevicesTriesNoneOfThem) {
  const FOLDER folder;
  const std::string gate = folder.File("gate");
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  commands.Add("ls", "echo >'" + folder.File("asked") + "'; read -r all <'" + gate + "'; echo " +
                         line.Entry());
  auto worker = std::make_unique<SERIAL_INTERFACE>("", kSearchDevices, kNotConnected, logger,
                                                   inbound, cards, false, false);
  while (access(folder.File("asked").c_str(), F_OK) != 0) {
    std::this_thread::yield();
  }
  worker->ClosePort();
  std::thread release([&] { worker.reset(); });
  std::ofstream(gate) << "now\n";
  release.join();
  EXPECT_EQ(line.Requests().size(), 0U);
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
  EXPECT_EQ(line.Openings(), std::vector<int>());
}

TEST_F(SerialPass, AWorkerThatIsReleasedTakesTheReplyThatItWaitsForFirst) {
  commands.ListDevices({line.Entry()});
  GATE reply;
  line.AnswerWith([&](const BYTES& body) {
    if (body.front() == '@') {
      return Hex(kHandshakeReply);
    }
    reply.Pass();
    return Hex("04 21 03 40 00");
  });
  cards.With(3, [](PERIFCARD& card) { card.typeCode = 4; });
  auto worker = std::make_unique<SERIAL_INTERFACE>("", kSearchDevices, kNotConnected, logger,
                                                   inbound, cards, false, false);
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
