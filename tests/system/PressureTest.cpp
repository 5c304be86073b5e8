#include "tests/support/ProcessInfo.h"
#include "tests/system/LoadFixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

/// More than the daemon can work off at once: every line arrives in one piece and in order, no card
/// starves, no slot is lost, and what does not arrive is in the log.

namespace {

class Pressure : public LOAD_FIXTURE {
 protected:
  std::vector<std::string> CommandLines(const COUNTED_CARD& card, int count) const {
    std::vector<std::string> lines;
    for (int number = 0; number < count; ++number) {
      lines.push_back(card.Command(number) + "\n");
    }
    return lines;
  }

  /// From here on the master loop waits for a card, until the pauses of a second are released.
  void HoldOperator() {
    const int begun = pauses.CountBegun(1);
    pauses.Hold(1);
    cae->SendAndWaitUntilRead("GETSCB3:0\r\n");
    ASSERT_TRUE(pauses.WaitUntilBegun(1, begun + 1));
  }
  /// The rack's cards are identified so many times.
  void Identify(int times) {
    constexpr int kAtOnce = 20;  // so few that they wait for nothing
    bus.IdentifyAtOutputs();
    for (int i = 0; i < times; i += kAtOnce) {
      const std::size_t before = bus.CountOutputs(kOutputCard.Address());
      io->Send(kOutputCard.Lines(0, kAtOnce));
      ASSERT_TRUE(support::WaitUntil(
          [&] { return bus.CountOutputs(kOutputCard.Address()) >= before + kAtOnce; }));
    }
  }
  std::string ServoReply() const {
    return CaeReply({"CIA: SERVO PARAM is GOT from card", "SPG:0x0:SCB3:0xFF"});
  }
  std::string Report(int number) const {
    return CaeReply({"COE:Illegal command -> " + RefusedCommand(number)});
  }
  std::string VersionReply() const { return CaeReply({"CIA: DRIVER VERSION 1.20"}); }
};

// --- lines stay whole ---------------------------------------------------------------------------

TEST_F(Pressure, LinesThatComeWhileTheOperatorWorksStayMessagesOfTheirOwn) {
  StartForFaults();
  constexpr int kLines = 300;
  HoldOperator();
  for (int i = 0; i < 3; ++i) {
    cae->SendAndWaitUntilRead("GETSCB3:0\r\n");
  }
  const std::vector<std::string> lines = CommandLines(kOutputCard, kLines);
  EXPECT_TRUE(SendOneByOne(*io, lines));
  io->Send("EXIT\n");
  pauses.Release(1);
  for (const std::string& line : lines) {
    ASSERT_TRUE(mon->Receives(line + "\r"));
  }
  ExpectOutputs(kOutputCard, kLines);
  EXPECT_TRUE(io->Receives(IoLine("VORN: Bye Bye...")));
  EXPECT_TRUE(io->IsClosed());
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(cae->Receives(ServoReply()));
  }
  EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));  // and nothing was refused
}

TEST_F(Pressure, WholeLinesAreNeverTornHoweverFastTheyCome) {
  config.speedPercent = "100";
  StartForFaults();
  const int lines = Rounds(3000, 1000);
  io->Send(kOutputCard.Lines(0, lines) + kOutputCard.EndCommand(lines) + "\n");
  ExpectOutputsAndEnd(kOutputCard, lines);
  EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));  // and nothing was refused
}

TEST_F(Pressure, AProgramThatWritesMoreLinesThanTheKernelHoldsHasNoneTorn) {
  config.speedPercent = "100";
  // Lines of nine bytes: no buffer's size is a multiple of theirs.
  config.io.inpSeparator = "\r\n";
  StartForFaults();
  const int lines = Rounds(30'000, 8000);
  std::string text;
  for (int number = 0; number < lines; ++number) {
    text += kOutputCard.Command(number) + config.io.inpSeparator;
  }
  io->Send(text + kOutputCard.EndCommand(lines) + config.io.inpSeparator);
  ExpectOutputsAndEnd(kOutputCard, lines);
  EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));  // and nothing was refused
}

TEST_F(Pressure, AFullReadEndsBehindItsLastSeparatorAndAShorterOneStaysAsItCame) {
  StartForFaults();
  const std::string endless(300, 'x');  // its first 255 bytes are full, and hold no separator
  io->Send("bad1\nbad2\n" + endless + "\nbad3\n\nbad");
  EXPECT_TRUE(mon->Receives("bad1\nbad2\n\r"));
  EXPECT_TRUE(mon->Receives(endless.substr(0, 255) + "\r"));
  EXPECT_TRUE(mon->Receives(endless.substr(255) + "\nbad3\n\nbad\r"));
  io->SendAndWaitUntilRead("4\n");
  EXPECT_TRUE(mon->Receives("4\n\r"));
  // The 255th byte is the separator.
  const std::string exact = std::string(254, 'y') + "\n";
  io->Send(exact + "bad5\n");
  EXPECT_TRUE(mon->Receives(exact + "\r"));
  EXPECT_TRUE(mon->Receives("bad5\n\r"));
}

TEST_F(Pressure, TheLastSeparatorIsFoundAsLinesAreCut) {
  config.io.inpSeparator = "##";
  StartForFaults();
  // The third of these belongs to what follows.
  const std::string line = std::string(252, 'x') + "##";
  io->Send(line + "#bad##");
  EXPECT_TRUE(mon->Receives(line + "\r"));
  EXPECT_TRUE(mon->Receives("#bad##\r"));
  // Half a separator is none.
  const std::string other = std::string(200, 'y') + "##";
  const std::string torn(255 - other.size() - 1, 'z');
  io->Send(other + torn + "##bad##");
  EXPECT_TRUE(mon->Receives(other + "\r"));
  EXPECT_TRUE(mon->Receives(torn + "##bad##\r"));
}

TEST_F(Pressure, AnOperatorsLineBehindAFullReadIsUnderstood) {
  StartForFaults();
  cae->Send(std::string(250, 'x') + "\r\nDRVVER\r\n");
  EXPECT_TRUE(cae->Receives(UnknownReply()));
  EXPECT_TRUE(cae->Receives(VersionReply()));
}

// --- without an adapter -------------------------------------------------------------------------

TEST_F(Pressure, AClientThatHasLeftALoadBehindFreesItsSlotWithoutAnAdapter) {
  config.speedPercent = "100";
  StartForFaults();
  LoseAdapter();
  const int bytes = Rounds(3'800'000, 400'000);
  io->Send(kServoCard.Lines(0, bytes / 8));
  const auto begin = std::chrono::steady_clock::now();
  io.reset();
  const auto isNextServed = [&] {  // who comes too early is dropped with the listener
    TCP_CLIENT next(config.io.port);
    return next.ReadUntil(kIoGreeting, kLoadLimit).ends_with(kIoGreeting);
  };
  EXPECT_TRUE(support::WaitUntil(isNextServed, 2 * kLoadLimit));
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  if (!support::kInstrumented) {
    EXPECT_LT(taken.count(), 15);
  }
}

TEST_F(Pressure, WithoutAnAdapterAnIoClientIsServedAsEver) {
  config.speedPercent = "100";
  StartForFaults();
  LoseAdapter();
  EXPECT_TRUE(mon->Receives("a1b0d00\n\r"));
  const int lines = Rounds(20'000, 3000);
  const std::string text = kServoCard.Lines(0, lines);
  {
    COLLECTOR copies(*mon);
    io->Send(text + RefusedCommand(1) + "\n");
    EXPECT_TRUE(cae->Receives(Report(1), kLoadLimit));
    EXPECT_TRUE(copies.WaitForEnd(RefusedCommand(1) + "\n\r", kLoadLimit));
    std::string copied = copies.Stop();
    copied.erase(std::remove(copied.begin(), copied.end(), '\r'), copied.end());
    EXPECT_TRUE(copied == text + RefusedCommand(1) + "\n");
  }
  EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
  EXPECT_TRUE(SendOneByOne(*io, {"EXIT\n"}));
  EXPECT_TRUE(io->Receives(IoLine("VORN: Bye Bye...")));
  EXPECT_TRUE(io->IsClosed());
  EXPECT_EQ(CountLines(kOldestAreLost), 1);
}

TEST_F(Pressure, AfterAnAbsenceEachCardGetsTheLatestThatWaitedForIt) {
  config.speedPercent = "100";
  StartForFaults();
  constexpr int kFew = 40;
  const int many = Rounds(20'000, 3000);
  int first = 0;
  for (int absence = 1; absence <= 2; ++absence) {
    const std::size_t before = bus.CountOutputs(kServoCard.Address());
    LoseAdapter();
    io->Send(kOutputCard.Lines((absence - 1) * kFew, kFew) + kServoCard.Lines(first, many) +
             RefusedCommand(absence) + "\n");
    EXPECT_TRUE(cae->Receives(Report(absence), kLoadLimit));  // so all of them wait
    EXPECT_EQ(CountLines(kOldestAreLost), absence);
    Plug(0);
    first += many;
    const auto isLast = [&] {
      return bus.LastOutput(kServoCard.Address()) == kServoCard.Frame(first - 1);
    };
    ASSERT_TRUE(support::WaitUntil(isLast, kLoadLimit));
    // The latest, without a gap; not so many that the card is busy with history.
    std::vector<sim::Bytes> kept = bus.Outputs(kServoCard.Address());
    kept.erase(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_GE(kept.size(), 100U);
    EXPECT_LE(kept.size(), 1000U);
    int number = first - static_cast<int>(kept.size());
    for (const sim::Bytes& output : kept) {
      ASSERT_EQ(sim::ToHex(output), sim::ToHex(kServoCard.Frame(number++)));
    }
    ExpectOutputs(kOutputCard, absence * kFew);
  }
}

TEST_F(Pressure, AShortAbsenceCostsNothing) {
  config.speedPercent = "100";
  StartForFaults();
  LoseAdapter();
  constexpr int kLines = 300;
  io->Send(kOutputCard.Lines(0, kLines) + RefusedCommand(1) + "\n");
  EXPECT_TRUE(cae->Receives(Report(1)));
  Plug(0);
  ExpectOutputs(kOutputCard, kLines);
  EXPECT_EQ(CountLines(kOldestAreLost), 0);
}

// --- who reads misses nothing -------------------------------------------------------------------

TEST_F(Pressure, AMonitorThatReadsGetsEveryCopyAndEveryLine) {
  config.speedPercent = "50";
  config.initPollState = "TRUE";
  StartForFaults();
  const int lines = Rounds(3500, 2000);
  COLLECTOR input(*io);
  COLLECTOR copies(*mon);
  bus.StartInputs();
  constexpr std::chrono::microseconds kInterval{1'000'000 / 350};
  auto next = std::chrono::steady_clock::now();
  for (const std::string& line : CommandLines(kOutputCard, lines)) {
    io->Send(line);
    std::this_thread::sleep_until(next += kInterval);
  }
  bus.StopInputs();
  const std::string end = kOutputCard.EndCommand(lines) + "\n";
  io->Send(end);
  ExpectOutputsAndEnd(kOutputCard, lines);
  // The input that was last is told once more.
  cae->Send("GETLASTINPST:3=0\r\n");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: LAST INPUT STATE SENT ON IO INTERFACE"}), kLoadLimit));
  const std::string last = IoLine(InputLine(bus.Inputs()));
  ASSERT_TRUE(input.WaitForEnd(last + last, kLoadLimit));
  // The copies may be hundreds behind, and any text of an input comes again and again: they end
  // with what comes once, for a slot without a card.
  const std::string marker = "a7b7dA5\n";
  io->Send(marker);
  ASSERT_TRUE(copies.WaitForEnd(marker + "\r", kLoadLimit));
  std::vector<std::string> told = Messages(input.Stop(), "\n\r");
  std::string copiedLines;
  std::vector<std::string> copiedInputs;
  for (const std::string& message : Messages(copies.Stop(), "\n\r")) {
    if (message.starts_with("a3")) {
      copiedInputs.push_back(message);
    } else {
      copiedLines += message + "\n";
    }
  }
  EXPECT_TRUE(copiedLines == kOutputCard.Lines(0, lines) + end + marker)
      << copiedLines.size() << " bytes";
  EXPECT_TRUE(copiedInputs == told) << copiedInputs.size() << " of " << told.size();
  told.pop_back();
  ExpectAllInputs(told);
}

TEST_F(Pressure, AnOperatorWhoReadsGetsEveryReport) {
  config.speedPercent = "100";
  StartForFaults();
  const int lines = Rounds(8000, 4000);
  std::string text;
  std::string expected;
  for (int number = 0; number < lines; ++number) {
    text += RefusedCommand(number) + "\n";
    expected += Report(number);
  }
  COLLECTOR reports(*cae);
  io->Send(text);
  EXPECT_TRUE(support::WaitUntil([&] { return reports.Size() >= expected.size(); }, kLoadLimit));
  const std::string told = reports.Stop();
  EXPECT_TRUE(told == expected) << told.size() << " bytes of " << expected.size();
}

// --- no card starves ----------------------------------------------------------------------------

TEST_F(Pressure, ACardIsPolledForEverHoweverOftenItIsIdentified) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  StartForFaults();
  Identify(200);
  constexpr std::size_t kPollBytes = 3;
  EXPECT_EQ(bus.LongestPoll(), 1 + 254 / kPollBytes * kPollBytes);  // the length byte, and a body
  for (const int address : {3, 8, 15}) {
    const int before = bus.CountPolls(address);
    EXPECT_TRUE(support::WaitUntil([&] { return bus.CountPolls(address) >= before + 20; }))
        << address;
  }
  io->Read(4096, support::kSilence);  // what the inputs were at first
  EXPECT_TRUE(rack.Set(3, 0, 0x5A).ok);
  EXPECT_TRUE(io->Receives(IoLine("a3b0d5A")));
}

TEST_F(Pressure, ACardIsPolledWhateverAClientSendsToItsAddress) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  StartForFaults();
  constexpr int kFlooded = 3;
  constexpr int kNeighbour = 8;
  std::string lines;
  while (lines.size() < 4096) {
    lines += "a3b0d00\n";
  }
  std::atomic<bool> isOver = false;
  std::thread flood([&] {
    while (!isOver) {
      if (io->TrySend(lines) < lines.size()) {  // a torn line is refused, and does no harm
        io->WaitUntilWritable(support::milliseconds(20));
      }
    }
  });
  // The queue is full by then, as far as it fills.
  const int settled = bus.CountPolls(kNeighbour) + 100;
  EXPECT_TRUE(
      support::WaitUntil([&] { return bus.CountPolls(kNeighbour) >= settled; }, kLoadLimit));
  const int before = bus.CountPolls(kFlooded);
  const int neighbourBefore = bus.CountPolls(kNeighbour);
  const int polls = Rounds(3000, 300);
  EXPECT_TRUE(support::WaitUntil(
      [&] { return bus.CountPolls(kNeighbour) >= neighbourBefore + polls; }, kLoadLimit));
  EXPECT_GE(bus.CountPolls(kFlooded) - before, polls / 10);
  isOver = true;
  flood.join();
}

TEST_F(Pressure, IdentificationsFillNoMemory) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  StartForFaults();
  Identify(1000);
  const long before = support::ResidentKiB(Pid());
  Identify(Rounds(20'000, 3000));
  if (!support::kInstrumented) {
    EXPECT_LT(support::ResidentKiB(Pid()) - before, 1024);
  }
}

// --- who has left -------------------------------------------------------------------------------

TEST_F(Pressure, AnEndByCommandIsLoggedAlsoWhereTheClientLeftFirst) {
  StartForFaults();
  for (const PART part : {PART::kIo, PART::kCae}) {
    const std::string& name = Interface(part).name;
    SCOPED_TRACE(name);
    const int begun = pauses.CountBegun(1);
    pauses.Hold(1);
    pauses.Hold(2);
    Client(part)->Send(part == PART::kIo ? "EXIT\n" : "EXIT\r\n");
    ASSERT_TRUE(pauses.WaitUntilBegun(1, begun + 1));
    Client(part)->Close();
    ASSERT_TRUE(WaitForLines(ClosedByClient(name), 1));
    pauses.Release(1);
    EXPECT_TRUE(WaitForLines(ClosedByCommand(name), 1));
    if (part == PART::kCae) {  // the prompt behind it waits when the machine is served again
      io->Send("a5b0d00\n");
      EXPECT_TRUE(mon->Receives("a5b0d00\n\r"));
    }
    pauses.Release(2);
    Reconnect(part);
  }
  EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
}

TEST_F(Pressure, WhatAClientHasLeftBehindDoesNotEndTheNextOnesConnection) {
  StartForFaults();
  constexpr int kLines = 20;
  HoldOperator();
  EXPECT_TRUE(SendOneByOne(*io, CommandLines(kOutputCard, kLines)));
  EXPECT_TRUE(SendOneByOne(*io, {"EXIT\n"}));
  EXPECT_TRUE(SendOneByOne(*cae, {"EXIT\r\n"}));
  const std::string left = Reconnect(PART::kIo) + Reconnect(PART::kCae);
  EXPECT_EQ(left, "");
  pauses.Release(1);
  ExpectOutputs(kOutputCard, kLines);
  // The answer that was under way is the next operator's.
  EXPECT_TRUE(cae->Receives(ServoReply()));
  EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
  io->Send("EXIT\n");  // the next one's own is taken
  EXPECT_TRUE(io->Receives(IoLine("VORN: Bye Bye...")));
  EXPECT_TRUE(io->IsClosed());
  cae->Send("EXIT\r\n");
  EXPECT_TRUE(cae->Receives(CaeLine("VORN: Bye Bye...")));
  cae->ReadToEnd();
}

TEST_F(Pressure, AnExitIsOverWhenItsClientHasLeftAndAnotherIsThere) {
  StartForFaults();
  for (const PART part : {PART::kIo, PART::kCae}) {
    SCOPED_TRACE(Interface(part).name);
    const int begun = pauses.CountBegun(1);
    pauses.Hold(1);
    Client(part)->Send(part == PART::kIo ? "EXIT\n" : "EXIT\r\n");
    ASSERT_TRUE(pauses.WaitUntilBegun(1, begun + 1));
    Reconnect(part);  // while the farewell takes its time
    pauses.Release(1);
    if (part == PART::kCae) {  // what was queued for the one who left is the next one's
      EXPECT_TRUE(cae->Receives(CaeLine(">")));
    }
    EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
    io->Send("bad\n");  // both are served
    EXPECT_TRUE(cae->Receives(CaeReply({"COE:Illegal command -> bad"})));
  }
}

TEST_F(Pressure, AnExitThatWaitedForTheAdapterDoesNotEndTheNextOnesConnection) {
  config.speedPercent = "100";
  StartForFaults();
  LoseAdapter();
  constexpr int kLines = 1030;
  EXPECT_TRUE(SendOneByOne(*io, CommandLines(kServoCard, kLines)));
  io->Send("EXIT\n");
  io->Close();
  io.reset();
  ASSERT_TRUE(WaitForLines(Waiting("IO"), 2));
  Reconnect(PART::kIo);
  Plug(0);
  EXPECT_TRUE(support::WaitUntil(
      [&] { return bus.LastOutput(kServoCard.Address()) == kServoCard.Frame(kLines - 1); }));
  io->Send("a5b0d11\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 11 FF"));
  EXPECT_TRUE(io->ReceivesNothing());
}

}  // namespace
