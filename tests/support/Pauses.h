#pragma once

#include "tests/support/Wait.h"

#include <string>
#include <vector>

namespace support {

/// The daemon's whole-second pauses under the test's control, by way of a stand-in for the `sleep`
/// command. Pauses of one second, in which the master loop waits for a card, get time enough for an
/// answer; those of two and three seconds are short.
class PAUSES {
 public:
  /// The files between the test and the stand-in are kept in the folder, which must exist.
  explicit PAUSES(std::string folder);

  /// Environment of the daemon: the value of VORN_TEST_PAUSES, and the PATH with the stand-ins
  /// first (or with the machine's own sleep, where the pauses shall be real).
  const std::string& Folder() const { return m_folder; }
  static std::string Path();
  static std::string PathWithRealSleep();

  /// The daemon may look for adapters from now on.
  void AllowSearch() const;

  void SetLength(int seconds, milliseconds length) const;

  /// Pauses of so many seconds do not end, those under way included, until Release.
  void Hold(int seconds) const;
  void Release(int seconds) const;

  /// Pauses begun and ended so far, in order: their seconds.
  std::vector<int> Begun() const;
  std::vector<int> Ended() const;
  int CountBegun(int seconds) const;

  /// Waits until at least count pauses of so many seconds have begun.
  bool WaitUntilBegun(int seconds, int count = 1, milliseconds limit = kLimit) const;

  /// What each pause's child had open, as "number=target", one entry for each descriptor.
  std::vector<std::string> ChildDescriptors() const;

 private:
  std::vector<int> Noted(const std::string& word) const;
  const std::string m_folder;
};

}  // namespace support
