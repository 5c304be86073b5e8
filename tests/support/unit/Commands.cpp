#include "tests/support/unit/Commands.h"

#include <cstdlib>
#include <filesystem>

namespace unit {

STUB_COMMANDS::STUB_COMMANDS() {
  const char* const path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
  m_pathBefore = path == nullptr ? "/usr/bin:/bin" : path;
  ListDevices({});
  Add("sleep", "echo \"$*\" >>" + m_folder.File("pauses") + "\nwhile [ -e " +
                   m_folder.File("hold") + "-$1 ]; do /bin/sleep 0.005; done" +
                   "\nexec /bin/sleep 0.01");
  Add("ls",
      "echo \"$*\" >>" + m_folder.File("listings") + "\nexec cat " + m_folder.File("devices"));
  setenv("PATH", (m_folder.Path() + ":" + m_pathBefore).c_str(),
         1);  // NOLINT(concurrency-mt-unsafe)
}

STUB_COMMANDS::~STUB_COMMANDS() {
  setenv("PATH", m_pathBefore.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
}

void STUB_COMMANDS::ListDevices(const std::vector<std::string>& entries) const {
  std::string text;
  for (const std::string& entry : entries) {
    text += entry + "\n";
  }
  // Replaced in one step: a listing may run meanwhile.
  WriteFile(m_folder.File("devices.new"), text);
  std::filesystem::rename(m_folder.File("devices.new"), m_folder.File("devices"));
}

void STUB_COMMANDS::LetAllDevicesPass() const {
  Add("grep", "exec cat");
}

void STUB_COMMANDS::HoldPauses(int seconds) const {
  WriteFile(m_folder.File("hold-" + std::to_string(seconds)), "");
}

void STUB_COMMANDS::ReleasePauses(int seconds) const {
  std::filesystem::remove(m_folder.File("hold-" + std::to_string(seconds)));
}

void STUB_COMMANDS::Add(const std::string& name, const std::string& script) const {
  const std::string path = m_folder.File(name);
  WriteFile(path, "#!/bin/sh\n" + script + "\n");
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

}  // namespace unit
