#include "sim/rack/Card.h"

#include <cstdlib>
#include <deque>

namespace sim {

namespace {

constexpr int kHighestKey = 0x7F;
constexpr int kEncoderMark = 0x80;
constexpr int kEncoderSteps = 0x80;
constexpr std::size_t kMaximumWaiting = 256;

/// A key matrix and a rotary encoder that share one input byte: 00 no key, 01 to 7F the code of the
/// key that is down, 80 to FF the encoder's position after a turn. Each poll takes the next of the
/// things that happened, so a fast finger is not lost; with nothing new it repeats the last.
class KEYS_CARD : public CARD {
 public:
  KEYS_CARD(int address, REPORT report) : CARD(type::kKeys, address, std::move(report)) {}

  RESULT Press(int key) override;
  RESULT Release(int key) override;
  /// Positive clockwise; one poll answer for each step.
  RESULT Turn(int steps) override;
  bool NamesKeysByCode() const override { return true; }

 protected:
  Bytes Input() override;
  void OnReboot() override {
    m_waiting.clear();
    m_last = m_down;
    m_encoder = 0;
  }
  void ShowState(std::vector<FIELD>& fields) const override {
    fields.push_back({"key", m_down, FIELD_KIND::kNumber});
    fields.push_back({"encoder", m_encoder, FIELD_KIND::kNumber});
    fields.push_back({"input", m_last});
    fields.push_back({"waiting", static_cast<int>(m_waiting.size())});
  }

 private:
  RESULT Add(int value);

  std::deque<std::uint8_t> m_waiting;
  std::uint8_t m_last = 0;
  std::uint8_t m_down = 0;  // the code of the key that is down, 0 for none
  int m_encoder = 0;        // 0 to 127
};

RESULT KEYS_CARD::Add(int value) {
  if (m_waiting.size() >= kMaximumWaiting) {
    return RESULT::Error("the card holds " + std::to_string(kMaximumWaiting) +
                         " events already that nobody polled");
  }
  m_waiting.push_back(static_cast<std::uint8_t>(value));
  return RESULT::Good();
}

RESULT KEYS_CARD::Press(int key) {
  if (key < 1 || key > kHighestKey) {
    return RESULT::Error("a key code is 1 to 7F (hexadecimal)");
  }
  RESULT added = Add(key);
  if (!added) {
    return added;
  }
  m_down = static_cast<std::uint8_t>(key);
  Report("key " + ToHex(m_down) + " pressed");
  return added;
}

RESULT KEYS_CARD::Release(int key) {
  if (key < 1 || key > kHighestKey) {
    return RESULT::Error("a key code is 1 to 7F (hexadecimal)");
  }
  if (m_down != key) {
    return RESULT::Good();
  }
  RESULT added = Add(0);
  if (!added) {
    return added;
  }
  Report("key " + ToHex(m_down) + " released");
  m_down = 0;
  return added;
}

RESULT KEYS_CARD::Turn(int steps) {
  if (std::abs(steps) > kHighestKey) {
    return RESULT::Error("a turn is -127 to 127 steps");
  }
  for (int i = 0; i < std::abs(steps); ++i) {
    const int next = (m_encoder + (steps > 0 ? 1 : kEncoderSteps - 1)) % kEncoderSteps;
    if (RESULT added = Add(kEncoderMark + next); !added) {
      return added;
    }
    m_encoder = next;
  }
  if (steps != 0) {
    Report("encoder at " + std::to_string(m_encoder));
  }
  return RESULT::Good();
}

Bytes KEYS_CARD::Input() {
  if (!m_waiting.empty()) {
    m_last = m_waiting.front();
    m_waiting.pop_front();
  }
  return {m_last};
}

}  // namespace

std::unique_ptr<CARD> MakeKeys(int address, REPORT report) {
  return std::make_unique<KEYS_CARD>(address, std::move(report));
}

}  // namespace sim
