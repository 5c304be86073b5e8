#include "sim/rack/Card.h"

#include <algorithm>

namespace sim {

namespace {

constexpr int kDefaultColumns = 20;
constexpr int kDefaultRows = 4;
constexpr int kMaximumColumns = 40;
constexpr int kMaximumRows = 4;

std::string Printable(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (std::uint8_t byte : bytes) {
    text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
  }
  return text;
}

/// A character display.
class LCD_CARD : public CARD {
 public:
  LCD_CARD(int address, REPORT report) : CARD(type::kLcd, address, std::move(report)) { Boot(); }

  RESULT Resize(int columns, int rows) override;

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void OnReboot() override { Boot(); }
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  bool Text(std::span<const std::uint8_t> data);
  void Perform(LCD_EFFECT effect);
  void Clear();
  void Boot();

  int m_columns = kDefaultColumns;
  int m_rows = kDefaultRows;
  std::vector<Bytes> m_cells;
  bool m_selfTestShown = false;
  bool m_light = false;
  bool m_cursor = false;
  bool m_blink = false;
  int m_column = 0;  // of the cursor
  int m_row = 0;
};

RESULT LCD_CARD::Resize(int columns, int rows) {
  if (columns < 1 || columns > kMaximumColumns || rows < 1 || rows > kMaximumRows) {
    return RESULT::Error("a display has 1 to 40 columns and 1 to 4 rows");
  }
  m_columns = columns;
  m_rows = rows;
  Boot();
  return RESULT::Good();
}

void LCD_CARD::Clear() {
  m_cells.assign(static_cast<std::size_t>(m_rows),
                 Bytes(static_cast<std::size_t>(m_columns), static_cast<std::uint8_t>(' ')));
  m_column = m_row = 0;
  m_selfTestShown = false;
}

void LCD_CARD::Boot() {
  Clear();
  m_light = Parameter("initlight") != 0;
  m_cursor = m_blink = false;
  if (Parameter("selftest") == 0) {
    return;
  }
  const std::string lines[] = {"SELF TEST OK", "CARD " + AddressText(Address())};
  for (std::size_t row = 0; row < std::min(m_cells.size(), std::size(lines)); ++row) {
    const std::size_t count = std::min(lines[row].size(), m_cells[row].size());
    std::copy_n(lines[row].begin(), count, m_cells[row].begin());
  }
  m_selfTestShown = true;
}

bool LCD_CARD::Output(std::span<const std::uint8_t> data) {
  if (data.empty()) {
    return false;
  }
  if (data[0] == lcd::kText) {
    return Text(data.subspan(1));
  }
  for (const LCD_COMMAND& command : kLcdCommands) {
    if (command.code != data[0]) {
      continue;
    }
    Perform(command.effect);
    Report(command.event);
    return true;
  }
  return false;
}

void LCD_CARD::Perform(LCD_EFFECT effect) {
  switch (effect) {
    case LCD_EFFECT::kClear:
      Clear();
      break;
    case LCD_EFFECT::kLightOn:
    case LCD_EFFECT::kLightOff:
      m_light = effect == LCD_EFFECT::kLightOn;
      break;
    case LCD_EFFECT::kCursorOn:
    case LCD_EFFECT::kCursorOff:
      m_cursor = effect == LCD_EFFECT::kCursorOn;
      break;
    case LCD_EFFECT::kBlinkOn:
    case LCD_EFFECT::kBlinkOff:
      m_blink = effect == LCD_EFFECT::kBlinkOn;
      break;
  }
}

/// Column, row, characters up to the first zero. What does not fit in the row is cut; the cursor
/// stands behind the last character.
bool LCD_CARD::Text(std::span<const std::uint8_t> data) {
  if (data.size() < 2 || data[0] >= m_columns || data[1] >= m_rows) {
    return false;
  }
  if (m_selfTestShown) {
    Clear();
  }
  const std::span characters = data.subspan(2);
  const auto end = std::find(characters.begin(), characters.end(), 0);
  const std::span text = characters.first(static_cast<std::size_t>(end - characters.begin()));
  const std::size_t room = static_cast<std::size_t>(m_columns) - data[0];
  const std::size_t count = std::min(room, text.size());
  Bytes& row = m_cells.at(data[1]);
  std::copy_n(text.begin(), count, row.begin() + data[0]);
  m_row = data[1];
  m_column = std::min(m_columns - 1, data[0] + static_cast<int>(count));
  Report("text " + std::to_string(data[0]) + "," + std::to_string(data[1]) + " '" +
         Printable(text) + "'");
  return true;
}

/// The rows are of the full width; a byte that is no printable ASCII shows as '?'.
void LCD_CARD::ShowState(std::vector<FIELD>& fields) const {
  std::vector<std::string> rows;
  rows.reserve(m_cells.size());
  for (const Bytes& cells : m_cells) {
    rows.push_back(Printable(cells));
  }
  fields.push_back({"columns", m_columns});
  fields.push_back({"rows", m_rows});
  fields.push_back({"text", rows, FIELD_KIND::kScreen});
  fields.push_back({"light", m_light, FIELD_KIND::kLamp});
  fields.push_back({"cursor", m_cursor});
  fields.push_back({"blink", m_blink});
  fields.push_back({"cursor at", std::vector<int>{m_column, m_row}});
}

}  // namespace

std::unique_ptr<CARD> MakeLcd(int address, REPORT report) {
  return std::make_unique<LCD_CARD>(address, std::move(report));
}

}  // namespace sim
