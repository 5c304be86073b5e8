#pragma once

#include "tests/support/unit/Folder.h"

#include <string>
#include <vector>

namespace unit {

/// Stands in for the shell commands that the daemon runs, by coming first in PATH: `sleep` writes
/// its argument down and hardly sleeps, `ls` lists what the test says. Lives on the test's main
/// thread, from before other threads run until after.
class STUB_COMMANDS {
 public:
  STUB_COMMANDS();
  ~STUB_COMMANDS();
  STUB_COMMANDS(const STUB_COMMANDS&) = delete;
  STUB_COMMANDS& operator=(const STUB_COMMANDS&) = delete;

  /// What `ls` prints from now on.
  void ListDevices(const std::vector<std::string>& entries) const;
  /// Replaces `grep` by one that lets everything pass, so that a listing may name any device.
  void LetAllDevicesPass() const;
  /// Puts a script of its own into PATH.
  void Add(const std::string& name, const std::string& script) const;

  /// Pauses of so many seconds do not end, until they are released.
  void HoldPauses(int seconds) const;
  void ReleasePauses(int seconds) const;

  /// The arguments of the pauses so far: "2" for two seconds.
  std::vector<std::string> Pauses() const { return ReadLines(m_folder.File("pauses")); }
  /// The arguments of the listings so far.
  std::vector<std::string> Listings() const { return ReadLines(m_folder.File("listings")); }

 private:
  FOLDER m_folder;
  std::string m_pathBefore;
};

}  // namespace unit
