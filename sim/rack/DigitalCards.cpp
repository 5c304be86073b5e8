#include "sim/rack/Cards.h"

#include <algorithm>

namespace sim {

namespace {

std::string BlockText(int block, std::uint8_t value) {
  return "block " + std::to_string(block) + " = " + ToHex(value);
}

}  // namespace

DIGITAL_OUTPUT_CARD::DIGITAL_OUTPUT_CARD(int address, REPORT report)
    : CARD(type::kDigitalOutput, address, std::move(report)) {
}

int DIGITAL_OUTPUT_CARD::Value(int block) const {
  return block == 0 || block == 1 ? m_blocks[static_cast<std::size_t>(block)] : -1;
}

bool DIGITAL_OUTPUT_CARD::Lit(int lamp) const {
  const int block = Value(lamp / 8);
  return block >= 0 && (block >> (lamp % 8) & 1) == 0;
}

bool DIGITAL_OUTPUT_CARD::Output(std::span<const std::uint8_t> data) {
  if (data.size() != m_blocks.size())
    return false;
  for (std::size_t block = 0; block < m_blocks.size(); ++block) {
    if (m_blocks[block] == data[block])
      continue;
    m_blocks[block] = data[block];
    Report(BlockText(static_cast<int>(block), data[block]));
  }
  return true;
}

void DIGITAL_OUTPUT_CARD::OnReboot() {
  constexpr std::uint8_t kAllOff[] = {0xFF, 0xFF};
  Output(kAllOff);
}

void DIGITAL_OUTPUT_CARD::ShowState(std::vector<FIELD>& fields) const {
  fields.push_back({"blocks", Bytes(m_blocks.begin(), m_blocks.end())});
  std::vector<int> lit;
  for (int lamp = 0; lamp < Type()->channels; ++lamp) {
    if (Lit(lamp))
      lit.push_back(lamp);
  }
  fields.push_back({"lit", lit});
}

DIGITAL_INPUT_CARD::DIGITAL_INPUT_CARD(int address, REPORT report)
    : CARD(type::kDigitalInput, address, std::move(report)) {
}

int DIGITAL_INPUT_CARD::Value(int block) const {
  return block == 0 || block == 1 ? m_blocks[static_cast<std::size_t>(block)] : -1;
}

void DIGITAL_INPUT_CARD::Change(int block, std::uint8_t value) {
  std::uint8_t& held = m_blocks.at(static_cast<std::size_t>(block));
  if (held == value)
    return;
  held = value;
  Report("input " + BlockText(block, value));
}

RESULT DIGITAL_INPUT_CARD::Press(int key) {
  if (key < 0 || key >= Type()->channels)
    return BadNumber("key", key, Type()->channels - 1);
  Change(key / 8, static_cast<std::uint8_t>(Value(key / 8) | 1 << key % 8));
  return RESULT::Good();
}

RESULT DIGITAL_INPUT_CARD::Release(int key) {
  if (key < 0 || key >= Type()->channels)
    return BadNumber("key", key, Type()->channels - 1);
  Change(key / 8, static_cast<std::uint8_t>(Value(key / 8) & ~(1 << key % 8)));
  return RESULT::Good();
}

RESULT DIGITAL_INPUT_CARD::Set(int block, int value) {
  if (block < 0 || block > 1)
    return BadNumber("block", block, 1);
  if (value < 0 || value > 0xFF)
    return RESULT::Error("a block's value is 00 to FF");
  Change(block, static_cast<std::uint8_t>(value));
  return RESULT::Good();
}

Bytes DIGITAL_INPUT_CARD::Input() {
  return {m_blocks[0], m_blocks[1]};
}

void DIGITAL_INPUT_CARD::ShowState(std::vector<FIELD>& fields) const {
  fields.push_back({"blocks", Bytes(m_blocks.begin(), m_blocks.end())});
  std::vector<int> pressed;
  for (int key = 0; key < Type()->channels; ++key) {
    if ((Value(key / 8) >> (key % 8) & 1) != 0)
      pressed.push_back(key);
  }
  fields.push_back({"pressed", pressed});
}

}  // namespace sim
