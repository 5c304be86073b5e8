#include "tests/support/GoldenHelp.h"
#include "tests/support/ListeningPorts.h"
#include "tests/system/ClientFaults.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>

/// Clients that read slowly, or no longer.

namespace {

using std::chrono::milliseconds;

TEST_F(ClientFaults, AMonitorThatStopsReadingFillsNoMemoryAndIsGivenUpWithinAMinute) {
  config.speedPercent = "100";
  StartForFaults();
  const std::string full = "[ERR] too many messages wait on MON interface, copies are not made";
  BeginFault({.touched = {PART::kMon}, .lines = LateReplyOr(full)});
  TCP_CLIENT stuck = ReplaceBySlowReader(PART::kMon);
  // Lines for an empty slot: nothing goes to the bus, every byte goes to the monitor.
  constexpr std::size_t kPushed = 4U * 1024 * 1024;
  std::string lines;
  while (lines.size() < 64U * 1024) {
    lines += "a2b0d00" + std::string(43, '-') + "\n";  // five of them are a read of 255 bytes
  }
  {
    const COLLECTOR reader(*cae);  // the lines are refused: who did not read would go
    for (std::size_t pushed = 0; pushed < kPushed; pushed += lines.size()) {
      io->Send(lines);
      LookAtMemory();
    }
    ASSERT_TRUE(support::WaitUntil([&] { return io->IsAllRead(); }, 3 * support::kLimit));
  }
  ExpectService();
  ExpectGrowthBelow(16 * 1024);
  EXPECT_GE(CountLines(full), 1);
  // For the half minute to come.
  const std::string slower = CaeReply({"CIA: SPEED IS SET to " + kSpeedOfLongFaults + "%"});
  cae->Send("SPEED=" + kSpeedOfLongFaults + "\r\n");
  EXPECT_TRUE(cae->ReadUntil(slower).ends_with(slower));
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("MON"), 2, kMinute));
  stuck.Close();
  EndFault();
}

TEST_F(ClientFaults, AMonitorThatCatchesUpAfterEachPauseLosesNothing) {
  config.speedPercent = "50";
  StartForFaults();
  BeginFault({.touched = {PART::kMon}});
  TCP_CLIENT pausing = ReplaceBySlowReader(PART::kMon);
  std::string sent;
  std::string received;
  // For an empty slot: nothing goes to the bus, every byte goes to the monitor.
  const auto traffic = [&](std::chrono::seconds time, bool isRead) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
      const std::string line = "a2b0d" + sim::ToHex(static_cast<std::uint8_t>(i)) +
                               std::string(isRead ? 3 : 40, '-') + "\n";
      io->SendAndWaitUntilRead(line);
      sent += line;
      received += pausing.Read(isRead ? 4096 : 0, milliseconds(10));
    }
  };
  // A window that is closed, opened, and closed again after more than the half minute.
  traffic(std::chrono::seconds(3), false);
  traffic(std::chrono::seconds(32), true);
  traffic(std::chrono::seconds(3), false);
  ExpectService();
  const auto withoutReturns = [&] {
    std::string text = received;
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
  };
  EXPECT_TRUE(support::WaitUntil([&] {
    received += pausing.Read(4096, milliseconds(10));
    return withoutReturns().size() >= sent.size();
  }));
  EXPECT_TRUE(withoutReturns().starts_with(sent));  // the service's own lines stand behind it
  pausing.Close();
  EndFault();
}

TEST_F(ClientFaults, AnOperatorThatStopsReadingIsGivenUpWithinAMinute) {
  config.speedPercent = kSpeedOfLongFaults;
  StartForFaults();
  // What he has asked last is carried out when he has gone.
  const std::string full =
      "[ERR] too many messages wait on CAE interface, refused commands are not reported";
  BeginFault(
      {.touched = {PART::kCae},
       .lines = {"[ERR] too many messages wait on CAE interface, answers are not kept", full}});
  TCP_CLIENT stuck = ReplaceBySlowReader(PART::kCae);
  bool isStuck = false;
  // So many would fill what may wait, if they were read.
  for (int i = 0; i < 10'000 && !isStuck; ++i) {
    stuck.Send("HELP\r\n");
    isStuck = !support::WaitUntil([&] { return stuck.IsAllRead(); }, support::kSilence);
  }
  ASSERT_TRUE(isStuck);
  ExpectService();
  // More than he has asked for: 4 MB that are to be told to him, refused commands of a machine.
  // As fast as the monitor reads their copies: what waits is for the operator alone.
  constexpr std::size_t kPushed = 4U * 1024 * 1024;
  std::string lines;
  while (lines.size() < 16U * 1024) {
    lines += "bad\n";
  }
  {
    const COLLECTOR reader(*mon);
    std::size_t sent = 0;
    while (sent / 4 * Refused("bad").size() < kPushed) {
      io->Send(lines);
      sent += lines.size();
      ASSERT_TRUE(support::WaitUntil([&] { return reader.Size() >= sent; }, 3 * support::kLimit));
    }
  }
  ExpectService();
  ExpectGrowthBelow(16 * 1024);
  EXPECT_GE(CountLines(full), 1);
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE"), 2, kMinute));
  stuck.Close();
  EndFault();
}

TEST_F(ClientFaults, AnOperatorWhoAsksFasterThanHeIsAnsweredIsHeldBack) {
  config.speedPercent = "100";
  StartForFaults();
  BeginFault({.touched = {PART::kCae}});
  // Wherever a read of 255 bytes begins, it holds each command, to be refused for its card at once.
  std::string questions;
  constexpr std::size_t kPushed = 512U * 1024;
  while (questions.size() < kPushed) {
    questions +=
        "SETMSR\r\nGETMSR\r\nSTOREMSRS\r\nSTOREANMASK:\r\nLCDSELFTEST:\r\nLCDINITLIGHT:\r\n"
        "SETANMASK:\r\n";
  }
  {
    const COLLECTOR reader(*cae);
    constexpr std::size_t kPiece = 4096;
    for (std::size_t begin = 0; begin < questions.size(); begin += kPiece) {
      cae->Send(std::string_view(questions).substr(begin, kPiece));
      LookAtMemory();
    }
    ASSERT_TRUE(support::WaitUntil([&] { return cae->IsAllRead(); }, 3 * support::kLimit));
    LookAtMemory();
  }
  ExpectGrowthBelow(16 * 1024);
  const std::string version = CaeReply({"CIA: DRIVER VERSION 1.20"});
  cae->Send("DRVVER\r\n");  // behind the answers that are still to come
  EXPECT_TRUE(cae->ReadUntil(version).ends_with(version));
  ExpectService();
  EndFault();
}

TEST_F(ClientFaults, AnIoClientThatStopsReadingInAStormOfInputIsGivenUpWithinAMinute) {
  config.initPollState = "TRUE";
  config.speedPercent = kSpeedOfLongFaults;
  StartForFaults();
  BeginFault({.touched = {PART::kIo, PART::kMon}, .lines = LateReply()});
  TCP_CLIENT stuck = ReplaceBySlowReader(PART::kIo);
  bus.StartInputs();
  ExpectService();
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("IO"), 2, kMinute));
  bus.StopInputs();
  ExpectGrowthBelow(2 * 1024);
  stuck.Close();
  EndFault();
}

TEST_F(ClientFaults, ASlowReaderGetsEveryByte) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT client(config.cae.port, {.smallBuffers = true});
  EXPECT_TRUE(client.Receives(kCaeGreeting));
  // More than the connection takes, which is the system's choice: until the daemon keeps some, or
  // is in the midst of a write and reads no more.
  constexpr long kKept = 128L * 1024;
  const auto underWay = [&] {
    return support::UnreadBytes(client.LocalPort(), config.cae.port) +
           support::UnacknowledgedBytes(config.cae.port, client.LocalPort());
  };
  std::string expected;
  bool isStuck = false;
  while (!isStuck && static_cast<long>(expected.size()) < underWay() + kKept) {
    client.Send("HELP\r\n");
    expected += CaeReply(kQuickHelp);
    isStuck = !support::WaitUntil([&] { return client.IsAllRead(); }, support::kSilence);
  }
  EXPECT_TRUE(client.Receives(expected));
  Synchronise(client);
}

}  // namespace
