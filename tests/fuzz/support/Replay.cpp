// Stands in for libFuzzer where the compiler has none: runs a fuzz target on files, once each.

#include "tests/fuzz/support/Input.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      files.emplace_back(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      files.push_back(entry.path().string());
    }
  }
  std::sort(files.begin(), files.end());
  for (const std::string& file : files) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) {
      std::fprintf(stderr, "cannot read %s\n", file.c_str());
      return 1;
    }
    // Before the run: where it crashes, the last line names the file.
    std::printf("%s, %zu bytes\n", file.c_str(), bytes.size());
    std::fflush(stdout);
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    vorn::LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%zu inputs held\n", files.size());
  return files.empty() ? 1 : 0;
}
