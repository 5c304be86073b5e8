#include "tests/soak/IoLines.h"

#include <string_view>

namespace soak {

namespace {

bool IsOneOf(std::string_view characters, char character) {
  return characters.find(character) != std::string_view::npos;
}

/// Of the same length as the form, in which a '#' stands for any hex digit.
bool HasForm(std::string_view line, std::string_view form) {
  if (line.size() != form.size()) {
    return false;
  }
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (form[i] == '#' ? !IsOneOf("0123456789ABCDEF", line[i]) : form[i] != line[i]) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool IsIoLine(const std::string& line) {
  return line == kNonsense || HasForm(line, "a#b#d##") || HasForm(line, "aElPAp0002tTurn ##") ||
         HasForm(line, "a9sHS43##");
}

}  // namespace soak
