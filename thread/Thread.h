#pragma once

#include "thread/Bell.h"
#include "thread/EventClass.h"
#include "thread/MutexClass.h"
#include "thread/Task.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

namespace vorn {

enum ThreadType_t : std::int32_t {
  kEventDriven = 0,     ///< sleeps on its event and runs when one arrives
  kIntervalDriven = 1,  ///< runs, pauses for the idle time, runs again; accepts no events
};

/// Values of CThread::ThreadState.
enum ThreadState_t : std::int32_t {
  kThreadBusy = 0,
  kThreadWaiting = 1,
  kThreadDown = 2,
  kThreadShuttingDown = 3,
  kThreadFault = 4,
};

/// Bits of CThread::ErrorFlags. They stay set, except kThreadCreationFailed, which Start clears.
enum ThreadError_t : std::uint32_t {
  kMutexCreationFailed = 0x01,
  kEventCreationFailed = 0x02,
  kThreadCreationFailed = 0x04,
  kIllegalEvent = 0x10,
  kStackAllocationFailed = 0x20,
};

/// A thread object: a kernel loop that calls OnTask, a small stack of events, and a state.
///
/// The thread runs from the end of the base constructor on, as an event-driven one that sleeps. A
/// derived worker finishes its own construction and calls SetThreadType(kIntervalDriven, idle) as
/// the last step of its constructor; before that its OnTask() is never called. Its destructor calls
/// StopAndJoin() first of all, so that no pass runs on members that are gone.
///
/// Signals are blocked in the thread: only the process's main thread sees them.
///
/// One lock guards the flags, the state and the event stack; OnTask runs without it. While an
/// event-driven thread works on what woke it, the event's own mutex is held: Set from another
/// thread waits for the end of that pass. Lock order: the event's mutex, then the thread's lock.
class CThread {
 public:
  CThread();
  /// Stops and joins the thread. Derived classes must have done so already: see StopAndJoin.
  ~CThread();
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  /// Handles one event item. The default treats it as a CTask and runs it. False ends the loop.
  virtual bool OnTask(void* item);
  /// The work of one pass when no event is pending. False ends the loop.
  virtual bool OnTask();

  /// Creates the thread unless it runs already. False when the system refuses one.
  bool Start();
  /// Asks the thread to end after its present pass and waits, without a limit, until it has. Called
  /// from the thread itself it only asks.
  void Stop();
  /// Asks only; returns at once.
  void RequestStop();

  /// Queues an item for an event-driven thread and wakes it; the latest item is handled first. A
  /// null item only wakes. False when the stack is full or the thread is interval-driven.
  bool Event(void* item);
  bool Event(CTask* task);

  /// The event stack: at most 99 items. Pop does not test for an empty stack; ask Empty first.
  bool Push(void* item);
  bool Pop();
  bool Empty();
  std::int32_t GetEventsPending();

  std::int32_t ThreadState();
  std::uint32_t ErrorFlags();

  /// Sets the type and the idle time (in Sleep units of 100 ns, 1 to 9999999).
  void SetThreadType(ThreadType_t type, long idle);
  void SetIdle(long idle);
  /// Does nothing: all threads run at the system's default priority.
  void SetPriority(long priority);

  /// Waits until the thread runs; gives up once more than `timeout` Sleep units have been waited.
  /// A time-out of 0 or less waits without a limit.
  bool PingThread(long timeout);

  /// One pass of the loop; false when the loop is to end. Called by the thread function.
  bool KernelProcess();

 protected:
  bool StopRequested() const { return m_stopRequested.load(std::memory_order_relaxed); }
  /// For a worker whose passes begin with a rest, into which the idle time counts: an
  /// interval-driven loop makes no pause of its own between them then, and who asks it to stop
  /// rings the bell by which it rests. Before SetThreadType; the bell is the worker's own.
  void KeepOwnPace(BELL& bell) { m_bell.store(&bell, std::memory_order_relaxed); }
  /// Stops the thread and waits until it is gone. For the first line of a derived destructor.
  void StopAndJoin();

 private:
  static constexpr std::int32_t kStackCapacity = 100;

  // The thread function; the name is the framework's own.
  friend void* _THKERNEL(void* thread);  // NOLINT(bugprone-reserved-identifier)
  void Kernel();
  void WakeUp();
  void SetState(ThreadState_t state);
  bool Running();
  bool FaultUnlessEventDriven();

  CEventClass m_event;
  bool m_running = false;
  pthread_t m_handle{};
  pthread_t m_threadId{};
  std::unique_ptr<std::array<void*, kStackCapacity>> m_stack;
  std::int32_t m_stackCount = 0;
  void* m_currentItem = nullptr;  // touched by the thread itself, and by Pop under the lock
  std::int32_t m_state = kThreadDown;
  // The loop reads idle time and type without the lock, one word each; their order does not matter.
  std::atomic<std::int32_t> m_idle{100};
  std::atomic<ThreadType_t> m_type{kEventDriven};
  std::atomic<BELL*> m_bell{nullptr};  // of a worker that keeps its own pace
  std::int32_t m_stackSize = 0;        // bytes; 0: the system's default
  std::uint32_t m_errorFlags = 0;
  bool m_joinable = false;  // a thread was created and not joined yet
  bool m_ended = false;     // its function has finished
  // Set before the thread has begun it still ends the thread. Relaxed: a bare request, nothing is
  // read through it.
  std::atomic<bool> m_stopRequested{false};
  CMutexClass m_lock;
};

}  // namespace vorn
