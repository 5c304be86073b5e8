#pragma once

#include "thread/MutexClass.h"

#include <pthread.h>

#include <atomic>

namespace vorn {

/// How far a task has come.
enum TaskStatus_t : int {
  kTaskNew = 0,
  kTaskQueued = 1,
  kTaskRunning = 2,
  kTaskCompleted = 3,
};

/// A unit of work that can be handed to an event-driven CThread. The giver owns the task and keeps
/// it alive until its status is kTaskCompleted.
class CTask {
 public:
  virtual ~CTask() = default;

  /// The work, run on the thread it was handed to. False ends that thread's loop.
  virtual bool Task() = 0;

  void SetTaskStatus(TaskStatus_t status);
  TaskStatus_t TaskStatus();

  /// The thread it was handed to, 0 before that.
  void SetThreadId(pthread_t id) { m_threadId.store(id, std::memory_order_relaxed); }
  pthread_t ThreadId() const { return m_threadId.load(std::memory_order_relaxed); }

 private:
  TaskStatus_t m_status = kTaskNew;  // guarded by m_lock
  // Relaxed: a bare identification, nothing is read through it.
  std::atomic<pthread_t> m_threadId{0};
  CMutexClass m_lock;
};

}  // namespace vorn
