#pragma once

#include "checkconf/Findings.h"
#include "checkconf/SourceText.h"

#include <cstddef>
#include <initializer_list>
#include <pugixml.hpp>
#include <string>
#include <vector>

namespace vorn::checkconf {

/// What all checks of the document work on. Lent by Check for the time of one check.
class CHECKING {
 public:
  CHECKING(const SOURCE_TEXT& source, FINDINGS& findings)
      : m_source(source), m_findings(findings) {}

  /// `offset`: where in the text. The position is worked out only if the finding is kept.
  void Add(KIND kind, std::size_t offset, std::initializer_list<std::string> details = {}) {
    m_findings.Add(kind, m_findings.IsFull() ? POSITION{} : m_source.At(offset), details);
  }
  /// A finding about the file as a whole.
  void AddForFile(KIND kind, std::initializer_list<std::string> details = {}) {
    m_findings.Add(kind, {}, details);
  }

  /// What is added now is only counted.
  bool IsFull() const { return m_findings.IsFull(); }

  const SOURCE_TEXT& Source() const { return m_source; }

 private:
  const SOURCE_TEXT& m_source;
  FINDINGS& m_findings;
};

struct ATTRIBUTE {
  std::string name;
  std::string value;
  std::size_t offset;  ///< of its name in the text
};

/// An element with the places of its attributes, which the parser does not tell.
struct ELEMENT {
  ELEMENT(const pugi::xml_node& from, const SOURCE_TEXT& source);

  /// The attribute of this name that counts, the last; null when there is none.
  const ATTRIBUTE* Find(const std::string& attribute) const;

  pugi::xml_node node;
  std::string name;
  std::size_t offset;  ///< of its name in the text
  std::vector<ATTRIBUTE> attributes;
};

/// Where a node of the document stands.
inline std::size_t OffsetOf(const pugi::xml_node& node) {
  const std::ptrdiff_t offset = node.offset_debug();
  return offset < 0 ? 0 : static_cast<std::size_t>(offset);
}

}  // namespace vorn::checkconf
