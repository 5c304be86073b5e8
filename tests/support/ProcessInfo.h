#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace support {

/// What the kernel tells of a process.

/// Its children, zombies included.
std::vector<pid_t> Children(pid_t parent);

/// Kills (SIGKILL) and reaps all children of this process, and those that are handed to it
/// meanwhile.
void KillChildren();

/// Threads, without those that a sanitizer's runtime has started in the daemon.
int ThreadCount(pid_t pid);

/// How often its threads have gone to sleep so far.
long Sleeps(pid_t pid);
/// What those that a sanitizer's runtime or an emulator has started add to that in a second, at
/// most.
extern const long kForeignSleepsPerSecond;

/// Resident memory in KiB.
long ResidentKiB(pid_t pid);

/// Open descriptors: number and what it leads to ("socket:[123]", "/dev/pts/3").
std::map<int, std::string> OpenDescriptors(pid_t pid);

/// Numbers of the descriptors that lead to that path.
std::vector<int> DescriptorsOf(pid_t pid, const std::string& path);

/// Flags of an open descriptor as open() takes them.
int DescriptorFlags(pid_t pid, int descriptor);

/// Field of /proc/PID/status, without leading blanks; empty when there is none.
std::string StatusField(pid_t pid, const std::string& name);

}  // namespace support
