#include "tests/support/Text.h"
#include "tests/system/SystemFaults.h"

#include <sys/wait.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Signals, in every state of the daemon.

namespace {

namespace fs = std::filesystem;

/// Commands of an operator who does not read his answers: so many would fill what may wait of them.
constexpr int kMoreThanIsRead = 10'000;

TEST_F(SystemFaults, AStopAndAContinueOfTheProcessLoseNothing) {
  config.initPollState = "TRUE";
  StartForFaults();
  BeginFault({.touched = {}, .mostLines = 0});
  for (int i = 0; i < 5; ++i) {
    ExpectService();
    StopProcess();
    cae->Send("DRVVER\r\n");
    io->Send("a5b0d77\n");
    ASSERT_TRUE(rack.Press(3, i));
    daemon.Signal(SIGCONT);
    EXPECT_TRUE(cae->Receives(CaeReply({"CIA: DRIVER VERSION 1.20"})));
    EXPECT_TRUE(
        io->Receives(IoLine("a3b0d" + sim::ToHex(static_cast<std::uint8_t>((2 << i) - 1)))));
    EXPECT_TRUE(mon->ReadUntil("a5b0d77\n\r").ends_with("a5b0d77\n\r"));
  }
  EndFault();
}

TEST_F(SystemFaults, AStopAContinueAndASignalEndItInEveryState) {
  struct STATE {
    const char* name;
    std::function<void()> enter;
    std::function<void()> leave;
  };
  const auto nothing = [] {};
  std::optional<TCP_CLIENT> stuck;
  const STATE states[] = {
      {"no adapter",
       [&] {
         Start();
         ASSERT_TRUE(log.WaitForLine(kNoDevice));
       },
       nothing},
      {"its workers about to start",
       [&] {
         Start();
         ASSERT_TRUE(log.WaitForLine("[INF] vorn is started"));
       },
       nothing},
      {"nobody connected",
       [&] {
         StartLinked();
         ASSERT_TRUE(log.WaitForLine(Waiting("MON")));
       },
       nothing},
      {"a handshake that is not answered",
       [&] {
         adapter.Faults().Add({.kind = sim::FAULT_KIND::kNoAnswer,
                               .code = sim::request::kHandshake,
                               .times = std::nullopt});
         const std::uint64_t before = adapter.Requests().Last();
         Plug(0);
         Start();
         ASSERT_TRUE(WaitForFrame("03 40 6F 9A", before));
       },
       [&] { adapter.Faults().ClearAll(); }},
      {"an identification that is not answered",
       [&] {
         adapter.Faults().Add({.kind = sim::FAULT_KIND::kNoAnswer,
                               .code = sim::request::kIdentify,
                               .times = std::nullopt});
         const std::uint64_t before = adapter.Requests().Last();
         StartLinked();
         ASSERT_TRUE(WaitForFrame("01 30", before));
       },
       [&] { adapter.Faults().ClearAll(); }},
      {"a reply awaited",
       [&] {
         StartForFaults();
         adapter.Faults().Add({.kind = sim::FAULT_KIND::kNoAnswer, .times = std::nullopt});
         io->SendAndWaitUntilRead("a5b0d00\n");
       },
       [&] { adapter.Faults().ClearAll(); }},
      {"the pause of a command",
       [&] {
         StartForFaults();
         const int before = pauses.CountBegun(1);
         pauses.Hold(1);
         cae->Send("REBOOT:5\r\n");
         ASSERT_TRUE(pauses.WaitUntilBegun(1, before + 1));
       },
       [&] { pauses.Release(1); }},
      {"the last second of a client that has taken its leave",
       [&] {
         StartForFaults();
         const int before = pauses.CountBegun(1);
         pauses.Hold(1);
         io->Send("EXIT\n");
         ASSERT_TRUE(pauses.WaitUntilBegun(1, before + 1));
       },
       [&] { pauses.Release(1); }},
      {"a reader that stopped",
       [&] {
         config.speedPercent = "100";
         Start();
         // A child of the daemon before this one may have copies of its listeners for a moment yet.
         ASSERT_TRUE(log.WaitForLine(Waiting("CAE")));
         stuck.emplace(config.cae.port, support::CLIENT_OPTIONS{.smallBuffers = true});
         ASSERT_TRUE(stuck->Receives(kCaeGreeting));
         bool isStuck = false;
         for (int i = 0; i < kMoreThanIsRead && !isStuck; ++i) {
           stuck->Send("HELP\r\n");
           isStuck = !support::WaitUntil([&] { return stuck->IsAllRead(); }, support::kSilence);
         }
         ASSERT_TRUE(isStuck);
       },
       nothing},
  };
  struct END {
    int signal;
    bool comesWhileItIsStopped;
  };
  std::vector<END> ends = {{SIGTERM, false}, {SIGINT, true}};
  if (!support::kInstrumented) {  // they take long
    ends.insert(ends.end(), {{SIGTERM, true}, {SIGINT, false}});
  }
  for (const STATE& state : states) {
    for (const auto& [signal, comesWhileItIsStopped] : ends) {
      SCOPED_TRACE(state.name);
      fs::remove(log.Path());
      state.enter();
      ASSERT_FALSE(HasFatalFailure());
      StopProcess();
      if (comesWhileItIsStopped) {
        daemon.Signal(signal);
      }
      daemon.Signal(SIGCONT);
      if (!comesWhileItIsStopped) {
        daemon.Signal(signal);
      }
      ExpectEnd();
      state.leave();
      EXPECT_EQ(log.Count("[INF] vorn is stopped by SIGTERM or SIGINT"), 1);
      stuck.reset();
      cae.reset();
      io.reset();
      mon.reset();
      if (adapter.Plugged()) {
        Unplug();
      }
    }
  }
}

TEST_F(SystemFaults, KilledAndStartedAgainItServesAtOnce) {
  config.initPollState = "TRUE";
  for (int i = 0; i < 3; ++i) {
    StartForFaults();
    EXPECT_EQ(support::ReadFile(support::kPidPath), std::to_string(Pid()));
    BeginFault({.touched = {}});
    ExpectService();
    EndFault();
    daemon.Signal(SIGKILL);
    const std::optional<int> end = daemon.WaitForEnd();
    ASSERT_TRUE(end && WIFSIGNALED(*end));
    // Its clients are still there when the next one takes the ports.
    Unplug();
  }
  StartForFaults();  // this one is let end
  BeginFault({.touched = {}});
  ExpectService();
  EndFault();
  EXPECT_EQ(log.LinesWith("bind"), std::vector<std::string>{});
  EXPECT_EQ(log.Count("[INF] vorn is started"), 4);
}

}  // namespace
