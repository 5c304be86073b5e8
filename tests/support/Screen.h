#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// What a person sees of what a program writes to an xterm: as far as a line editor goes. What
/// scrolls out at the top stays in Rows.
class SCREEN {
 public:
  SCREEN(std::size_t columns, std::size_t lines) : m_columns(columns), m_lines(lines) {}

  void Write(std::string_view bytes);

  /// Without blanks at the ends and empty rows behind the last.
  std::vector<std::string> Rows() const;
  std::size_t CursorRow() const { return m_row; }
  std::size_t CursorColumn() const { return m_column; }
  std::size_t Bells() const { return m_bells; }
  /// Everything that was not understood: a test's screen is right only where this is empty.
  const std::string& Unknown() const { return m_unknown; }

 private:
  using ROW = std::vector<std::string>;  ///< a sign each; the right half of a wide one is empty

  void Take(char byte);
  void Put(const std::string& sign);
  void Control(char byte);
  void Sequence();
  void NextRow();
  std::size_t Top() const;
  ROW& Row();

  const std::size_t m_columns;
  const std::size_t m_lines;
  std::vector<ROW> m_rows;
  std::size_t m_row = 0;
  std::size_t m_column = 0;
  bool m_isFull = false;  ///< a sign stands in the last column: the next goes to the next row
  bool m_inserts = false;
  std::string m_sequence;  ///< begun with ESC
  std::string m_sign;      ///< begun
  std::size_t m_bells = 0;
  std::string m_unknown;
};

}  // namespace support
