#include "sim/rack/Cards.h"

#include <algorithm>
#include <cmath>

namespace sim {

/// The noise is the same in every run, so that what a test saw can be seen again.
ANALOGUE_CARD::ANALOGUE_CARD(int address, REPORT report)
    : CARD(type::kAnalogue, address, std::move(report)),
      m_random(static_cast<std::mt19937::result_type>(address)) {
}

void ANALOGUE_CARD::Advance(TIME now) {
  m_now = now;
  for (int i = 0; i < kPots; ++i) {
    POT& pot = m_pots[static_cast<std::size_t>(i)];
    if (!pot.ramping)
      continue;
    const double done = std::chrono::duration<double>(now - pot.begin) / pot.time;
    if (done < 1) {
      pot.value = pot.from + (pot.to - pot.from) * std::max(0.0, done);
      continue;
    }
    pot.value = pot.to;
    pot.ramping = false;
    Report("pot " + std::to_string(i) + " reached " + ToHex(static_cast<std::uint8_t>(Value(i))));
  }
}

bool ANALOGUE_CARD::Moving() const {
  return std::any_of(m_pots.begin(), m_pots.end(), [](const POT& pot) { return pot.ramping; });
}

int ANALOGUE_CARD::Value(int pot) const {
  if (pot < 0 || pot >= kPots)
    return -1;
  return static_cast<int>(std::lround(m_pots[static_cast<std::size_t>(pot)].value));
}

RESULT ANALOGUE_CARD::Set(int pot, int value) {
  if (pot < 0 || pot >= kPots)
    return BadNumber("pot", pot, kPots - 1);
  if (value < 0 || value > 0xFF)
    return RESULT::Error("a pot's value is 00 to FF");
  POT& set = m_pots[static_cast<std::size_t>(pot)];
  const int before = Value(pot);
  set.ramping = false;
  set.value = value;
  if (before != value)
    Report("pot " + std::to_string(pot) + " = " + ToHex(static_cast<std::uint8_t>(value)));
  return RESULT::Good();
}

RESULT ANALOGUE_CARD::Ramp(int pot, int target, std::chrono::milliseconds time) {
  if (time.count() <= 0 || !m_now)
    return Set(pot, target);
  if (pot < 0 || pot >= kPots)
    return BadNumber("pot", pot, kPots - 1);
  if (target < 0 || target > 0xFF)
    return RESULT::Error("a pot's value is 00 to FF");
  POT& ramped = m_pots[static_cast<std::size_t>(pot)];
  ramped.ramping = true;
  ramped.from = ramped.value;
  ramped.to = target;
  ramped.begin = *m_now;
  ramped.time = time;
  return RESULT::Good();
}

RESULT ANALOGUE_CARD::SetNoise(int pot, int amplitude) {
  if (pot < 0 || pot >= kPots)
    return BadNumber("pot", pot, kPots - 1);
  if (amplitude < 0 || amplitude > 0xFF)
    return RESULT::Error("noise is 00 to FF");
  m_pots[static_cast<std::size_t>(pot)].noise = amplitude;
  return RESULT::Good();
}

Bytes ANALOGUE_CARD::Input() {
  const int mask = Parameter("mask");
  Bytes input;
  for (int i = 0; i < kPots; ++i) {
    const int noise = m_pots[static_cast<std::size_t>(i)].noise;
    int value = 0;
    if ((mask >> i & 1) != 0) {
      value = Value(i);
      if (noise > 0)
        value += std::uniform_int_distribution<int>(-noise, noise)(m_random);
    }
    input.push_back(static_cast<std::uint8_t>(std::clamp(value, 0, 0xFF)));
  }
  return input;
}

void ANALOGUE_CARD::ShowState(std::vector<FIELD>& fields) const {
  Bytes values;
  Bytes noise;
  for (int i = 0; i < kPots; ++i) {
    values.push_back(static_cast<std::uint8_t>(Value(i)));
    noise.push_back(static_cast<std::uint8_t>(m_pots[static_cast<std::size_t>(i)].noise));
  }
  fields.push_back({"values", values});
  fields.push_back({"noise", noise});
}

}  // namespace sim
