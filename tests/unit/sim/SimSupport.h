#pragma once

#include "sim/line/Descriptor.h"
#include "sim/rack/Protocol.h"
#include "tests/support/sim/Adapter.h"
#include "tests/support/sim/Rack.h"
#include "tests/support/unit/Folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>

namespace sim {

using support::kLimit;

/// The answer to a request body, both as "10 05 02 FF FB"; "silence" for none.
inline std::string Ask(RACK& rack, const std::string& request) {
  const std::optional<Bytes> answer = rack.Answer(FromHex(request).value());
  return answer ? ToHex(*answer) : "silence";
}

/// The keyword of each type of card, in the table's order, with something behind it.
inline std::string CardTypeWords(const std::string& behindEach) {
  std::string words;
  for (const CARD_TYPE& row : kCardTypes) {
    words += row.keyword + behindEach;
  }
  return words;
}

inline std::string Trimmed(const std::string& text) {
  const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
  return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

/// Lines of steps with '|' between, and behind "->" what must come of one; of most it is good.
/// Blanks at an answer's ends do not count.
template <class DO>
void Converse(const std::string& steps, const std::string& good, DO act) {
  std::istringstream lines(steps);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream parts(line);
    for (std::string part; std::getline(parts, part, '|');) {
      const std::size_t arrow = part.find("->");
      const std::string what = Trimmed(part.substr(0, arrow));
      const std::string comes = arrow == std::string::npos ? good : Trimmed(part.substr(arrow + 2));
      if (!what.empty()) {
        EXPECT_EQ(Trimmed(act(what)), comes) << what;
      }
    }
  }
}

/// The near end of the line, as a program that is not the daemon opens it: bytes out, bytes in.
class NEAR_END {
 public:
  explicit NEAR_END(const std::string& path)
      : m_port(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}

  bool Open() const { return static_cast<bool>(m_port); }
  void Close() { m_port.Close(); }
  int Get() const { return m_port.Get(); }

  bool Write(const Bytes& bytes) {
    return write(m_port.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }

  /// Exactly so many bytes, or fewer when they do not come.
  Bytes Read(std::size_t count, std::chrono::milliseconds limit = kLimit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    Bytes bytes;
    while (bytes.size() < count && Readable(deadline)) {
      Bytes part(count - bytes.size());
      const ssize_t got = read(m_port.Get(), part.data(), part.size());
      if (got <= 0) {
        break;
      }
      bytes.insert(bytes.end(), part.begin(), part.begin() + got);
    }
    return bytes;
  }

  /// A request body out, a reply body in, as "20 03 02"; the length byte is taken from the line.
  std::string Ask(const std::string& body) {
    if (!Write(Frame(FromHex(body).value()))) {
      return "not written";
    }
    const Bytes length = Read(1);
    return length.empty() ? "silence" : ToHex(Read(length[0]));
  }

  /// Something to read, or a hang-up, comes before the deadline.
  bool Readable(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd watched{m_port.Get(), POLLIN, 0};
    return poll(&watched, 1, std::max(0, static_cast<int>(left.count()))) > 0;
  }

  /// The other side closes the line.
  bool WaitForHangUp(std::chrono::milliseconds limit = kLimit) {
    pollfd watched{m_port.Get(), 0, 0};
    return poll(&watched, 1, static_cast<int>(limit.count())) > 0 &&
           (watched.revents & POLLHUP) != 0;
  }

 private:
  DESCRIPTOR m_port;
};

}  // namespace sim
