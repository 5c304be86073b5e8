#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::checkconf {

/// What separates words and attributes in XML.
constexpr std::string_view kBlanks = " \t\r\n";

/// Where something stands, both counted from 1; line 0: the file as a whole.
struct POSITION {
  std::size_t line = 0;
  std::size_t column = 0;  ///< in characters, not bytes
};

/// The text of the file as written, to find the positions in it of what the XML parser has seen.
class SOURCE_TEXT {
 public:
  explicit SOURCE_TEXT(std::string text);

  const std::string& Text() const { return m_text; }

  /// The parser has worked on a converted copy, whose offsets are of no use here: from now on every
  /// position is that of the file as a whole.
  void ForgetPositions() { m_positionsKnown = false; }

  POSITION At(std::size_t offset) const;

  /// The offsets of the attributes' names in the start tag of the element whose name stands at
  /// `nameOffset`, in order. For a tag that the parser has accepted; else what can be made out.
  std::vector<std::size_t> AttributeOffsets(std::size_t nameOffset) const;

 private:
  std::string m_text;
  std::vector<std::size_t> m_lineStarts;
  bool m_positionsKnown = true;
};

}  // namespace vorn::checkconf
