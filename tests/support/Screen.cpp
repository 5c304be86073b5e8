#include "tests/support/Screen.h"

#include <algorithm>
#include <cstdlib>

namespace support {

namespace {

constexpr char kEscape = '\033';

/// Of UTF-8, by its first byte.
std::size_t SizeOf(char first) {
  const unsigned value = static_cast<unsigned char>(first);
  if (value < 0xC0) {
    return 1;
  }
  if (value < 0xE0) {
    return 2;
  }
  return value < 0xF0 ? 3 : 4;
}

/// Hangul, kana and ideographs: those of three bytes from U+1100 on that are used here.
bool IsWide(const std::string& sign) {
  return sign.size() == 3 && sign >= "\u2E80" && sign <= "\uD7A3";
}

}  // namespace

void SCREEN::Write(std::string_view bytes) {
  for (const char byte : bytes) {
    Take(byte);
  }
}

void SCREEN::Take(char byte) {
  if (!m_sequence.empty() || byte == kEscape) {
    m_sequence += byte;
    const bool isBegun = m_sequence == "\033" || m_sequence == "\033[";
    if (!isBegun && byte >= '@' && byte <= '~') {
      Sequence();
      m_sequence.clear();
    }
    return;
  }
  if (byte < ' ') {
    Control(byte);
    return;
  }
  m_sign += byte;
  if (m_sign.size() == SizeOf(m_sign.front())) {
    Put(m_sign);
    m_sign.clear();
  }
}

void SCREEN::Put(const std::string& sign) {
  const std::size_t width = IsWide(sign) ? 2 : 1;
  if (m_isFull || m_column + width > m_columns) {
    NextRow();
    m_column = 0;
  }
  m_isFull = false;
  ROW& row = Row();
  row.resize(m_columns, " ");
  const auto here = row.begin() + static_cast<std::ptrdiff_t>(m_column);
  if (m_inserts) {
    row.insert(here, width, "");
    row.resize(m_columns);
  }
  row[m_column] = sign;
  if (width == 2) {
    row[m_column + 1].clear();
  }
  m_column += width;
  if (m_column >= m_columns) {
    m_column = m_columns - 1;
    m_isFull = true;
  }
}

void SCREEN::Control(char byte) {
  m_isFull = false;
  switch (byte) {
    case '\r':
      m_column = 0;
      break;
    case '\n':
      NextRow();
      break;
    case '\b':
      m_column -= m_column > 0 ? 1 : 0;
      break;
    case '\a':
      ++m_bells;
      break;
    default:
      m_unknown += "control " + std::to_string(byte) + "; ";
  }
}

void SCREEN::Sequence() {
  m_isFull = false;
  const std::string parameter =
      m_sequence.size() > 3 ? m_sequence.substr(2, m_sequence.size() - 3) : "";
  const std::size_t number = parameter.empty() ? 1 : std::strtoul(parameter.c_str(), nullptr, 10);
  const bool isWhole = m_sequence[1] == '[';
  ROW& row = Row();
  row.resize(m_columns, " ");
  const auto here = row.begin() + static_cast<std::ptrdiff_t>(m_column);
  const std::size_t fits = std::min(number, m_columns - m_column);
  switch (isWhole ? m_sequence.back() : '\0') {
    case 'A':
      m_row = std::max(Top(), m_row - std::min(m_row, number));
      break;
    case 'B':
      m_row = std::min(Top() + m_lines - 1, m_row + number);
      break;
    case 'C':
      m_column = std::min(m_columns - 1, m_column + number);
      break;
    case 'D':
      m_column -= std::min(m_column, number);
      break;
    case 'G':
      m_column = std::min(m_columns, number) - 1;
      break;
    case 'H':
      m_row = Top();
      m_column = 0;
      break;
    case 'J':
      std::fill(here, row.end(), " ");
      m_rows.resize(m_row + 1);
      break;
    case 'K':
      std::fill(here, row.end(), " ");
      break;
    case 'P':
      row.erase(here, here + static_cast<std::ptrdiff_t>(fits));
      row.resize(m_columns, " ");
      break;
    case '@':
      row.insert(here, fits, " ");
      row.resize(m_columns);
      break;
    case 'h':
      m_inserts = true;
      break;
    case 'l':
      m_inserts = false;
      break;
    case 'm':
      break;
    default:
      m_unknown += "sequence " + m_sequence.substr(1) + "; ";
  }
}

void SCREEN::NextRow() {
  ++m_row;
}

/// The first row on the screen: the last one written is on it.
std::size_t SCREEN::Top() const {
  const std::size_t rows = std::max(m_rows.size(), m_row + 1);
  return rows > m_lines ? rows - m_lines : 0;
}

SCREEN::ROW& SCREEN::Row() {
  if (m_rows.size() <= m_row) {
    m_rows.resize(m_row + 1);
  }
  return m_rows[m_row];
}

std::vector<std::string> SCREEN::Rows() const {
  std::vector<std::string> rows;
  for (const ROW& each : m_rows) {
    std::string text;
    for (const std::string& sign : each) {
      text += sign;
    }
    rows.push_back(text.substr(0, text.find_last_not_of(' ') + 1));
  }
  while (!rows.empty() && rows.back().empty()) {
    rows.pop_back();
  }
  return rows;
}

}  // namespace support
