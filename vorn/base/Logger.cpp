#include "vorn/base/Logger.h"

#include "thread/UniqueFd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <shared_mutex>
#include <type_traits>

namespace vorn {

namespace {

constexpr std::size_t kTimeBufferSize = 256;
constexpr std::size_t kLineBufferSize = 1000;
/// Up to this level every line is written, above it none.
constexpr std::int32_t kLastWritingLevel = 1;

/// Opens the file as mode "a" does, and close-on-exec. Non-blocking, so that a pipe in the file's
/// place cannot hold a worker.
FILE* OpenForAppend(const std::string& fileName) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  constexpr mode_t kMode = 0666;
  UNIQUE_FD file(open(fileName.c_str(), kFlags, kMode));
  if (!file.IsOpen()) {
    return nullptr;
  }
  FILE* const stream = fdopen(file.Get(), "a");
  if (stream != nullptr) {
    file.Release();  // fclose closes it now
  }
  return stream;
}

/// Whether the last byte of the log that `file` appends to is another than a line feed: a full
/// disk, a limit of the file's size or the end of a process has cut its last line, or a writer is
/// in the middle of one. False where this cannot be seen, and of what is no regular file.
bool EndsInMidLine(int file, const std::string& fileName) {
  struct stat written {};
  if (fstat(file, &written) != 0 || !S_ISREG(written.st_mode) || written.st_size == 0) {
    return false;
  }
  const UNIQUE_FD reader(open(fileName.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat read {};
  // Under its name there may be another file by now.
  if (!reader.IsOpen() || fstat(reader.Get(), &read) != 0 || read.st_dev != written.st_dev ||
      read.st_ino != written.st_ino) {
    return false;
  }
  char last = '\n';
  return pread(reader.Get(), &last, 1, written.st_size - 1) == 1 && last != '\n';
}

/// Hands the text to the file in one write.
void Append(FILE* stream, const char* text) {
  std::fputs(text, stream);
  std::fflush(stream);
}

/// Held shared by all who look at the log's end and write, who so do not exclude one another. The
/// kernel shows a line that crosses a page for a moment as half of one, and two may find the same
/// half: who has found one looks again alone, and ends it alone.
std::shared_mutex writing;
static_assert(
    std::is_trivially_destructible_v<std::shared_mutex>);  // exit runs while workers write

/// Appends `lineFeedAndLine`, without its first byte where the log ends as it should.
void AppendLine(FILE* stream, const std::string& fileName, const char* lineFeedAndLine) {
  const int file = fileno(stream);
  const char* const line = lineFeedAndLine + 1;
  {
    const std::shared_lock together(writing);
    if (!EndsInMidLine(file, fileName)) {
      Append(stream, line);
      return;
    }
  }
  const std::unique_lock alone(writing);
  Append(stream, EndsInMidLine(file, fileName) ? lineFeedAndLine : line);
}

}  // namespace

LOGGER::LOGGER(const LOGGER& other) : m_level(other.m_level), m_fileName(other.m_fileName) {
}

LOGGER& LOGGER::operator=(const LOGGER& other) {
  if (this != &other) {
    m_level = other.m_level;
    m_fileName = other.m_fileName;
  }
  return *this;
}

void LOGGER::WriteLog(const std::string& tag, const std::string& text) {
  const std::time_t now = std::time(nullptr);
  const std::lock_guard lock(m_lock);
  FILE* const stream = OpenForAppend(m_fileName);
  if (stream == nullptr) {
    return;
  }
  if (m_level > kLastWritingLevel) {
    // The stream stays open: opening first, then testing the level is intended.
    return;  // NOLINT(clang-analyzer-unix.Stream)
  }

  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, kTimeBufferSize> time{};
  std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M:%S", &local);

  std::array<char, kLineBufferSize + 1> lineFeedAndLine{};
  lineFeedAndLine.front() = '\n';
  const int length = std::snprintf(lineFeedAndLine.data() + 1, kLineBufferSize, "%s [%s] %s\n",
                                   time.data(), tag.c_str(), text.c_str());
  if (length >= static_cast<int>(kLineBufferSize)) {
    lineFeedAndLine[kLineBufferSize - 1] = '\n';  // cut to fit, yet still a line
  }
  AppendLine(stream, m_fileName, lineFeedAndLine.data());
  std::fclose(stream);
}

}  // namespace vorn
