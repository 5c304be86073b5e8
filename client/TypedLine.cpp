#include "client/TypedLine.h"

#include "client/BadValue.h"

#include <string>

namespace client {

void CheckOneLine(std::string_view line, std::size_t longest) {
  if (line.size() > longest) {
    throw BAD_VALUE("line of " + std::to_string(line.size()) + " characters: at most " +
                    std::to_string(longest));
  }
  if (line.find('\0') != std::string_view::npos) {
    throw BAD_VALUE("a zero byte: vorn cuts the line there");
  }
  if (line.find_first_of("\r\n") != std::string_view::npos) {
    throw BAD_VALUE("a line end within the line: one line at a time");
  }
}

}  // namespace client
