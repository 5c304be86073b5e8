#include "vornctl/HistoryFile.h"

#include "client/Descriptor.h"
#include "vornctl/WriteAll.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <utility>

namespace ctl {

namespace {

namespace fs = std::filesystem;

/// The end of a file is read: a thousand long lines.
constexpr off_t kMostBytes = 1'000'000;

/// A file from elsewhere must not do to the terminal what nobody could have typed.
bool IsPlain(const std::string& line) {
  return std::all_of(line.begin(), line.end(),
                     [](char sign) { return sign >= ' ' && sign != 0x7F; });
}

bool IsKept(const std::string& line) {
  return !line.empty() && line.front() != ' ' && IsPlain(line);
}

/// False where there is something that cannot be read. Nothing there is an empty text.
bool Read(const std::string& path, std::string& text) {
  // Not to wait where the name is a pipe's.
  const client::DESCRIPTOR file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) {
    return errno == ENOENT || errno == ENOTDIR;
  }
  struct stat about {};
  if (fstat(file.Get(), &about) != 0 || !S_ISREG(about.st_mode)) {
    return false;
  }
  const off_t start = std::max<off_t>(about.st_size - kMostBytes, 0);
  std::array<char, 4096> part{};
  for (off_t at = start;;) {
    const ssize_t count = pread(file.Get(), part.data(), part.size(), at);
    if (count <= 0) {
      if (start > 0) {
        text.erase(0, text.find('\n') + 1);  // the part of a line
      }
      return count == 0;
    }
    text.append(part.data(), static_cast<std::size_t>(count));
    at += count;
  }
}

/// For the owner only, as those who keep state in a home agree.
void MakeFolders(const fs::path& folder) {
  if (folder.empty() || mkdir(folder.c_str(), S_IRWXU) == 0 || errno != ENOENT) {
    return;
  }
  MakeFolders(folder.parent_path());
  mkdir(folder.c_str(), S_IRWXU);
}

}  // namespace

HISTORY_FILE::HISTORY_FILE(std::string path) : m_path(std::move(path)) {
  std::string text;
  m_isOurs = !m_path.empty() && Read(m_path, text);
  std::size_t begin = 0;
  for (std::size_t end = 0; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    Add(text.substr(begin, end - begin));
  }
  m_changed = false;
}

bool HISTORY_FILE::Add(const std::string& line) {
  if (!IsKept(line) || (!m_lines.empty() && m_lines.back() == line)) {
    return false;
  }
  m_lines.push_back(line);
  if (m_lines.size() > kMost) {
    m_lines.pop_front();
  }
  m_changed = true;
  return true;
}

void HISTORY_FILE::Write() const {
  if (!m_changed || !m_isOurs) {
    return;
  }
  std::string text;
  for (const std::string& line : m_lines) {
    text += line + '\n';
  }
  MakeFolders(fs::path(m_path).parent_path());
  std::string fresh = m_path + ".XXXXXX";
  client::DESCRIPTOR file(mkostemp(fresh.data(), O_CLOEXEC));  // 0600
  if (!file) {
    return;
  }
  const bool isWhole = WriteAll(file.Get(), text) == 0 && fsync(file.Get()) == 0;
  file.Close();
  if (!isWhole || rename(fresh.c_str(), m_path.c_str()) != 0) {
    unlink(fresh.c_str());
  }
}

}  // namespace ctl
