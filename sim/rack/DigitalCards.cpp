#include "sim/rack/Card.h"

#include <array>

namespace sim {

namespace {

using BLOCKS = std::array<std::uint8_t, 2>;
constexpr int kLamps = 16;

std::string BlockText(std::size_t block, std::uint8_t value) {
  return "block " + std::to_string(block) + " = " + ToHex(value);
}

/// Which lamps or keys of two blocks are on.
FIELD Lamps(const char* name, const char* caption, const BLOCKS& blocks) {
  std::vector<int> on;
  for (int lamp = 0; lamp < kLamps; ++lamp) {
    if ((blocks.at(static_cast<std::size_t>(lamp / 8)) >> (lamp % 8) & 1) != 0) {
      on.push_back(lamp);
    }
  }
  return {name, on, FIELD_KIND::kLamp, caption, kLamps};
}

/// 16 lamps in two blocks; a 0 bit lights.
class DIGITAL_OUTPUT_CARD : public CARD {
 public:
  DIGITAL_OUTPUT_CARD(int address, REPORT report)
      : CARD(type::kDigitalOutput, address, std::move(report)) {}

 protected:
  bool Output(std::span<const std::uint8_t> data) override {
    for (std::size_t block = 0; block < m_blocks.size(); ++block) {
      if (m_blocks.at(block) == data[block]) {
        continue;
      }
      m_blocks.at(block) = data[block];
      Report(BlockText(block, data[block]));
    }
    return true;
  }
  void OnReboot() override {
    constexpr std::uint8_t kAllOff[] = {0xFF, 0xFF};
    Output(kAllOff);
  }
  void ShowState(std::vector<FIELD>& fields) const override {
    fields.push_back({"blocks", Bytes(m_blocks.begin(), m_blocks.end())});
    fields.push_back(
        Lamps("lit", "lamps",
              {static_cast<std::uint8_t>(~m_blocks[0]), static_cast<std::uint8_t>(~m_blocks[1])}));
  }

 private:
  BLOCKS m_blocks{0xFF, 0xFF};
};

/// 16 keys in two blocks; a pressed key is a 1 bit.
class DIGITAL_INPUT_CARD : public CARD {
 public:
  DIGITAL_INPUT_CARD(int address, REPORT report)
      : CARD(type::kDigitalInput, address, std::move(report)) {}

  RESULT Press(int key) override { return Move(key, true); }
  RESULT Release(int key) override { return Move(key, false); }

  /// A whole block (0 or 1) at once.
  RESULT Set(int block, int value) override {
    if (block < 0 || block > 1) {
      return BadNumber("block", block, 1);
    }
    if (value < 0 || value > 0xFF) {
      return RESULT::Error("a block's value is 00 to FF");
    }
    Change(static_cast<std::size_t>(block), static_cast<std::uint8_t>(value));
    return RESULT::Good();
  }

 protected:
  Bytes Input() override { return {m_blocks[0], m_blocks[1]}; }
  void ShowState(std::vector<FIELD>& fields) const override {
    fields.push_back({"blocks", Bytes(m_blocks.begin(), m_blocks.end())});
    fields.push_back(Lamps("pressed", "keys", m_blocks));
  }

 private:
  RESULT Move(int key, bool down) {
    if (key < 0 || key >= kLamps) {
      return BadNumber("key", key, kLamps - 1);
    }
    const auto block = static_cast<std::size_t>(key / 8);
    const int bit = 1 << key % 8;
    const int value = m_blocks.at(block);
    Change(block, static_cast<std::uint8_t>(down ? value | bit : value & ~bit));
    return RESULT::Good();
  }
  void Change(std::size_t block, std::uint8_t value) {
    if (m_blocks.at(block) == value) {
      return;
    }
    m_blocks.at(block) = value;
    Report("input " + BlockText(block, value));
  }

  BLOCKS m_blocks{0, 0};
};

}  // namespace

std::unique_ptr<CARD> MakeDigitalOutput(int address, REPORT report) {
  return std::make_unique<DIGITAL_OUTPUT_CARD>(address, std::move(report));
}

std::unique_ptr<CARD> MakeDigitalInput(int address, REPORT report) {
  return std::make_unique<DIGITAL_INPUT_CARD>(address, std::move(report));
}

}  // namespace sim
