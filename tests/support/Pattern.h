#pragma once

#include <regex.h>

#include <cstddef>
#include <string>
#include <vector>

namespace support {

/// What a pattern has found.
struct MATCH {
  std::size_t end;                 // its place in the text: behind what was found
  std::vector<std::string> parts;  // all of it, then what each parenthesis holds
};

/// A POSIX extended regular expression, with what GNU adds to it, such as \S and \b. The standard
/// library's would do the same, but is all templates: each source that uses it takes some five
/// seconds longer to compile.
class PATTERN {
 public:
  /// Throws std::invalid_argument where it is none.
  explicit PATTERN(const std::string& expression);
  ~PATTERN();
  PATTERN(const PATTERN&) = delete;
  PATTERN& operator=(const PATTERN&) = delete;

  /// An expression that matches just this text.
  static std::string Quoted(const std::string& text);

  /// The parts where it matches the text from its beginning to its end, else nothing.
  std::vector<std::string> Match(const std::string& text) const;

  /// All that is found in the text, from its beginning, each behind the one before.
  std::vector<MATCH> FindAll(const std::string& text) const;

 private:
  regex_t m_compiled{};
};

}  // namespace support
