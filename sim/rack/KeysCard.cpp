#include "sim/rack/Cards.h"

#include <cstdlib>

namespace sim {

namespace {

constexpr int kHighestKey = 0x7F;
constexpr int kEncoderMark = 0x80;
constexpr int kEncoderSteps = 0x80;

}  // namespace

KEYS_CARD::KEYS_CARD(int address, REPORT report) : CARD(type::kKeys, address, std::move(report)) {
}

int KEYS_CARD::Value(int block) const {
  if (block != 0)
    return -1;
  return m_waiting.empty() ? m_last : m_waiting.front();
}

bool KEYS_CARD::Add(std::uint8_t value) {
  if (m_waiting.size() >= kMaximumWaiting)
    return false;
  m_waiting.push_back(value);
  return true;
}

RESULT KEYS_CARD::Press(int key) {
  if (key < 1 || key > kHighestKey)
    return RESULT::Error("a key code is 1 to 7F (hexadecimal)");
  if (!Add(static_cast<std::uint8_t>(key)))
    return RESULT::Error("the card holds " + std::to_string(kMaximumWaiting) +
                         " events already that nobody polled");
  m_down = key;
  Report("key " + ToHex(static_cast<std::uint8_t>(key)) + " pressed");
  return RESULT::Good();
}

RESULT KEYS_CARD::Release(int key) {
  if (key < 1 || key > kHighestKey)
    return RESULT::Error("a key code is 1 to 7F (hexadecimal)");
  if (m_down != key)
    return RESULT::Good();
  if (!Add(0))
    return RESULT::Error("the card holds " + std::to_string(kMaximumWaiting) +
                         " events already that nobody polled");
  m_down = 0;
  Report("key " + ToHex(static_cast<std::uint8_t>(key)) + " released");
  return RESULT::Good();
}

RESULT KEYS_CARD::Turn(int steps) {
  if (std::abs(steps) > kHighestKey)
    return RESULT::Error("a turn is -127 to 127 steps");
  for (int i = 0; i < std::abs(steps); ++i) {
    const int next = (m_encoder + (steps > 0 ? 1 : kEncoderSteps - 1)) % kEncoderSteps;
    if (!Add(static_cast<std::uint8_t>(kEncoderMark + next)))
      return RESULT::Error("the card holds " + std::to_string(kMaximumWaiting) +
                           " events already that nobody polled");
    m_encoder = next;
  }
  if (steps != 0)
    Report("encoder at " + std::to_string(m_encoder));
  return RESULT::Good();
}

Bytes KEYS_CARD::Input() {
  if (!m_waiting.empty()) {
    m_last = m_waiting.front();
    m_waiting.pop_front();
  }
  return {m_last};
}

void KEYS_CARD::OnReboot() {
  m_waiting.clear();
  m_last = static_cast<std::uint8_t>(m_down);
  m_encoder = 0;
}

void KEYS_CARD::ShowState(std::vector<FIELD>& fields) const {
  fields.push_back({"key", static_cast<std::uint8_t>(m_down)});
  fields.push_back({"encoder", m_encoder});
  fields.push_back({"input", m_last});
  fields.push_back({"waiting", static_cast<int>(m_waiting.size())});
}

}  // namespace sim
