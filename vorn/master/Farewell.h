#pragma once

namespace vorn {

/// What a client of CAE or IO leaves with, alone in its message but for the separator.
constexpr const char* kExit = "EXIT";

/// The last words to it.
constexpr const char* kFarewell = "VORN: Bye Bye...";

/// So many seconds they have to reach the client before its connection is closed.
constexpr int kFarewellWaitS = 1;

}  // namespace vorn
