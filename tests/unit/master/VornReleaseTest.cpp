// The central object: the release of its workers, of their queues and of the port.

#include "tests/support/unit/Gate.h"
#include "tests/unit/master/VornFixture.h"

#include <algorithm>
#include <chrono>
#include <future>

namespace vorn {

namespace unit {
namespace {

using support::WaitUntil;

// --- release ------------------------------------------------------------------------------------

TEST_F(Vorn, CanBeReleasedBeforeItHasStarted) {
  Make();
  vorn.reset();
  Make().InitProgramData();
  vorn.reset();
}

TEST_F(Vorn, CanBeReleasedWhileItsWorkersStart) {
  Make();
  ASSERT_TRUE(vorn->InitProgramData());
  vorn->InitInterfaces();
  vorn.reset();
  EXPECT_EQ(line.Openings(), 0);
}

TEST_F(Vorn, ReleasesEverythingInOrderWhileWorkersAreBusy) {
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  Start();
  {
    TCP_CLIENT cae = ConnectCae();
    TCP_CLIENT io = ConnectIo();
    TCP_CLIENT mon = ConnectMon();
    WaitForCards(cae);
    Stop(SIGTERM);
    // The workers go on: what clients send fills the queues that are released first.
    cae.Send("HELP\r\nHELP\r\n");
    io.Send("a5b1dFB\n");
    vorn.reset();
    EXPECT_TRUE(io.IsClosed());
    EXPECT_TRUE(mon.IsClosed());
  }
  EXPECT_EQ(line.Openings(), 0);
  EXPECT_TRUE(TCP_CLIENT::IsRefused(config.cae.port));
  EXPECT_TRUE(TCP_CLIENT::IsRefused(config.io.port));
  EXPECT_TRUE(TCP_CLIENT::IsRefused(config.mon.port));
}

// --- release, worker by worker ------------------------------------------------------------------

/// Released on a thread of its own, while one worker or another is held.
class VornReleased : public Vorn {
 protected:
  ~VornReleased() override {
    for (const int seconds : {1, 2, 3}) {
      pauses.Release(seconds);
    }
    if (released.valid()) {
      released.wait();
    }
  }

  /// The workers, without a master loop.
  void StartWorkers() {
    Make();
    ASSERT_TRUE(vorn->InitProgramData());
    vorn->InitInterfaces();
  }

  /// Returns when the first worker is being ended.
  void BeginRelease() {
    released = std::async(std::launch::async, [this] { vorn.reset(); });
    ASSERT_TRUE(WaitUntil([&] { return TCP_CLIENT::IsRefused(config.cae.port); }));
  }
  bool IsReleased(std::chrono::milliseconds limit = support::kLimit) const {
    return released.wait_for(limit) == std::future_status::ready;
  }

  std::ptrdiff_t CountLines(const std::string& text) const {
    const LINES log = Log();
    return std::count(log.begin(), log.end(), text);
  }

  std::future<void> released;
};

TEST_F(VornReleased, AllWorkersAreToldBeforeOneIsWaitedFor) {
  StartWorkers();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  ASSERT_TRUE(WaitUntil(
      [&] { return Logged("[INF] hardware found on " + line.Path() + " version: 1.07"); }));
  // CAE stays in the pause before it accepts, IO and MON in the first after their clients' leave.
  pauses.Hold(3);
  cae.Close();
  ASSERT_TRUE(WaitUntil([&] { return pauses.CountBegun(3) == 4; }));
  pauses.Hold(2);
  const int closed = pauses.CountBegun(2);
  io.Close();
  mon.Close();
  ASSERT_TRUE(WaitUntil([&] { return pauses.CountBegun(2) == closed + 2; }));
  BeginRelease();
  pauses.Release(2);
  // They end with that pause, though CAE is waited for first.
  EXPECT_FALSE(WaitUntil([&] { return pauses.CountBegun(2) > closed + 2; }, support::kSilence));
  EXPECT_FALSE(IsReleased(std::chrono::milliseconds(0)));
  pauses.Release(3);
  ASSERT_TRUE(IsReleased());
  EXPECT_EQ(pauses.CountBegun(2), closed + 2);
  for (const support::INTERFACE* const interface : {&config.io, &config.mon}) {
    EXPECT_EQ(CountLines("[INF] " + interface->name + " interface listening on port " +
                         std::to_string(interface->port)),
              1);
  }
}

TEST_F(VornReleased, TheBusIsLeftAloneWhileTheOtherWorkersAreWaitedFor) {
  config.initPollState = "TRUE";
  pauses.Hold(3);
  StartWorkers();
  ASSERT_TRUE(WaitUntil([&] { return line.Requests().size() > 10; }));  // it polls
  BeginRelease();
  // The exchanges of one pass may still come.
  EXPECT_TRUE(WaitUntil([&] {
    const std::size_t before = line.Requests().size();
    return !WaitUntil([&] { return line.Requests().size() > before; }, support::kSilence);
  }));
  EXPECT_FALSE(IsReleased(std::chrono::milliseconds(0)));
}

TEST_F(VornReleased, AWorkerThatReadsItsClientStillHasItsQueue) {
  for (const support::INTERFACE* const interface : {&config.cae, &config.io}) {
    SCOPED_TRACE(interface->name);
    pauses.SetLongestDelayUs(600'000);
    // Half a second for each of its passes, and hardly any for those of the others.
    WriteFile(
        folder.File("vornconf.xml"),
        support::Document({support::DebuglogElement(config.logFile), support::SpeedElement("-9900"),
                           support::InterfacesElement({support::InterfaceElement(*interface)}),
                           support::SpeedElement("100")}));
    vorn.emplace(flag, line, pauses, folder.File("vornconf.xml"));
    ASSERT_TRUE(vorn->InitProgramData());
    vorn->InitInterfaces();
    TCP_CLIENT client =
        Connect(interface->port, interface == &config.cae ? kCaeGreeting : kIoGreeting);
    client.Send("HELP\r\n");  // taken after the delay of the pass that has just begun
    vorn.reset();
    EXPECT_TRUE(TCP_CLIENT::IsRefused(interface->port));
  }
}

TEST_F(VornReleased, TheWorkerOnTheBusStillHasItsQueueForTheReplyThatItWaitsFor) {
  config.initPollState = "TRUE";
  GATE reply;
  line.AnswerWith([&](const BYTES& body) {
    if (body.front() == 0x20) {
      reply.Pass();
      return Frame({'!', body[1], 0x40, 0});  // a change, which is queued
    }
    return Answer(body);
  });
  StartWorkers();
  ASSERT_TRUE(reply.WaitUntilReached());
  BeginRelease();
  EXPECT_FALSE(IsReleased(support::kSilence));
  reply.Open();
  EXPECT_TRUE(IsReleased());
}

}  // namespace
}  // namespace unit

}  // namespace vorn
