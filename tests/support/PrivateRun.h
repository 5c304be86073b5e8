#pragma once

namespace support {

/// To be called first in main of a program of system tests. Where the program does not run
/// privately yet (VORN_PRIVATE is not set), starts it again through script/private-run, waits for
/// it, ends what it left behind and returns its exit status; with VORN_PRIVATE set, readies this
/// process (it becomes the parent of orphaned descendants, lo is brought up) and returns -1: go on.
///
/// Does nothing when only the list of the tests is asked for.
int RunPrivately(int argc, char** argv);

}  // namespace support
