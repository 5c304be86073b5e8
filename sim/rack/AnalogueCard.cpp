#include "sim/rack/Card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <random>

namespace sim {

namespace {

constexpr int kPots = 6;

/// Six pots, 0 to 255, with noise and ramps. A channel whose mask bit is 0 answers 0. The noise is
/// the same in every run, so that what a test saw can be seen again.
class ANALOGUE_CARD : public CARD {
 public:
  ANALOGUE_CARD(int address, REPORT report)
      : CARD(type::kAnalogue, address, std::move(report)),
        m_random(static_cast<std::mt19937::result_type>(address)) {}

  void Advance(TIME now) override;
  bool Moving() const override {
    return std::any_of(m_pots.begin(), m_pots.end(), [](const POT& pot) { return pot.ramping; });
  }
  /// Stops a ramp of that pot.
  RESULT Set(int pot, int value) override;
  RESULT Ramp(int pot, int target, std::chrono::milliseconds time) override;
  /// Each answer differs from the pot's value by at most so much, evenly spread; 0: none.
  RESULT SetNoise(int pot, int amplitude) override;

 protected:
  Bytes Input() override;
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  struct POT {
    double value = 0;
    int noise = 0;
    bool ramping = false;
    double from = 0;
    double to = 0;
    TIME begin{};
    std::chrono::milliseconds time{};

    /// Without noise and mask.
    std::uint8_t Byte() const { return static_cast<std::uint8_t>(std::lround(value)); }
  };

  RESULT Check(int pot, int value, const char* refusal) const;

  std::array<POT, kPots> m_pots;
  std::mt19937 m_random;
  std::optional<TIME> m_now;  // of the last Advance
};

RESULT ANALOGUE_CARD::Check(int pot, int value, const char* refusal) const {
  if (pot < 0 || pot >= kPots) {
    return BadNumber("pot", pot, kPots - 1);
  }
  return value < 0 || value > 0xFF ? RESULT::Error(refusal) : RESULT::Good();
}

void ANALOGUE_CARD::Advance(TIME now) {
  m_now = now;
  for (int i = 0; i < kPots; ++i) {
    POT& pot = m_pots.at(static_cast<std::size_t>(i));
    if (!pot.ramping) {
      continue;
    }
    const double done = std::chrono::duration<double>(now - pot.begin) / pot.time;
    if (done < 1) {
      pot.value = pot.from + (pot.to - pot.from) * std::max(0.0, done);
      continue;
    }
    pot.value = pot.to;
    pot.ramping = false;
    Report("pot " + std::to_string(i) + " reached " + ToHex(pot.Byte()));
  }
}

RESULT ANALOGUE_CARD::Set(int pot, int value) {
  RESULT checked = Check(pot, value, "a pot's value is 00 to FF");
  if (!checked) {
    return checked;
  }
  POT& set = m_pots.at(static_cast<std::size_t>(pot));
  const bool changes = set.Byte() != value;
  set.ramping = false;
  set.value = value;
  if (changes) {
    Report("pot " + std::to_string(pot) + " = " + ToHex(set.Byte()));
  }
  return checked;
}

RESULT ANALOGUE_CARD::Ramp(int pot, int target, std::chrono::milliseconds time) {
  if (time.count() <= 0 || !m_now) {
    return Set(pot, target);
  }
  RESULT checked = Check(pot, target, "a pot's value is 00 to FF");
  if (!checked) {
    return checked;
  }
  POT& ramped = m_pots.at(static_cast<std::size_t>(pot));
  ramped.ramping = true;
  ramped.from = ramped.value;
  ramped.to = target;
  ramped.begin = *m_now;
  ramped.time = time;
  return checked;
}

RESULT ANALOGUE_CARD::SetNoise(int pot, int amplitude) {
  RESULT checked = Check(pot, amplitude, "noise is 00 to FF");
  if (checked) {
    m_pots.at(static_cast<std::size_t>(pot)).noise = amplitude;
  }
  return checked;
}

Bytes ANALOGUE_CARD::Input() {
  const int mask = Parameter("mask");
  Bytes input;
  for (int i = 0; i < kPots; ++i) {
    const POT& pot = m_pots.at(static_cast<std::size_t>(i));
    int value = 0;
    if ((mask >> i & 1) != 0) {
      value = pot.Byte();
      if (pot.noise > 0) {
        value += std::uniform_int_distribution<int>(-pot.noise, pot.noise)(m_random);
      }
    }
    input.push_back(static_cast<std::uint8_t>(std::clamp(value, 0, 0xFF)));
  }
  return input;
}

void ANALOGUE_CARD::ShowState(std::vector<FIELD>& fields) const {
  Bytes values;
  Bytes noise;
  std::vector<std::string> labels;
  for (const POT& pot : m_pots) {
    values.push_back(pot.Byte());
    noise.push_back(static_cast<std::uint8_t>(pot.noise));
    labels.push_back(ToHex(pot.Byte()));
  }
  fields.push_back({"values", values, FIELD_KIND::kBar, {}, 0, labels});
  fields.push_back({"noise", noise});
}

}  // namespace

std::unique_ptr<CARD> MakeAnalogue(int address, REPORT report) {
  return std::make_unique<ANALOGUE_CARD>(address, std::move(report));
}

}  // namespace sim
