#include "sim/line/Descriptor.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/FaultFixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>

/// What the machine can do to the daemon: its log, its descriptors, its programs and its signals.

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class SystemFaults : public FAULT_FIXTURE {
 protected:
  ~SystemFaults() override {
    if (m_isMounted) {
      umount2(Disk().c_str(), MNT_DETACH);
    }
  }

  std::string Disk() const { return Folder() + "/disk"; }

  /// The log is on a small disk of its own. False where no disk can be mounted.
  bool PutLogOnADisk() {
    fs::create_directory(Disk());
    m_isMounted = mount("vorn-test", Disk().c_str(), "tmpfs", 0, "size=64k") == 0;
    fs::create_symlink(Disk() + "/vorn.log", log.Path());
    return m_isMounted;
  }

  /// A client leaves and another comes, which are four log lines.
  void ExchangeClient(PART part) {
    Client(part)->Close();
    Reconnect(part);
  }
  void ExchangeIoClient() { ExchangeClient(PART::kIo); }

  /// The log is written again.
  void ExpectLogToGoOn(PART part = PART::kIo) {
    const std::string line = ClosedByClient(Interface(part).name);
    const int before = CountLines(line);
    ExchangeClient(part);
    EXPECT_TRUE(WaitForLines(line, before + 1));
  }

  void SetDescriptorLimit(rlim_t count) const { SetLimit(RLIMIT_NOFILE, count); }
  void SetFileSizeLimit(rlim_t bytes) const { SetLimit(RLIMIT_FSIZE, bytes); }

  /// The limit under which so many numbers are free once the adapter is gone.
  rlim_t LimitThatLeaves(unsigned int count) const {
    std::map<int, std::string> descriptors = QuietDescriptors();
    std::erase_if(descriptors,
                  [this](const auto& entry) { return entry.second == adapter.NearPath(); });
    int limit = 0;
    for (unsigned int free = 0; descriptors.contains(limit) || free < count; ++limit) {
      free += descriptors.contains(limit) ? 0 : 1;
    }
    return static_cast<rlim_t>(limit);
  }

  void StopProcess() {
    daemon.Signal(SIGSTOP);
    ASSERT_TRUE(
        support::WaitUntil([&] { return support::StatusField(Pid(), "State").starts_with("T"); }));
  }

  /// Only these programs are found.
  support::START WithPath(const std::string& path) const {
    support::START start;
    start.environment["PATH"] = path;
    return start;
  }

 private:
  void SetLimit(decltype(RLIMIT_FSIZE) resource, rlim_t value) const {
    rlimit limit{};
    ASSERT_EQ(prlimit(Pid(), resource, nullptr, &limit), 0);
    limit.rlim_cur = value;
    ASSERT_EQ(prlimit(Pid(), resource, &limit, nullptr), 0);
  }

  bool m_isMounted = false;
};

// --- the log ------------------------------------------------------------------------------------

/// One line of so many bytes.
std::string LineOf(std::size_t size) {
  std::string line = "2026-01-01 12:00:00 [INF] earlier";
  line.resize(size - 1, '.');
  return line + "\n";
}

/// A log of this size comes to a limit before the files of what stands in for the daemon's
/// surroundings.
/// Commands of an operator who does not read his answers: so many would fill what may wait of them.
constexpr int kMoreThanIsRead = 10'000;

constexpr std::size_t kLargeLog = 1U << 20;

/// A line that is cut behind so many bytes is left with a part of its time stamp.
constexpr std::size_t kRoomForHalfALine = 10;
constexpr const char* kHalfALine = "BAD LINE: 20";

/// What the log has had since it had this size.
std::string Since(const support::LOG_FILE& log, std::size_t size) {
  return log.Text().substr(size);
}

TEST_F(SystemFaults, AFullDiskLosesLogLinesAndNothingElse) {
  if (!PutLogOnADisk()) {
    GTEST_SKIP() << "no disk can be mounted here";
  }
  config.speedPercent = "50";
  StartForFaults();
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::string ballast = Disk() + "/ballast";
  {
    const sim::DESCRIPTOR file(open(ballast.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string block(page, 'x');
    while (write(file.Get(), block.data(), block.size()) > 0) {
    }
    // The log's own page has room for a part of a line.
    const sim::DESCRIPTOR logEnd(open(log.Path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    const std::string line = LineOf(page - log.Text().size() % page - kRoomForHalfALine);
    ASSERT_EQ(write(logEnd.Get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }
  BeginFault({.touched = {PART::kIo}, .lines = {kHalfALine}});
  const std::size_t sizeBefore = log.Text().size();
  for (int i = 0; i < 3; ++i) {
    ExchangeIoClient();
  }
  ExpectService();
  const std::string halfALine = Since(log, sizeBefore);
  EXPECT_EQ(halfALine.size(), kRoomForHalfALine);
  fs::remove(ballast);
  ExpectLogToGoOn();
  EXPECT_TRUE(Since(log, sizeBefore).starts_with(halfALine + "\n2"));
  EndFault();
}

TEST_F(SystemFaults, ALogAtALimitOfFileSizeLosesLinesAndNothingElse) {
  config.speedPercent = "50";
  support::WriteFile(log.Path(), LineOf(kLargeLog));
  StartForFaults();
  for (const PART part : {PART::kIo, PART::kCae}) {
    SCOPED_TRACE(Interface(part).name);
    BeginFault({.touched = {part}, .lines = {kHalfALine}});
    const std::size_t sizeBefore = log.Text().size();
    SetFileSizeLimit(sizeBefore + kRoomForHalfALine);
    // Which the main thread logs.
    Client(part)->Send("EXIT" + Interface(part).inpSeparator);
    const std::string farewell = "VORN: Bye Bye..." + Interface(part).outSeparator + "\r";
    EXPECT_TRUE(Client(part)->Receives(farewell));
    EXPECT_TRUE(Client(part)->IsClosed());
    Reconnect(part);
    ExpectService();
    const std::string halfALine = Since(log, sizeBefore);
    EXPECT_EQ(halfALine.size(), kRoomForHalfALine);
    SetFileSizeLimit(RLIM_INFINITY);
    ExpectLogToGoOn(part);
    EXPECT_TRUE(Since(log, sizeBefore).starts_with(halfALine + "\n2"));
    EndFault();
  }
}

TEST_F(SystemFaults, ALogAtALimitOfFileSizeHarmsNoStart) {
  support::WriteFile(log.Path(), LineOf(kLargeLog));
  support::START start;
  start.fileSizeLimit = kLargeLog;
  Start(start);
  Reconnect(PART::kCae);
  Synchronise(*cae);
  EXPECT_EQ(support::ReadFile(support::kPidPath), std::to_string(Pid()));
  EXPECT_EQ(log.Text().size(), kLargeLog);
}

TEST_F(SystemFaults, ALogAtALimitOfFileSizeHarmsNoStop) {
  support::WriteFile(log.Path(), LineOf(kLargeLog));
  Start();
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE")));
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  SetFileSizeLimit(kLargeLog);
  Stop(SIGTERM);
  EXPECT_EQ(log.LinesWith("signal"), std::vector<std::string>{});
}

TEST_F(SystemFaults, WhereNoFileMayBeWrittenItRunsAndStops) {
  support::START start;
  start.fileSizeLimit = 0;
  start.environment["PATH"] = support::PAUSES::PathWithRealSleep();  // the stand-in writes
  // ThreadSanitizer's runtime writes a temporary file before the daemon's first line, if it can.
  start.environment["TMPDIR"] = Folder() + "/none";
  Start(start);
  Reconnect(PART::kCae);
  Synchronise(*cae);
  EXPECT_EQ(support::ReadFile(support::kPidPath), "");  // opened, and no room for a digit
  EXPECT_TRUE(fs::exists(log.Path()));
  EXPECT_EQ(log.Text(), "");
  if (support::kInstrumented) {
    SetFileSizeLimit(RLIM_INFINITY);  // what counts and reports at the end, writes
  }
  Stop(SIGTERM);
}

TEST_F(SystemFaults, ALogFolderThatIsTakenAwayOrReadOnlyLosesLogLinesAndNothingElse) {
  if (!PutLogOnADisk()) {
    GTEST_SKIP() << "no disk can be mounted here";
  }
  config.speedPercent = "50";
  StartForFaults();
  BeginFault({.touched = {PART::kIo}});
  fs::remove(log.Path());
  fs::create_symlink(Folder() + "/gone/vorn.log", log.Path());
  ExchangeIoClient();
  ExpectService();
  fs::remove(log.Path());
  fs::create_symlink(Disk() + "/vorn.log", log.Path());
  ExpectLogToGoOn();
  EndFault();

  BeginFault({.touched = {PART::kIo}});
  ASSERT_EQ(mount(nullptr, Disk().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  ExchangeIoClient();
  ExpectService();
  ASSERT_EQ(mount(nullptr, Disk().c_str(), nullptr, MS_REMOUNT, nullptr), 0);
  ExpectLogToGoOn();
  EndFault();
}

TEST_F(SystemFaults, APipeInTheLogsPlaceHoldsNobody) {
  config.speedPercent = "50";
  StartForFaults();
  BeginFault({.touched = {PART::kIo}});
  fs::rename(log.Path(), Folder() + "/old.log");
  ASSERT_EQ(mkfifo(log.Path().c_str(), 0600), 0);
  ExchangeIoClient();  // without a reader
  ExpectService();
  const sim::DESCRIPTOR reader(open(log.Path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  const std::string block(4096, 'x');
  while (write(reader.Get(), block.data(), block.size()) > 0) {
  }
  ExchangeIoClient();  // with one that does not read
  ExpectService();
  fs::remove(log.Path());
  fs::rename(Folder() + "/old.log", log.Path());
  ExpectLogToGoOn();
  EndFault();
}

// --- descriptors --------------------------------------------------------------------------------

TEST_F(SystemFaults, EveryDescriptorLimitAtTheStartIsAnEndOrADaemonThatCanBeStopped) {
  if (support::kInstrumented) {
    GTEST_SKIP() << "a sanitizer's end and an emulator's start need descriptors";
  }
  config.speedPercent = "50";
  support::WriteFile(support::kConfigPath, config.Text());
  pauses.AllowSearch();
  // Below 4 the program itself cannot be loaded.
  for (unsigned int limit = 4; limit <= 16; ++limit) {
    SCOPED_TRACE(limit);
    support::START start;
    start.descriptorLimit = limit;
    start.environment["VORN_TEST_PAUSES"] = pauses.Folder();
    start.environment["PATH"] = support::PAUSES::Path();
    const int status = daemon.Start(start);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ASSERT_TRUE(support::WaitUntil(
        [&] { return !daemon.Running() || support::ThreadCount(Pid()) == kThreads; }));
    if (daemon.Running()) {
      daemon.Signal(SIGTERM);
    }
    const std::optional<int> end = daemon.WaitForEnd();
    ASSERT_TRUE(end);
    ASSERT_TRUE(WIFEXITED(*end)) << "signal " << WTERMSIG(*end);
    EXPECT_LE(WEXITSTATUS(*end), 1);  // 1: no pid file
  }
  isEndExpected = false;
  expectedOutput.reset();  // the pauses' shells complain, and "Couldn't open pid file."
}

TEST_F(SystemFaults, WithoutADescriptorToBeHadClientsStayServedAndLaterOnesAreWhenThereIsOne) {
  config.speedPercent = "50";
  StartForFaults();
  rlimit usual{};
  ASSERT_EQ(prlimit(Pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
  BeginFault(
      {.touched = {PART::kIo, PART::kMon},
       .lines = {"[ERR] socket accept error on MON interface", "[ERR] couldn't open socket for"}});
  const int pausesBefore = pauses.CountBegun(3);
  pauses.Hold(3);
  mon->Close();
  ASSERT_TRUE(pauses.WaitUntilBegun(3, pausesBefore + 1));
  SetDescriptorLimit(3);  // no number is free
  pauses.Release(3);
  // MON's accept fails, and IO finds no socket to listen on.
  ASSERT_TRUE(support::WaitUntil([&] { return TCP_CLIENT::IsRefused(config.mon.port); }));
  io->Close();
  ASSERT_TRUE(support::WaitUntil([&] { return TCP_CLIENT::IsRefused(config.io.port); }));
  ExpectService();
  SetDescriptorLimit(usual.rlim_cur);
  EndFault();
}

TEST_F(SystemFaults, AThousandOpenDescriptorsAtTheStartHarmNothing) {
  support::START start;
  start.descriptorsInUse = 1000;
  StartForFaults(start);
  BeginFault({.touched = {PART::kIo}});
  io->Close();
  ExpectService();
  Reconnect(PART::kIo);
  EndFault();
}

TEST_F(SystemFaults, AnAdapterThatComesBackWhileNoDescriptorIsToBeHadIsFoundWhenThereIsOne) {
  config.speedPercent = "50";
  pauses.SetLength(2, milliseconds(150));
  StartForFaults();
  rlimit usual{};
  ASSERT_EQ(prlimit(Pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
  const std::string found = "[INF] hardware found on /dev/ttyUSB";
  // The log wants one for a moment, the listing two, and the adapter keeps one.
  for (unsigned int free = 0; free <= 2; ++free) {
    SCOPED_TRACE(free);
    const rlim_t limit = LimitThatLeaves(free);
    BeginFault({.touched = {PART::kBus}, .mostLines = 100});
    const int foundBefore = CountLines(found);
    pauses.Hold(2);
    const int pausesBefore = pauses.CountBegun(2);
    Unplug();
    io->Send("a5b0d00\n");  // notices
    ASSERT_TRUE(pauses.WaitUntilBegun(2, pausesBefore + 1));
    SetDescriptorLimit(limit);
    Plug(static_cast<int>(free));
    const std::uint64_t openings = adapter.Counters().openings;
    const int missed = CountLines(kNoDevice);
    pauses.Release(2);
    ExpectService();
    if (free == 1) {
      EXPECT_TRUE(WaitForLines(kNoDevice, missed + 2));
    }
    if (free < 2) {
      EXPECT_EQ(adapter.Counters().openings, openings);
      SetDescriptorLimit(usual.rlim_cur);
    }
    EXPECT_TRUE(WaitForLines(found, foundBefore + 1));
    SetDescriptorLimit(usual.rlim_cur);
    EndFault();
  }
}

// --- programs and surroundings ------------------------------------------------------------------

TEST_F(SystemFaults, WithoutLsOrGrepNoAdapterIsFoundAndNothingSpins) {
  config.speedPercent = "50";
  const std::string path = support::PAUSES::Path();
  const std::string sleepAlone = path.substr(0, path.find(':'));
  const std::string sleepAndLs = path.substr(0, path.find(':', sleepAlone.size() + 1));
  Plug(0);
  for (const std::string& programs : {sleepAlone, sleepAndLs}) {
    SCOPED_TRACE(programs);
    fs::remove(log.Path());
    pauses.SetLength(2, milliseconds(150));
    const int before = pauses.CountBegun(2);
    Start(WithPath(programs));
    Reconnect(PART::kCae);
    ASSERT_TRUE(WaitForLines(kNoDevice, 2));
    Synchronise(*cae);
    const int searches = CountLines(kNoDevice);
    EXPECT_LE(searches, pauses.CountBegun(2) - before + 1);  // which is asked later
    Stop(SIGTERM);
  }
  expectedOutput.reset();  // the shell misses its programs
}

TEST_F(SystemFaults, WhereNoChildCanBeMadeThePausesAreMadeAllTheSame) {
  if (support::kEmulated) {
    GTEST_SKIP() << "the emulator lets no program filter its calls";
  }
  config.speedPercent = "50";
  support::START start;
  start.refuseSpawn = true;
  const auto begin = steady_clock::now();
  Start(start);
  Reconnect(PART::kCae);
  EXPECT_GE(steady_clock::now() - begin, milliseconds(3000));
  Synchronise(*cae);
  EXPECT_EQ(pauses.Begun(), std::vector<int>{});
  const int searches = CountLines(kNoDevice);
  const auto passed = steady_clock::now() - begin;
  EXPECT_LE(searches, passed / milliseconds(2000) + 1);
  EXPECT_GE(searches, 1);
}

TEST_F(SystemFaults, ClosedStandardStreamsAreNeverAClientsConnection) {
  support::START start;
  start.closedStreams = true;
  StartForFaults(start);
  for (const int stream : {0, 1, 2}) {
    EXPECT_EQ(support::OpenDescriptors(Pid()).at(stream), "/dev/null");
  }
  pauses.SetLength(2, milliseconds(150));
  BeginFault({.touched = {PART::kBus, PART::kIo}});
  Unplug();
  io->Send("a5b0d00\n");
  ASSERT_TRUE(WaitForLines(kNoDevice, 2));
  ExpectService();
  ExchangeIoClient();
  Plug(1);
  EndFault();
}

TEST_F(SystemFaults, AnOddLocaleAndTimeZoneChangeNothing) {
  // Where i has no dot in capitals and numbers have commas, made here: few machines have it.
  ASSERT_EQ(std::system(("localedef -i tr_TR -f UTF-8 " + Folder() + "/tr_TR.UTF-8").c_str()), 0)
      << "are Debian's locales installed?";
  support::START start;
  start.environment["LOCPATH"] = Folder();
  start.environment["LC_ALL"] = "tr_TR.UTF-8";
  start.environment["LANG"] = "no such locale";
  start.environment["TZ"] = ":/dev/null";
  StartForFaults(start);
  BeginFault({.touched = {PART::kIo}});
  EXPECT_TRUE(Answers(*cae, "SPEED=50", {"CIA: SPEED IS SET to 50%"}));
  io->Send("a5b1dIi\n");  // no digits
  EXPECT_TRUE(mon->Receives("a5b1dIi\n\r"));
  ExpectService();
  ExchangeIoClient();
  EndFault();
}

// --- signals ------------------------------------------------------------------------------------

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
      state.leave();
      ExpectEnd();
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
