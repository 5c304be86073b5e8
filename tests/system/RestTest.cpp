#include "tests/support/ProcessInfo.h"
#include "tests/system/FaultFixture.h"

#include <sched.h>

#include <chrono>
#include <optional>
#include <random>
#include <string>
#include <thread>

/// The loops' rest between their passes: they wake up for what there is to do, each time, and for
/// nothing else.

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

/// This process, and the daemon that it starts, on one processor while it lives.
class ONE_CORE {
 public:
  ONE_CORE() {
    sched_getaffinity(0, sizeof m_before, &m_before);
    cpu_set_t one;
    CPU_ZERO(&one);
    std::size_t number = 0;
    while (!CPU_ISSET(number, &m_before)) {
      ++number;
    }
    CPU_SET(number, &one);
    EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  }
  ~ONE_CORE() { sched_setaffinity(0, sizeof m_before, &m_before); }
  ONE_CORE(const ONE_CORE&) = delete;
  ONE_CORE& operator=(const ONE_CORE&) = delete;

 private:
  cpu_set_t m_before{};
};

class Rest : public SYSTEM_TEST {
 protected:
  void StartWithAll() {
    StartIdentified();
    io.emplace(ConnectIo());
    mon.emplace(ConnectMon());
  }

  /// It gets through a second in which it goes to sleep hardly ever.
  bool ComesToRest(long mostSleeps = 0) const {
    return support::WaitUntil([&] {
      const long before = support::Sleeps(Pid());
      std::this_thread::sleep_for(seconds(1));
      return support::Sleeps(Pid()) - before <= mostSleeps + support::kForeignSleepsPerSecond;
    });
  }

  /// One thing at a time, at moments of all kinds: who is not woken for it lets the test wait for
  /// good.
  void HandOverAtRandomMoments() {
    constexpr int kFewest = 100;  // however long a busy machine takes
    const auto end = std::chrono::steady_clock::now() + FAULT_FIXTURE::Rounds(60, 3) * seconds(1);
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> anyGapUs(0, 400);
    std::uniform_int_distribution<int> anyKind(0, 3);
    int value = 0;
    while ((std::chrono::steady_clock::now() < end || value < kFewest) && !HasFailure()) {
      std::this_thread::sleep_for(microseconds(anyGapUs(random)));
      HandOver(anyKind(random), value++);
    }
  }

  std::optional<TCP_CLIENT> io;
  std::optional<TCP_CLIENT> mon;

 private:
  void HandOver(int kind, int value) {
    const std::string byte = sim::ToHex(static_cast<std::uint8_t>(value));
    switch (kind) {
      case 0:  // CAE, the master loop, CAE
        EXPECT_TRUE(Answers(*cae, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
        break;
      case 1: {  // IO, the master loop, the bus; and MON
        const std::uint64_t before = adapter.Requests().Last();
        io->Send("a5b0d" + byte + "\n");
        EXPECT_TRUE(mon->Receives("a5b0d" + byte + "\n\r"));
        EXPECT_TRUE(WaitForFrame("05 10 05 02 " + byte + " FF", before));
        break;
      }
      case 2:  // IO, the master loop, CAE
        io->Send("bad" + byte + "\n");
        EXPECT_TRUE(cae->Receives(CaeReply({"COE:Illegal command -> bad" + byte})));
        EXPECT_TRUE(mon->Receives("bad" + byte + "\n\r"));
        break;
      default: {  // the bus, the master loop, IO and MON
        m_isOn = !m_isOn;
        EXPECT_TRUE(m_isOn ? rack.Press(3, 0) : rack.Release(3, 0));
        const std::string line = IoLine(m_isOn ? "a3b0d01" : "a3b0d00");
        EXPECT_TRUE(io->Receives(line));
        EXPECT_TRUE(mon->Receives(line));
        break;
      }
    }
  }

  bool m_isOn = false;
};

TEST_F(Rest, NothingToDoMeansNoWakeUpAtAnySpeed) {
  config.speedPercent = "1";
  StartWithAll();
  EXPECT_TRUE(ComesToRest());
  for (const char* const speed : {"50", "100"}) {
    EXPECT_TRUE(Answers(*cae, std::string("SPEED=") + speed,
                        {std::string("CIA: SPEED IS SET to ") + speed + "%"}));
    EXPECT_TRUE(ComesToRest()) << speed;
  }
}

TEST_F(Rest, NobodyConnectedMeansNoWakeUp) {
  config.speedPercent = "100";
  StartLinked();
  EXPECT_TRUE(ComesToRest());
}

TEST_F(Rest, PollingWithoutACardToPollMeansNoWakeUp) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  config.autoDiscover = "FALSE";
  StartLinked();
  EXPECT_TRUE(ComesToRest());
}

TEST_F(Rest, EndsForACardThatIsPolledFromNowOn) {
  config.speedPercent = "100";
  StartWithAll();
  for (const char address : std::string("0123456789ABCDEF")) {
    cae->Send(std::string("POLLOFF:") + address + "\r\n");
    cae->ReadUntil(">\r\n\r");
  }
  EXPECT_TRUE(Answers(*cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"}));
  EXPECT_TRUE(ComesToRest());
  cae->Send("POLLON:3\r\n");
  EXPECT_TRUE(rack.Press(3, 0));
  EXPECT_TRUE(io->Receives(IoLine("a3b0d01")));
}

TEST_F(Rest, AClientThatIsHeldBackWakesNobody) {
  StartWithAll();
  pauses.Hold(1);
  const int before = pauses.CountBegun(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, before + 1));
  // More than waits for the master loop: the worker leaves it in the kernel, where it waits.
  io->Send(std::string(64UL * 1024, 'x'));
  EXPECT_TRUE(ComesToRest());
  EXPECT_FALSE(io->IsAllRead());
  pauses.Release(1);
  EXPECT_TRUE(support::WaitUntil([&] { return io->IsAllRead(); }));
}

TEST_F(Rest, AnOperatorWhoDoesNotReadWakesItOnceASecond) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT stuck(config.cae.port, {.smallBuffers = true});
  ASSERT_TRUE(stuck.Receives(kCaeGreeting));
  bool isStuck = false;
  for (int i = 0; i < 10'000 && !isStuck; ++i) {
    stuck.Send("HELP\r\n");
    isStuck = !support::WaitUntil([&] { return stuck.IsAllRead(); }, support::kSilence);
  }
  ASSERT_TRUE(isStuck);
  // Whether he still takes anything; and the search for an adapter, with its pauses.
  Plug(0);
  ASSERT_TRUE(log.WaitForLine(kHardwareFound));
  EXPECT_TRUE(ComesToRest(2));
  EXPECT_EQ(log.Count(ClosedByClient("CAE")), 0);
}

TEST_F(Rest, EveryMessageWakesWhomItIsFor) {
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  StartWithAll();
  HandOverAtRandomMoments();
}

TEST_F(Rest, EveryMessageWakesWhomItIsForAtTheSlowestSpeed) {
  config.speedPercent = "1";
  config.initPollState = "TRUE";
  StartWithAll();
  HandOverAtRandomMoments();
}

TEST_F(Rest, OnOneCoreEveryMessageWakesWhomItIsForAndPollingStarvesNobody) {
  const ONE_CORE core;
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  StartWithAll();
  HandOverAtRandomMoments();
}

TEST_F(Rest, ASignalEndsItInAPassThatIsToLastForMinutes) {
  config.speedPercent = "-10000000";  // 505 s a pass
  Start();
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  Stop(SIGTERM);
}

TEST_F(Rest, ASignalEndsItInThePauseOfACommand) {
  for (const char* const command : {"REBOOT:5", "EXIT", "FORCEDISCOVER"}) {
    if (!daemon.Running()) {
      StartIdentified();
    }
    SCOPED_TRACE(command);
    pauses.Hold(1);
    const int before = pauses.CountBegun(1);
    cae->Send(std::string(command) + "\r\n");
    ASSERT_TRUE(pauses.WaitUntilBegun(1, before + 1));
    Stop(SIGTERM);  // which nobody has released
    pauses.Release(1);
    cae.reset();
    Unplug();
  }
}

}  // namespace
