#pragma once

#include "thread/Lock.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace vorn {

/// The tags of log lines. They are printed; they play no part in filtering.
constexpr const char* kInf = "INF";
constexpr const char* kErr = "ERR";

/// A log destination: appends lines to a text file, opening and closing it for each.
///
/// Any thread may write on a logger. Copies (each worker holds one) share file name and level but
/// not the lock: their lines rely on reaching the append-mode file in one flush each. Level and
/// file name are set before a copy is handed to another thread.
///
/// Where a write error, or the end of a process, has left a part of a line at the file's end, the
/// next line begins with a line feed: every whole line stands on a line of its own. Only where
/// there is such a part do writers wait for those of other copies.
class LOGGER {
 public:
  LOGGER() = default;
  LOGGER(const LOGGER& other);
  LOGGER& operator=(const LOGGER& other);
  ~LOGGER() = default;

  void SetLevel(std::int32_t level) { m_level = level; }
  void SetFileName(const std::string& fileName) { m_fileName = fileName; }
  std::int32_t Level() const { return m_level; }
  const std::string& FileName() const { return m_fileName; }

  /// Appends "TIME [TAG] TEXT" and a line feed; a line over 999 bytes is cut to that. Never reports
  /// a failure: a line that cannot be written is dropped and the next call tries again. At level 2
  /// and above no line is written and each call leaves one opened stream behind, as it always has.
  void WriteLog(const std::string& tag, const std::string& text);

 private:
  std::int32_t m_level = 0;
  std::string m_fileName;
  CLock m_lock;  // held while a line is written
};

}  // namespace vorn
