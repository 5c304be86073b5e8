#include "tests/support/Text.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace support {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string content;
  // A file of /proc may end in an error: the process is gone. What was read counts.
  for (char block[4096]; file.read(block, sizeof block), file.gcount() > 0;) {
    content.append(block, static_cast<std::size_t>(file.gcount()));
  }
  return content;
}

void WriteFile(const std::string& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content << std::flush;
  if (!file) {
    throw std::runtime_error("cannot write " + path);
  }
}

std::string Visible(std::string_view text) {
  std::string visible;
  for (const char byte : text) {
    const auto code = static_cast<unsigned char>(byte);
    if (byte == '\r') {
      visible += "\\r";
    } else if (byte == '\n') {
      visible += "\\n\n  ";
    } else if (code < 32 || code > 126) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", code);
      visible += hex;
    } else {
      visible += byte;
    }
  }
  return visible;
}

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const auto end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

}  // namespace support
