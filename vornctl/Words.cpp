#include "vornctl/Words.h"

#include "vornctl/ExitStatus.h"

namespace ctl {

std::vector<std::string> SplitWords(std::string_view line) {
  std::vector<std::string> words;
  std::string word;
  bool isInWord = false;
  char quote = '\0';
  for (std::size_t at = 0; at < line.size(); ++at) {
    const char sign = line[at];
    const bool isBlank = sign == ' ' || sign == '\t' || sign == '\r';
    if (sign == '\\' && quote != '\'' && at + 1 < line.size()) {
      word += line[++at];
      isInWord = true;
    } else if (quote != '\0') {
      sign == quote ? static_cast<void>(quote = '\0') : word.push_back(sign);
    } else if (sign == '\'' || sign == '"') {
      quote = sign;
      isInWord = true;
    } else if (isBlank) {
      if (isInWord) {
        words.push_back(std::move(word));
        word.clear();
      }
      isInWord = false;
    } else if (sign == '#' && !isInWord) {
      return words;
    } else {
      word += sign;
      isInWord = true;
    }
  }
  if (quote != '\0') {
    throw FAILURE(EXIT_STATUS::kUsage, std::string("a quote is not closed: ") + quote);
  }
  if (isInWord) {
    words.push_back(std::move(word));
  }
  return words;
}

}  // namespace ctl
