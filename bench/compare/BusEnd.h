#pragma once

#include "bench/compare/Loop.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// The far end of the line: a bus controller with cards, as fast as may be, behind a
/// pseudo-terminal. It answers the handshake, the identification, polls and outputs, and never
/// fails. On a paced line both directions take their time, 10 bits a byte, and a frame has arrived
/// when its last byte is through.
///
/// It knows nothing of a client: it tells when it got an output and when it sent a change.
class BUS_END {
 public:
  static constexpr std::size_t kSlots = 16;
  static constexpr std::uint8_t kDigitalInput = 4;
  static constexpr std::uint8_t kInfrared = 10;

  struct OUTPUT {
    std::uint8_t card;
    std::vector<std::uint8_t> data;
    TIME at;  // read from the line
  };

  /// Appears under the path, which must not exist. The loop is lent.
  BUS_END(LOOP& loop, std::string linkPath);
  ~BUS_END();
  BUS_END(const BUS_END&) = delete;
  BUS_END& operator=(const BUS_END&) = delete;

  /// The first so many slots hold cards of the type, the others none. All inputs are 0 then.
  void SetCards(std::uint8_t type, std::size_t count);
  /// Bits a second; 0: no time at all.
  void SetBaud(int baud) { m_baud = baud; }
  /// Without answers it only listens.
  void SetAnswering(bool isAnswering) { m_isAnswering = isAnswering; }
  void SetOutputHandler(std::function<void(const OUTPUT&)> handler) {
    m_handler = std::move(handler);
  }

  /// From now on polls of the card find this in its block 0.
  void ChangeInput(std::size_t card, std::uint8_t value);
  /// When the answer with that was about to be written; the epoch: not yet.
  TIME ChangeSentAt() const { return m_changeSentAt; }
  /// Bytes that nobody has asked for. When they were about to be written.
  TIME Send(std::string_view bytes);

  /// How often somebody found it: once, and again after each loss of the link.
  int Handshakes() const { return m_handshakes; }
  /// How often it was asked which cards there are.
  int Identifications() const { return m_identifications; }
  /// The time that all bytes take on a line of that speed, in both directions.
  NANOSECONDS LineTime(int baud) const { return TimeOf(m_bytes, baud); }

 private:
  struct ANSWER {
    TIME due;
    TIME askedAt;  // the request's last byte is through
    std::vector<std::uint8_t> request;
  };

  static NANOSECONDS TimeOf(std::uint64_t bytes, int baud);
  void Read();
  void TakeFrame(std::vector<std::uint8_t> body, TIME now);
  void WriteDue();
  void Write(const ANSWER& answer);

  LOOP& m_loop;
  const std::string m_linkPath;
  DESCRIPTOR m_master;
  DESCRIPTOR m_near;  // held open, so that the far end outlives whoever opens the near one
  TIMER m_timer;
  int m_baud = 0;
  bool m_isAnswering = true;
  std::function<void(const OUTPUT&)> m_handler;
  std::array<std::uint8_t, kSlots> m_types{};
  std::array<std::uint8_t, kSlots> m_inputs{};
  std::size_t m_changedCard = 0;
  std::uint8_t m_before = 0;  // what the changed card's input was
  TIME m_changedAt{};
  TIME m_changeSentAt{};
  std::vector<std::uint8_t> m_received;
  std::deque<ANSWER> m_answers;
  TIME m_lineFree{};
  std::uint64_t m_bytes = 0;
  int m_handshakes = 0;
  int m_identifications = 0;
};

}  // namespace bench
