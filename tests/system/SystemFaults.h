#pragma once

#include "tests/support/ProcessInfo.h"
#include "tests/system/FaultFixture.h"

#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>
#include <map>
#include <string>

/// What the machine can do to the daemon: its log, its descriptors, its programs and its signals.
class SystemFaults : public FAULT_FIXTURE {
 protected:
  ~SystemFaults() override {
    if (m_isMounted) {
      umount2(Disk().c_str(), MNT_DETACH);
    }
  }

  std::string Disk() const { return Folder() + "/disk"; }

  /// The log is on a small disk of its own. False where no disk can be mounted.
  bool PutLogOnADisk() {
    std::filesystem::create_directory(Disk());
    m_isMounted = mount("vorn-test", Disk().c_str(), "tmpfs", 0, "size=64k") == 0;
    std::filesystem::create_symlink(Disk() + "/vorn.log", log.Path());
    return m_isMounted;
  }

  /// A client leaves and another comes, which are four log lines.
  void ExchangeClient(PART part) {
    Client(part)->Close();
    Reconnect(part);
  }
  void ExchangeIoClient() { ExchangeClient(PART::kIo); }

  /// The log is written again.
  void ExpectLogToGoOn(PART part = PART::kIo) {
    const std::string line = ClosedByClient(Interface(part).name);
    const int before = CountLines(line);
    ExchangeClient(part);
    EXPECT_TRUE(WaitForLines(line, before + 1));
  }

  void SetDescriptorLimit(rlim_t count) const { SetLimit(RLIMIT_NOFILE, count); }
  void SetFileSizeLimit(rlim_t bytes) const { SetLimit(RLIMIT_FSIZE, bytes); }

  /// The limit under which so many numbers are free once the adapter is gone.
  rlim_t LimitThatLeaves(unsigned int count) const {
    std::map<int, std::string> descriptors = QuietDescriptors();
    std::erase_if(descriptors,
                  [this](const auto& entry) { return entry.second == adapter.NearPath(); });
    int limit = 0;
    for (unsigned int free = 0; descriptors.contains(limit) || free < count; ++limit) {
      free += descriptors.contains(limit) ? 0 : 1;
    }
    return static_cast<rlim_t>(limit);
  }

  void StopProcess() {
    daemon.Signal(SIGSTOP);
    ASSERT_TRUE(
        support::WaitUntil([&] { return support::StatusField(Pid(), "State").starts_with("T"); }));
  }

  /// Only these programs are found.
  support::START WithPath(const std::string& path) const {
    support::START start;
    start.environment["PATH"] = path;
    return start;
  }

 private:
  void SetLimit(decltype(RLIMIT_FSIZE) resource, rlim_t value) const {
    rlimit limit{};
    ASSERT_EQ(prlimit(Pid(), resource, nullptr, &limit), 0);
    limit.rlim_cur = value;
    ASSERT_EQ(prlimit(Pid(), resource, &limit, nullptr), 0);
  }

  bool m_isMounted = false;
};
