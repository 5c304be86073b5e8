#include "tests/support/unit/Folder.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace vorn {

namespace unit {

FOLDER::FOLDER() : m_path((std::filesystem::temp_directory_path() / "vorn-unit-XXXXXX").string()) {
  if (mkdtemp(m_path.data()) == nullptr) {
    throw std::runtime_error("no folder for the test: " + m_path);
  }
}

FOLDER::~FOLDER() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> ReadLog(const std::string& path) {
  constexpr std::size_t kTimeStamp = sizeof "2026-01-01 12:00:00 " - 1;
  std::vector<std::string> lines = ReadLines(path);
  for (std::string& line : lines) {
    if (line.size() >= kTimeStamp) {
      line.erase(0, kTimeStamp);
    } else {
      line.insert(0, "no time stamp: ");
    }
  }
  return lines;
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

}  // namespace unit

}  // namespace vorn
