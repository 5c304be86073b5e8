#include "tests/support/LogFile.h"

#include "tests/support/Text.h"

#include <algorithm>
#include <cctype>

namespace support {

std::string WithoutTimeStamp(const std::string& line) {
  static constexpr std::string_view kPattern = "dddd-dd-dd dd:dd:dd [";
  bool matches = line.size() >= kPattern.size();
  for (std::size_t i = 0; matches && i < kPattern.size(); ++i) {
    matches = kPattern[i] == 'd' ? std::isdigit(static_cast<unsigned char>(line[i])) != 0
                                 : line[i] == kPattern[i];
  }
  return matches ? line.substr(kPattern.size() - 1) : "BAD LINE: " + line;
}

std::string LOG_FILE::Text() const {
  return ReadFile(m_path);
}

std::vector<std::string> LOG_FILE::AllLines() const {
  std::string text = Text();
  // A line that is being written does not count yet.
  text.resize(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
  std::vector<std::string> lines = Lines(text);
  std::transform(lines.begin(), lines.end(), lines.begin(), WithoutTimeStamp);
  return lines;
}

std::vector<std::string> LOG_FILE::LinesWith(std::string_view text) const {
  std::vector<std::string> lines = AllLines();
  lines.erase(
      std::remove_if(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.find(text) == std::string::npos; }),
      lines.end());
  return lines;
}

int LOG_FILE::Count(std::string_view line) const {
  const std::vector<std::string> lines = AllLines();
  return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

bool LOG_FILE::WaitForLine(std::string_view line, int count, milliseconds limit) const {
  return WaitUntil([&] { return Count(line) >= count; }, limit);
}

}  // namespace support
