#include "tests/support/Pauses.h"

#include "tests/support/Text.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace support {

PAUSES::PAUSES(std::string folder) : m_folder(std::move(folder)) {
  SetLength(1, milliseconds(1500));  // a card must have answered in it, however busy the machine
  SetLength(2, milliseconds(60));
  SetLength(3, milliseconds(60));
}

std::string PAUSES::Path() {
  return VORN_STUB_FOLDER "/sleep:" + PathWithRealSleep();
}

std::string PAUSES::PathWithRealSleep() {
  const char* const path = std::getenv("PATH");
  return std::string(VORN_STUB_FOLDER "/ls:") + (path != nullptr ? path : "/usr/bin:/bin");
}

void PAUSES::AllowSearch() const {
  WriteFile(m_folder + "/ready", "");
}

void PAUSES::SetLength(int seconds, milliseconds length) const {
  WriteFile(m_folder + "/pause-" + std::to_string(seconds), std::to_string(length.count()));
}

void PAUSES::Hold(int seconds) const {
  WriteFile(m_folder + "/hold-" + std::to_string(seconds), "");
}

void PAUSES::Release(int seconds) const {
  unlink((m_folder + "/hold-" + std::to_string(seconds)).c_str());
}

std::vector<int> PAUSES::Noted(const std::string& word) const {
  std::vector<int> all;
  for (const std::string& line : Lines(ReadFile(m_folder + "/record"))) {
    std::istringstream fields(line);
    std::string what;
    int seconds = 0;
    if (fields >> what >> seconds && what == word) {
      all.push_back(seconds);
    }
  }
  return all;
}

std::vector<int> PAUSES::Begun() const {
  return Noted("begin");
}

std::vector<int> PAUSES::Ended() const {
  return Noted("end");
}

int PAUSES::CountBegun(int seconds) const {
  const std::vector<int> begun = Begun();
  return static_cast<int>(std::count(begun.begin(), begun.end(), seconds));
}

bool PAUSES::WaitUntilBegun(int seconds, int count, milliseconds limit) const {
  return WaitUntil([&] { return CountBegun(seconds) >= count; }, limit);
}

std::vector<std::string> PAUSES::ChildDescriptors() const {
  std::vector<std::string> all;
  for (const std::string& line : Lines(ReadFile(m_folder + "/record"))) {
    std::istringstream fields(line);
    std::string what;
    std::string seconds;
    fields >> what >> seconds;
    for (std::string descriptor; fields >> descriptor;) {
      all.push_back(descriptor);
    }
  }
  return all;
}

}  // namespace support
