#pragma once

#include "bench/compare/Loop.h"

#include <sched.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// A program that was started here, or by one that was. It is ended with the object.
class PROCESS {
 public:
  /// Starts it; its standard input is empty.
  PROCESS(LOOP& loop, const std::vector<std::string>& words);
  /// Takes one over that runs in the background, of which this process is the reaper
  /// (BecomeReaper).
  PROCESS(LOOP& loop, pid_t number) : m_loop(loop), m_number(number) {}
  ~PROCESS();
  PROCESS(const PROCESS&) = delete;
  PROCESS& operator=(const PROCESS&) = delete;

  /// Waits until it has ended by itself; throws FAILURE if it does not, or with another status than
  /// 0.
  void Await(NANOSECONDS limit);

  /// Processor time of its threads.
  NANOSECONDS ProcessorTime() const;
  /// How often one of its threads has gone to sleep.
  std::uint64_t Sleeps() const;

 private:
  bool HasEnded();

  LOOP& m_loop;
  pid_t m_number;
  bool m_hasEnded = false;
  int m_status = 0;
};

/// What is started in the background by programs that this one starts becomes its own child.
void BecomeReaper();

/// The processors that this process, and what it starts, may run on.
cpu_set_t AllowedProcessors();
void RunOn(const cpu_set_t& processors);
/// One of them: the last, since interrupts mostly go to the first.
cpu_set_t OneOf(const cpu_set_t& processors);

/// Where the kernel runs what it does for programs aside, as it does to bring the bytes from one
/// end of a pseudo-terminal to the other; put back at the end. Needs root.
class KERNEL_WORKERS {
 public:
  KERNEL_WORKERS();
  ~KERNEL_WORKERS();
  KERNEL_WORKERS(const KERNEL_WORKERS&) = delete;
  KERNEL_WORKERS& operator=(const KERNEL_WORKERS&) = delete;
  void RunOn(const cpu_set_t& processors);

 private:
  std::string m_before;
};

/// How much of the machine others take: all processor time that is neither this process's nor the
/// subject's. Meant for times in which these two do little: the kernel's own work for them counts
/// as others'.
class OTHERS {
 public:
  explicit OTHERS(const PROCESS* subject = nullptr);
  /// Since then, in percent of one processor.
  double Percent() const;

 private:
  double Foreign() const;

  const PROCESS* const m_subject;
  const TIME m_begin;
  const double m_foreign;  // seconds
};

/// The load average of the last minute.
double Load();

}  // namespace bench
