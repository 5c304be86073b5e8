#include "sim/line/Descriptor.h"
#include "tests/support/Text.h"
#include "tests/system/SystemFaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

/// A log that cannot be written, or not to its line's end.

namespace {

namespace fs = std::filesystem;

/// One line of so many bytes.
std::string LineOf(std::size_t size) {
  std::string line = "2026-01-01 12:00:00 [INF] earlier";
  line.resize(size - 1, '.');
  return line + "\n";
}

/// A log of this size comes to a limit before the files of what stands in for the daemon's
/// surroundings.
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

}  // namespace
