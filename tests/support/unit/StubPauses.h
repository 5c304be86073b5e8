#pragma once

#include "tests/support/Pauses.h"
#include "tests/support/unit/Folder.h"

#include <cstdlib>
#include <string>

namespace vorn {

namespace unit {

/// Sets a variable of this process's environment, and puts it back at the end of the scope. To be
/// used while no other thread runs.
class VARIABLE {
 public:
  VARIABLE(std::string name, const std::string& value) : m_name(std::move(name)) {
    const char* const before = std::getenv(m_name.c_str());
    m_wasSet = before != nullptr;
    m_before = m_wasSet ? before : "";
    setenv(m_name.c_str(), value.c_str(), 1);
  }
  ~VARIABLE() {
    if (m_wasSet) {
      setenv(m_name.c_str(), m_before.c_str(), 1);
    } else {
      unsetenv(m_name.c_str());
    }
  }
  VARIABLE(const VARIABLE&) = delete;
  VARIABLE& operator=(const VARIABLE&) = delete;

 private:
  const std::string m_name;
  bool m_wasSet = false;
  std::string m_before;
};

/// The pauses of this process under the test's control while it lives: short, counted, and held
/// where the test says so. To be made while no other thread runs.
class STUB_PAUSES {
 public:
  support::PAUSES* operator->() { return &m_pauses; }

 private:
  FOLDER m_folder;
  support::PAUSES m_pauses{m_folder.Path()};
  VARIABLE m_path{"PATH", support::PAUSES::Path()};
  VARIABLE m_control{"VORN_TEST_PAUSES", m_folder.Path()};
};

}  // namespace unit

}  // namespace vorn
