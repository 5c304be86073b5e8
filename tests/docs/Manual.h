#pragma once

#include <string>
#include <vector>

namespace vorn {

namespace docs {

/// An entry of a list in a manual page.
struct MANUAL_ITEM {
  std::string section;
  std::string subsection;  ///< empty: none
  std::string macro;       ///< of the head, such as "Cm"
  std::string head;        ///< "Name" of ".It Cm Name"
  std::string body;        ///< the lines below, macros included
};

/// The entries of the page `file`, such as "vorn.8", with the escapes of its source replaced.
std::vector<MANUAL_ITEM> ManualItems(const std::string& file);

/// The whole page, with the escapes replaced.
std::string ManualText(const std::string& file);

}  // namespace docs

}  // namespace vorn
