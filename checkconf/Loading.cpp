#include "checkconf/Loading.h"

#include "thread/UniqueFd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vorn::checkconf {

namespace {

constexpr std::size_t kChunk = 65536;

const char* WhatIs(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "a folder";
    case S_IFIFO:
      return "a named pipe";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device";
  }
}

void AddError(int error, FINDINGS& findings) {
  if (error == ENOENT || error == ENOTDIR) {
    findings.Add(KIND::kNotFound, {});
  } else {
    findings.Add(KIND::kNotReadable, {}, {std::generic_category().message(error)});
  }
}

/// False when there is no regular file; looked at before it is opened, for a device may act on
/// that.
bool IsRegular(const std::string& path, FINDINGS& findings) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    AddError(errno, findings);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    findings.Add(KIND::kNotRegular, {}, {WhatIs(status.st_mode)});
    return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> LoadText(const std::string& path, FINDINGS& findings) {
  if (!IsRegular(path, findings)) {
    return {};
  }
  // Non-blocking in case a pipe has taken the file's place since.
  const UNIQUE_FD file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file.IsOpen()) {
    AddError(errno, findings);
    return {};
  }
  std::string text;
  for (;;) {
    const std::size_t used = text.size();
    text.resize(used + kChunk);
    const ssize_t count = read(file.Get(), text.data() + used, kChunk);
    text.resize(used + static_cast<std::size_t>(count > 0 ? count : 0));
    if (count < 0 && errno != EINTR) {
      AddError(errno, findings);
      return {};
    }
    if (text.size() > kLargestFile) {
      findings.Add(KIND::kTooLarge, {}, {std::to_string(kLargestFile)});
      return {};
    }
    if (count == 0) {
      return text;
    }
  }
}

}  // namespace vorn::checkconf
