#pragma once

#include "tests/system/SystemTest.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

/// What a fault can be about.
enum class PART { kBus, kCae, kIo, kMon };

constexpr PART kInterfaces[] = {PART::kCae, PART::kIo, PART::kMon};

/// What a fault may do. All that it does not touch answers as ever while it lasts.
struct FAULT_SCOPE {
  std::set<PART> touched;
  /// Log lines that it may bring, by their beginnings; those of a lost and regained link or client
  /// need not be named for a part that is touched.
  std::vector<std::string> lines{};
  /// All lines that it brings are so many at most: no flood. Where the bus is not touched, a few of
  /// a late reply do not count.
  std::size_t mostLines = 20;
  /// What is served meanwhile is seen by what the test does, and not by ExpectService.
  bool looksForItself = false;
};

/// A daemon that goes through a fault. Around any fault seven things hold, and this checks them:
///
///  1. the process is the same,
///  2. it has five threads,
///  3. after the fault its descriptors are those from before,
///  4. the bus and the interfaces that the fault does not touch answer meanwhile, and all of them
///     afterwards,
///  5. the log has only the lines that belong to the fault, and no flood of them,
///  6. nothing is on its standard streams, where sanitizers report,
///  7. SIGTERM afterwards ends it with status 0.
///
/// That it idles meanwhile is measured, by script/measure --faults.
///
/// A test starts by StartForFaults, makes its fault between BeginFault and EndFault, any number of
/// times, and has the clients `cae`, `io` and `mon` for itself as far as its fault touches them. It
/// says by ExpectService when the fault lasts, at least once, or fails.
class FAULT_FIXTURE : public SYSTEM_TEST {
 public:
  /// Long series are scaled: all of it with VORN_TEST_FULL=1 in the environment, else what suits an
  /// ordinary run.
  static int Rounds(int all, int ordinary);

  /// In percent, where a fault lasts or is made many times: full speed, but for a sanitizer's
  /// build, whose loops would take all of the processor from the tests beside it.
  inline static const std::string kSpeedOfLongFaults = support::kInstrumented ? "75" : "100";

 protected:
  void TearDown() override;

  /// The rack is found and identified, and polled where the configuration says so; three clients
  /// are greeted. Without auto-discovery, since each identification makes the polls longer.
  void StartForFaults(const support::START& start = {});

  /// Asks the bus for its cards until the answer is that of the start: what a fault has made of the
  /// card table, or of the rack, is over then.
  void Identify();

  void BeginFault(FAULT_SCOPE scope);
  /// While the fault lasts: what it does not touch answers.
  void ExpectService();
  /// The test has taken the fault away. What was touched comes back by itself.
  void EndFault();

  /// Since BeginFault, now and at each look. Not judged under a sanitizer, which has memory of its
  /// own.
  void ExpectGrowthBelow(long kiB);
  void LookAtMemory();

  /// Drops the client of a part, if there is one, and connects another; what was left for its
  /// predecessor comes before the greeting, and is returned.
  std::string Reconnect(PART part);
  /// The same with a client that is not kept, and to which the kernel holds a few KiB at most.
  TCP_CLIENT ReplaceBySlowReader(PART part);
  std::optional<TCP_CLIENT>& Client(PART part);
  const support::INTERFACE& Interface(PART part) const;

  /// How often the line begins a line of the log.
  int CountLines(const std::string& beginning) const;
  bool WaitForLines(const std::string& beginning, int count) const;

  /// In a moment with the link up and without a pause's pipe, a search's pipe or an open log.
  std::map<int, std::string> QuietDescriptors() const;

  std::optional<TCP_CLIENT> io;
  std::optional<TCP_CLIENT> mon;

 private:
  /// False when nothing was asked.
  bool ExpectServiceExcept(const std::set<PART>& touched);
  /// Greeted, and what came before the greeting.
  TCP_CLIENT ConnectAsNext(PART part, const support::CLIENT_OPTIONS& options, std::string& before);
  bool IsAllowed(const std::string& line) const;

  pid_t m_pid = 0;  // since BeginFault
  bool m_isUnderWay = false;
  bool m_isServiceSeen = false;  // while this fault lasts
  FAULT_SCOPE m_scope;
  std::size_t m_linesBefore = 0;
  long m_residentKiB = 0;  // when the fault began
  long m_mostKiB = 0;      // at the looks since then
  std::map<int, std::string> m_descriptors;
  int m_value = 0;      // of the last output command
  std::string m_cards;  // as FORCEDISCOVER lists them, since StartForFaults
};
