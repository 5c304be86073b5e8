#include "vorn/base/LOGGER.h"

#include "vorn/base/FileDescriptor.h"

#include <fcntl.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>

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
  FILE_DESCRIPTOR file(open(fileName.c_str(), kFlags, kMode));
  if (!file.IsOpen()) {
    return nullptr;
  }
  FILE* const stream = fdopen(file.Get(), "a");
  if (stream != nullptr) {
    file.Release();  // fclose closes it now
  }
  return stream;
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

  std::array<char, kLineBufferSize> line{};
  const int length = std::snprintf(line.data(), line.size(), "%s [%s] %s\n", time.data(),
                                   tag.c_str(), text.c_str());
  if (length >= static_cast<int>(line.size())) {
    line[line.size() - 2] = '\n';  // cut to fit, yet still a line
  }
  std::fputs(line.data(), stream);
  std::fflush(stream);
  std::fclose(stream);
}
