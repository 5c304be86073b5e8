#pragma once

#include "tests/fuzz/support/Check.h"
#include "tests/fuzz/support/System.h"
#include "vorn/bus/Line.h"
#include "vorn/bus/PerifCard.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

namespace fuzz {

/// A bus controller at the port. Whatever the daemon writes must be whole frames with a right
/// length byte and, where they name a card, its address below 16; the target says how each is
/// answered.
class BUS : public SYSTEM, public LINE {
 public:
  ~BUS() override { Require(!m_isOpen, "the port is closed at the end"); }

  std::list<std::string> Search() override { return {"/dev/ttyUSB0"}; }
  bool Open(const std::string& /*path*/) override {
    m_request.clear();
    m_reply.clear();
    m_isOpen = true;
    return true;
  }
  int SetUp() override { return 0; }
  void Close() override { m_isOpen = false; }

  ssize_t Write(const std::uint8_t* bytes, std::size_t count) override {
    m_request.append(bytes, bytes + count);
    Require(m_request.size() <= 255, "no frame is over 255 bytes", m_request);
    if (m_request.size() == 1U + static_cast<std::uint8_t>(m_request[0])) {
      const std::string body = m_request.substr(1);
      m_request.clear();
      RequireRequest(body);
      ++m_requests;
      m_reply.clear();
      Answer(body);
    }
    return static_cast<ssize_t>(count);
  }

  ssize_t Read(std::uint8_t* bytes, std::size_t count) override {
    // Empty elements are reads that find nothing.
    if (m_reply.empty() || m_reply.front().empty()) {
      if (!m_reply.empty()) {
        m_reply.pop_front();
      }
      errno = EAGAIN;
      return -1;
    }
    std::string& next = m_reply.front();
    const std::size_t taken = std::min(count, next.size());
    std::copy_n(next.begin(), taken, bytes);
    next.erase(0, taken);
    if (next.empty()) {
      m_reply.pop_front();
    }
    return static_cast<ssize_t>(taken);
  }

  /// Frames that the daemon has sent.
  std::size_t Requests() const { return m_requests; }

 protected:
  /// A request has come whole; Reply answers it.
  virtual void Answer(const std::string& body) = 0;
  /// What the next reads find, one element each.
  void Reply(const std::vector<std::string>& reads) { m_reply.assign(reads.begin(), reads.end()); }
  void Reply(const std::string& bytes) { m_reply.assign(1, bytes); }

  static std::string Frame(std::string_view body) {
    return std::string(1, static_cast<char>(body.size())) + std::string(body);
  }

 private:
  static void RequireRequest(std::string_view body) {
    Require(!body.empty(), "no frame is empty");
    const auto address = [&](std::size_t at) {
      return at < body.size() && static_cast<std::uint8_t>(body[at]) < bus::kAddresses;
    };
    switch (body[0]) {
      case '@':
        return Require(body == "@o\x9A", "the handshake is whole", body);
      case '0':
        return Require(body == "0", "identification is whole", body);
      case ' ':
        Require(body.size() % 3 == 0, "a poll is whole", body);
        return Require(address(1), "a poll is of a card", body);
      case '\x10':
        Require(address(1), "an output is of a card", body);
        return Require(body.size() > 3 && body.size() == 3U + static_cast<std::uint8_t>(body[2]),
                       "an output's count is right", body);
      case 'P':
        Require(address(1), "a parameter is of a card", body);
        return Require(body.size() == 4 || body.size() == 5, "a parameter is whole", body);
      default:
        Fail("a request of a known kind", body);
    }
  }

  bool m_isOpen = false;
  std::string m_request;  // as far as it has come
  std::deque<std::string> m_reply;
  std::size_t m_requests = 0;
};

/// What must hold of a card's record, whatever the bus has sent.
inline void RequireSound(const PERIFCARD& card, std::size_t address) {
  Require(card.address == address, "a record keeps its address");
  Require(std::find(card.name.begin(), card.name.end(), '\0') != card.name.end(),
          "a card's name ends");
  Require(card.name.data() == std::string_view(FindCardType(card.typeCode).name),
          "a card is named by its type");
  Require(card.stateWord == FindCardType(card.typeCode).state, "a card's state is its type's");
  Require(card.pollFrame.size() % 3 == 0, "a poll body is whole");
  Require(card.samplesPerReport >= 1 && card.sampleCount >= 0 &&
              card.sampleCount <= card.samplesPerReport,
          "samples are counted within a report");
  for (const std::int32_t sum : card.analogueSums) {
    Require(sum >= 0 && sum <= 255 * card.sampleCount, "a sum is that of its samples");
  }
  for (const std::uint8_t flag : card.changeFlags) {
    Require(flag <= 1, "a change flag is one");
  }
}

/// True for "a3b0d40", of this card or of any.
inline bool IsInputLine(std::string_view line) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto digit = [&](std::size_t at) { return kDigits.find(line[at]) != std::string::npos; };
  return line.size() == 7 && line[0] == 'a' && digit(1) && line[2] == 'b' && digit(3) &&
         line[4] == 'd' && digit(5) && digit(6);
}

}  // namespace fuzz

}  // namespace vorn
