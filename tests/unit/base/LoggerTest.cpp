#include "tests/support/LogFile.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/support/unit/Folder.h"
#include "thread/UniqueFd.h"
#include "vorn/base/Logger.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace vorn {

namespace {

constexpr std::size_t kTimeStampLength = sizeof "2026-01-01 12:00:00" - 1;

class LoggerTest : public testing::Test {
 protected:
  LoggerTest() { m_logger.SetFileName(m_path); }

  LOGGER LoggerOf(const std::string& path) const {
    LOGGER logger = m_logger;
    logger.SetFileName(path);
    return logger;
  }

  static std::size_t OpenDescriptorCount() { return support::OpenDescriptors(getpid()).size(); }

  unit::FOLDER m_folder;
  const std::string m_path = m_folder.File("log");
  const support::LOG_FILE m_log{m_path};
  LOGGER m_logger;
};

/// The time as the log writes it.
std::string LocalTime(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

}  // namespace

TEST(Logger, HasLevelZeroAndNoFileAtFirst) {
  const LOGGER logger;
  EXPECT_EQ(logger.Level(), 0);
  EXPECT_EQ(logger.FileName(), "");
}

TEST(Logger, WithoutAFileNameWritesNothingAndFailsNothing) {
  const unit::FOLDER folder;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  LOGGER logger;
  logger.WriteLog(kInf, "nowhere");
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
  std::filesystem::current_path(before);
}

TEST_F(LoggerTest, WritesTimeTagAndText) {
  const std::time_t before = std::time(nullptr);
  m_logger.WriteLog(kErr, "unable to  write to /dev/ttyUSB0");
  const std::time_t after = std::time(nullptr);
  const std::string text = m_log.Text();
  EXPECT_EQ(text.substr(std::min(text.size(), kTimeStampLength)),
            " [ERR] unable to  write to /dev/ttyUSB0\n");
  EXPECT_GE(text.substr(0, kTimeStampLength), LocalTime(before));
  EXPECT_LE(text.substr(0, kTimeStampLength), LocalTime(after));
}

TEST_F(LoggerTest, AppendsOneLineForEachCallToWhatTheFileHolds) {
  for (const std::string earlier : {"", "\n", "2026-01-01 12:00:00 [INF] before\n"}) {
    support::WriteFile(m_path, earlier);
    m_logger.WriteLog(kInf, "first");
    m_logger.WriteLog(kErr, "second");
    const std::string text = m_log.Text();
    EXPECT_TRUE(text.starts_with(earlier + "2")) << support::Visible(text);
    support::WriteFile(m_path, text.substr(earlier.size()));
    EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] first", "[ERR] second"}));
  }
}

TEST_F(LoggerTest, EndsWhatIsLeftOfALineBeforeTheNext) {
  for (const std::string& half : {std::string("2026-01-01 12:00:00 [INF] bef"), std::string("x"),
                                  std::string("whole\n2"), std::string(10, '\0')}) {
    support::WriteFile(m_path, half);
    m_logger.WriteLog(kInf, "now");
    m_logger.WriteLog(kInf, "later");
    const std::string text = m_log.Text();
    EXPECT_TRUE(text.starts_with(half + "\n2")) << support::Visible(text);
    std::filesystem::remove(m_path);
    support::WriteFile(m_path, text.substr(std::min(text.size(), half.size() + 1)));
    EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] now", "[INF] later"}));
  }
}

TEST_F(LoggerTest, WritesTheLongestLineWholeBehindWhatIsLeftOfOne) {
  support::WriteFile(m_path, "half");
  m_logger.WriteLog(kInf, std::string(2000, 'x'));
  EXPECT_EQ(m_log.Text().size(), sizeof "half\n" - 1 + 999);
  EXPECT_TRUE(m_log.Text().ends_with("x\n"));
}

TEST_F(LoggerTest, WritesOnWhereTheFileCanOnlyBeWritten) {
  support::WriteFile(m_path, "half");
  ASSERT_EQ(chmod(m_path.c_str(), 0200), 0);
  constexpr uid_t kNobody = 65534;
  const bool isRoot = geteuid() == 0;  // who may read everything
  if (isRoot) {
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0711), 0);
    ASSERT_EQ(chown(m_path.c_str(), kNobody, kNobody), 0);
    setfsuid(kNobody);
  }
  const bool isReadable = UNIQUE_FD(open(m_path.c_str(), O_RDONLY | O_CLOEXEC)).IsOpen();
  m_logger.WriteLog(kInf, "line");
  if (isRoot) {
    setfsuid(0);
  }
  ASSERT_EQ(chmod(m_path.c_str(), 0600), 0);
  EXPECT_FALSE(isReadable);
  EXPECT_EQ(m_log.Text().substr(0, 5), "half2");
  EXPECT_TRUE(m_log.Text().ends_with(" [INF] line\n"));
}

TEST_F(LoggerTest, WritesEveryLineUpToLevel1) {
  for (const int level : {-5, 0, 1}) {
    m_logger.SetLevel(level);
    m_logger.WriteLog(kInf, "at " + std::to_string(level));
    m_logger.WriteLog(kErr, "at " + std::to_string(level));
  }
  EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] at -5", "[ERR] at -5", "[INF] at 0",
                                                        "[ERR] at 0", "[INF] at 1", "[ERR] at 1"}));
}

TEST_F(LoggerTest, WritesNoLineAtLevel2AndAbove) {
  for (const int level : {2, 3, 2147483647}) {
    m_logger.SetLevel(level);
    m_logger.WriteLog(kInf, "hidden");
    m_logger.WriteLog(kErr, "hidden");
  }
  EXPECT_TRUE(std::filesystem::exists(m_path));  // opened before the level is looked at
  EXPECT_EQ(m_log.Text(), "");
}

TEST_F(LoggerTest, LeavesOneStreamOpenForEachCallAtLevel2) {
  m_logger.SetLevel(2);
  const std::size_t before = OpenDescriptorCount();
  m_logger.WriteLog(kInf, "hidden");
  m_logger.WriteLog(kErr, "hidden");
  EXPECT_EQ(OpenDescriptorCount(), before + 2);
  for (const int descriptor : support::DescriptorsOf(getpid(), m_path)) {
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    close(descriptor);
  }
}

TEST_F(LoggerTest, LeavesNothingOpenOtherwise) {
  const std::size_t before = OpenDescriptorCount();
  m_logger.WriteLog(kInf, "line");
  LoggerOf(m_folder.File("missing/log")).WriteLog(kInf, "line");
  LoggerOf(m_folder.Path()).WriteLog(kInf, "line");
  LoggerOf("/dev/full").WriteLog(kInf, "line");
  const std::string half = m_folder.File("half");
  support::WriteFile(half, "half");
  LoggerOf(half).WriteLog(kInf, "line");
  EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST_F(LoggerTest, WritesTheTextUnchanged) {
  for (const std::string text : {"  a\rb\n\x80\xFF\t ", "100% %s %n %d %%", ""}) {
    std::filesystem::remove(m_path);
    m_logger.WriteLog(kInf, text);
    EXPECT_EQ(m_log.Text().substr(kTimeStampLength), " [INF] " + text + "\n");
  }
}

TEST_F(LoggerTest, CutsALongLineTo999BytesWithItsLineFeed) {
  constexpr std::size_t kFrame = kTimeStampLength + sizeof " [INF] " - 1 + 1;
  m_logger.WriteLog(kInf, std::string(999 - kFrame, 'x'));  // just fits
  EXPECT_EQ(m_log.Text().size(), 999U);
  EXPECT_EQ(m_log.Text().substr(kTimeStampLength),
            " [INF] " + std::string(999 - kFrame, 'x') + "\n");

  for (const std::size_t length : {1000 - kFrame, std::size_t{1000}, std::size_t{100'000}}) {
    std::filesystem::remove(m_path);
    m_logger.WriteLog(kInf, std::string(length, 'x'));
    m_logger.WriteLog(kInf, "next");
    EXPECT_EQ(m_log.AllLines(),
              (std::vector<std::string>{"[INF] " + std::string(999 - kFrame, 'x'), "[INF] next"}))
        << length;
  }
}

TEST_F(LoggerTest, MakesTheFileAgainWhenItWasDeleted) {
  m_logger.WriteLog(kInf, "first");
  std::filesystem::remove(m_path);
  m_logger.WriteLog(kInf, "second");
  EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] second"}));
}

TEST_F(LoggerTest, MakesTheFileWithTheModeOfTheMask) {
  const mode_t before = umask(027);
  m_logger.WriteLog(kInf, "line");
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(m_path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(LoggerTest, DropsTheLineWhenItsFolderIsMissingAndTriesAgain) {
  LOGGER logger = LoggerOf(m_folder.File("later/log"));
  logger.WriteLog(kInf, "lost");
  std::filesystem::create_directory(m_folder.File("later"));
  logger.WriteLog(kInf, "kept");
  EXPECT_EQ(support::LOG_FILE(m_folder.File("later/log")).AllLines(),
            (std::vector<std::string>{"[INF] kept"}));
}

TEST_F(LoggerTest, SurvivesAFullDiskAndAFolderInTheFilesPlace) {
  LOGGER full = LoggerOf("/dev/full");
  full.WriteLog(kInf, "lost");
  full.WriteLog(kErr, std::string(5000, 'x'));
  LoggerOf(m_folder.Path()).WriteLog(kInf, "lost");
  m_logger.WriteLog(kInf, "kept");
  EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] kept"}));
}

TEST_F(LoggerTest, DropsTheLineWhenNoDescriptorIsLeft) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit none = before;
  none.rlim_cur = 0;
  // UndefinedBehaviorSanitizer takes a descriptor to look at a type of object for the first time:
  // it has seen this one when there is none.
  m_logger.WriteLog(kInf, "kept");
  setrlimit(RLIMIT_NOFILE, &none);
  m_logger.WriteLog(kInf, "lost");
  setrlimit(RLIMIT_NOFILE, &before);
  m_logger.WriteLog(kInf, "kept too");
  EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] kept", "[INF] kept too"}));
}

TEST_F(LoggerTest, WritesOnWhereOneDescriptorIsLeft) {
  support::WriteFile(m_path, "half\n");
  const int lowestFree = UNIQUE_FD(open("/dev/null", O_RDONLY | O_CLOEXEC)).Get();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit one = before;  // for the writing, and none for the look at the file's end
  one.rlim_cur = static_cast<rlim_t>(lowestFree) + 1;
  m_logger.WriteLog(kInf, "kept");
  setrlimit(RLIMIT_NOFILE, &one);
  m_logger.WriteLog(kInf, "kept too");
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(m_log.AllLines(),
            (std::vector<std::string>{"BAD LINE: half", "[INF] kept", "[INF] kept too"}));
}

TEST_F(LoggerTest, DoesNotWaitForTheReaderOfAPipe) {
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  m_logger.WriteLog(kInf, "nobody reads");
  const UNIQUE_FD reader(open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(reader.IsOpen());
  m_logger.WriteLog(kInf, "somebody reads");
  char bytes[200];
  const ssize_t count = read(reader.Get(), bytes, sizeof bytes);
  ASSERT_GT(count, 0);
  EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(count)).substr(kTimeStampLength),
            " [INF] somebody reads\n");
}

TEST_F(LoggerTest, NeitherReadsFromAPipeNorAddsToItsLine) {
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  const UNIQUE_FD pipe(open(m_path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(pipe.IsOpen());
  ASSERT_EQ(write(pipe.Get(), "half", 4), 4);
  m_logger.WriteLog(kInf, "line");
  char bytes[200];
  const ssize_t count = read(pipe.Get(), bytes, sizeof bytes);
  ASSERT_GT(count, 0);
  const std::string text(bytes, static_cast<std::size_t>(count));
  EXPECT_EQ(text.substr(0, 5), "half2");
  EXPECT_EQ(text.substr(std::min(text.size(), 4 + kTimeStampLength)), " [INF] line\n");
}

TEST_F(LoggerTest, DoesNotWaitForAFullPipe) {
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  const UNIQUE_FD reader(open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(reader.IsOpen());
  for (int i = 0; i < 200; ++i) {  // a pipe holds 64 KiB
    m_logger.WriteLog(kInf, std::string(900, 'x'));
  }
}

TEST_F(LoggerTest, CopiesLevelAndFileNameAndEachCopyIsItsOwn) {
  m_logger.SetLevel(1);
  LOGGER copy(m_logger);
  LOGGER assigned;
  assigned = m_logger;
  const LOGGER& same = assigned;
  assigned = same;  // cppcheck-suppress selfAssignment ; it is what is tested
  for (const LOGGER* const each : {&copy, &assigned}) {
    EXPECT_EQ(each->Level(), 1);
    EXPECT_EQ(each->FileName(), m_path);
  }
  copy.SetLevel(2);
  copy.SetFileName("/nowhere/log");
  m_logger.WriteLog(kInf, "kept");
  EXPECT_EQ(m_log.AllLines(), (std::vector<std::string>{"[INF] kept"}));
}

TEST_F(LoggerTest, KeepsLinesWholeWhenManyWrite) {
  constexpr int kThreads = 4;
  constexpr int kLines = 1000;
  std::vector<LOGGER> copies(2, m_logger);  // two threads share each
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (int line = 0; line < kLines; ++line) {
        copies[i % 2].WriteLog(kInf, std::string(900, static_cast<char>('a' + i)));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(m_log.AllLines().size(), static_cast<std::size_t>(kThreads * kLines));
  for (std::size_t i = 0; i < kThreads; ++i) {
    EXPECT_EQ(m_log.Count("[INF] " + std::string(900, static_cast<char>('a' + i))), kLines);
  }
}

TEST_F(LoggerTest, EndsWhatIsLeftOfALineOnceWhenManyWrite) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  std::vector<LOGGER> copies(kThreads, m_logger);
  for (int round = 0; round < kRounds; ++round) {
    support::WriteFile(m_path, "half");
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (LOGGER& copy : copies) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        copy.WriteLog(kInf, "line");
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    ASSERT_EQ(m_log.AllLines(),
              (std::vector<std::string>{"BAD LINE: half", "[INF] line", "[INF] line", "[INF] line",
                                        "[INF] line"}));
  }
}

}  // namespace vorn
