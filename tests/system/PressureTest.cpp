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

  std::string Report(int number) const {
    return CaeReply({"COE:Illegal command -> " + RefusedCommand(number)});
  }
};

// --- lines stay whole ---------------------------------------------------------------------------

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

// --- without an adapter -------------------------------------------------------------------------

TEST_F(Pressure, AClientThatHasLeftALoadBehindFreesItsSlotWithoutAnAdapter) {
  config.speedPercent = "100";
  StartForFaults();
  LoseAdapter();
  const int bytes = Rounds(3'800'000, 400'000);
  io->Send(kServoCard.Lines(0, bytes / 8));
  io.reset();
  const auto isNextServed = [&] {  // who comes too early is dropped with the listener
    TCP_CLIENT next(config.io.port);
    return next.ReadUntil(kIoGreeting, kLoadLimit).ends_with(kIoGreeting);
  };
  EXPECT_TRUE(support::WaitUntil(isNextServed, 2 * kLoadLimit));
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
  // The input that was last is told once more, and is the last that is copied.
  cae->Send("GETLASTINPST:3=0\r\n");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: LAST INPUT STATE SENT ON IO INTERFACE"}), kLoadLimit));
  const std::string last = IoLine(InputLine(bus.Inputs()));
  ASSERT_TRUE(input.WaitForEnd(last + last, kLoadLimit));
  ASSERT_TRUE(copies.WaitForEnd(last, kLoadLimit));
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
  EXPECT_TRUE(copiedLines == kOutputCard.Lines(0, lines) + end) << copiedLines.size() << " bytes";
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

// --- who has left -------------------------------------------------------------------------------

}  // namespace
