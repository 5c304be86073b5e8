#include "tests/support/Pattern.h"

#include <stdexcept>
#include <utility>

namespace support {

PATTERN::PATTERN(const std::string& expression) {
  if (regcomp(&m_compiled, expression.c_str(), REG_EXTENDED) != 0) {
    throw std::invalid_argument("no regular expression: " + expression);
  }
}

PATTERN::~PATTERN() {
  regfree(&m_compiled);
}

std::string PATTERN::Quoted(const std::string& text) {
  static const std::string kSpecial = R"(.^$|()[]{}*+?\)";
  std::string quoted;
  for (const char c : text) {
    if (kSpecial.find(c) != std::string::npos) {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted;
}

std::vector<std::string> PATTERN::Match(const std::string& text) const {
  for (MATCH& match : FindAll(text)) {
    if (match.parts[0] == text) {
      return std::move(match.parts);
    }
  }
  return {};
}

std::vector<MATCH> PATTERN::FindAll(const std::string& text) const {
  std::vector<MATCH> matches;
  std::vector<regmatch_t> found(m_compiled.re_nsub + 1);
  std::size_t from = 0;
  while (from < text.size() && regexec(&m_compiled, text.c_str() + from, found.size(), found.data(),
                                       from == 0 ? 0 : REG_NOTBOL) == 0) {
    MATCH match;
    for (const regmatch_t& part : found) {
      match.parts.push_back(part.rm_so < 0
                                ? ""
                                : text.substr(from + static_cast<std::size_t>(part.rm_so),
                                              static_cast<std::size_t>(part.rm_eo - part.rm_so)));
    }
    // Also where nothing was enough for a match, the next is looked for further on.
    const std::size_t end = from + static_cast<std::size_t>(found[0].rm_eo);
    from = end > from ? end : from + 1;
    match.end = end;
    matches.push_back(std::move(match));
  }
  return matches;
}

}  // namespace support
