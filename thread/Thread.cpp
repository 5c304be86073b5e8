#include "thread/Thread.h"

#include "thread/Pause.h"
#include "thread/ScheduleNoise.h"

#include <csignal>
#include <cstdio>
#include <new>

namespace vorn {

namespace {

/// Blocks all signals that can be meant for the process while it lives, so that a thread created
/// meanwhile inherits the block; faults of the thread itself stay deliverable. So does SIGPIPE:
/// what a worker runs inherits the block, too, and is to end when its reader has gone.
class SIGNALS_BLOCKED {
 public:
  SIGNALS_BLOCKED() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPIPE}) {
      sigdelset(&blocked, fault);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &m_before);
  }
  ~SIGNALS_BLOCKED() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  SIGNALS_BLOCKED(const SIGNALS_BLOCKED&) = delete;
  SIGNALS_BLOCKED& operator=(const SIGNALS_BLOCKED&) = delete;

 private:
  sigset_t m_before{};
};

}  // namespace

void* _THKERNEL(void* thread) {  // NOLINT(bugprone-reserved-identifier)
  static_cast<CThread*>(thread)->Kernel();
  return nullptr;
}

CThread::CThread() : m_stack(new (std::nothrow) std::array<void*, kStackCapacity>{}) {
  if (!m_stack) {
    m_errorFlags |= kStackAllocationFailed;
    m_state = kThreadFault;
    return;
  }
  if (!m_lock.Created()) {
    std::perror("mutex creation failed");
    m_errorFlags |= kMutexCreationFailed;
    m_state = kThreadFault;
    return;
  }
  if (!m_event.Created()) {
    std::perror("event creation failed");
    m_errorFlags |= kEventCreationFailed;
    m_state = kThreadFault;
    return;
  }
  Start();
}

CThread::~CThread() {
  StopAndJoin();
}

bool CThread::OnTask(void* item) {
  auto* const task = static_cast<CTask*>(item);
  task->SetTaskStatus(kTaskRunning);
  const bool goOn = task->Task();
  task->SetTaskStatus(kTaskCompleted);
  return goOn;
}

bool CThread::OnTask() {
  std::puts("\nthread is alive");
  return true;
}

bool CThread::Start() {
  const CScopedLock lock(m_lock);
  if (m_joinable && !m_ended) {
    return true;
  }
  if (m_joinable) {
    // Under the lock, so that of two callers only one joins it: a thread that has said that it
    // ended never takes the lock again.
    pthread_join(m_handle, nullptr);
  }
  m_errorFlags &= ~static_cast<std::uint32_t>(kThreadCreationFailed);
  m_joinable = false;
  m_ended = false;
  m_stopRequested.store(false, std::memory_order_relaxed);

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (m_stackSize != 0) {
    pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(m_stackSize));
  }
  int error = 0;
  {
    const SIGNALS_BLOCKED blocked;
    error = pthread_create(&m_handle, &attributes, _THKERNEL, this);
  }
  pthread_attr_destroy(&attributes);
  if (error != 0) {
    m_state = kThreadFault;
    m_errorFlags |= kThreadCreationFailed;
    std::fprintf(stderr, "error: could not create thread, pthread_create failed (%d)!\n", error);
    return false;
  }
  m_joinable = true;
  return true;
}

void CThread::RequestStop() {
  MakeScheduleNoise();
  {
    const CScopedLock lock(m_lock);
    m_running = false;
    m_stopRequested.store(true, std::memory_order_relaxed);
  }
  WakeUp();
}

void CThread::WakeUp() {
  BELL* const bell = m_bell.load(std::memory_order_relaxed);
  if (bell != nullptr) {
    bell->RingThrough();
  }
}

void CThread::Stop() {
  MakeScheduleNoise();
  {
    // In one step: a thread that ends as soon as it is asked was running all the same, and gets its
    // event.
    const CScopedLock lock(m_lock);
    m_running = false;
    m_stopRequested.store(true, std::memory_order_relaxed);
    if (!m_joinable || m_ended || m_threadId == pthread_self()) {
      return;
    }
  }
  WakeUp();
  // An interval-driven thread refuses this, which leaves the fault state until its next pass.
  Event(static_cast<void*>(nullptr));
  for (;;) {
    Sleep(static_cast<unsigned int>(m_idle.load(std::memory_order_relaxed)));
    const CScopedLock lock(m_lock);
    if (m_ended) {
      m_state = kThreadDown;  // the refused event may have come after the thread's own last word
      return;
    }
  }
}

void CThread::StopAndJoin() {
  Stop();
  {
    const CScopedLock lock(m_lock);
    if (!m_joinable) {
      return;
    }
    m_joinable = false;
  }
  pthread_join(m_handle, nullptr);
}

/// True for an event-driven thread. What is not one is put into the fault state: an event for it is
/// its owner's mistake.
bool CThread::FaultUnlessEventDriven() {
  const CScopedLock lock(m_lock);
  if (m_type.load(std::memory_order_relaxed) == kEventDriven) {
    return true;
  }
  m_errorFlags |= kIllegalEvent;
  m_state = kThreadFault;
  return false;
}

bool CThread::Event(void* item) {
  if (!FaultUnlessEventDriven() || !Push(item)) {
    return false;
  }
  m_event.Set();
  return true;
}

bool CThread::Event(CTask* task) {
  if (!FaultUnlessEventDriven()) {
    return false;
  }
  if (task == nullptr) {
    return Event(static_cast<void*>(nullptr));
  }
  {
    const CScopedLock lock(m_lock);
    task->SetThreadId(m_threadId);
  }
  // Before the push: once pushed, the thread may run the task, and its own words come later.
  const TaskStatus_t before = task->TaskStatus();
  task->SetTaskStatus(kTaskQueued);
  if (!Push(task)) {
    task->SetTaskStatus(before);
    return false;
  }
  m_event.Set();
  return true;
}

bool CThread::Push(void* item) {
  if (item == nullptr) {
    return true;
  }
  const CScopedLock lock(m_lock);
  if (!m_stack || m_stackCount + 1 >= kStackCapacity) {
    return false;
  }
  (*m_stack)[static_cast<std::size_t>(m_stackCount)] = item;
  ++m_stackCount;
  return true;
}

bool CThread::Pop() {
  const CScopedLock lock(m_lock);
  --m_stackCount;
  m_currentItem = (*m_stack)[static_cast<std::size_t>(m_stackCount)];
  return true;
}

bool CThread::Empty() {
  return GetEventsPending() == 0;
}

std::int32_t CThread::GetEventsPending() {
  const CScopedLock lock(m_lock);
  return m_stackCount;
}

std::int32_t CThread::ThreadState() {
  const CScopedLock lock(m_lock);
  return m_state;
}

std::uint32_t CThread::ErrorFlags() {
  const CScopedLock lock(m_lock);
  return m_errorFlags;
}

void CThread::SetState(ThreadState_t state) {
  const CScopedLock lock(m_lock);
  m_state = state;
}

bool CThread::Running() {
  const CScopedLock lock(m_lock);
  return m_running;
}

void CThread::SetThreadType(ThreadType_t type, long idle) {
  bool changed = false;
  {
    const CScopedLock lock(m_lock);
    m_idle.store(static_cast<std::int32_t>(idle), std::memory_order_relaxed);
    changed = m_type.exchange(type, std::memory_order_relaxed) != type;
  }
  if (changed) {
    m_event.Set();
  }
}

void CThread::SetIdle(long idle) {
  const CScopedLock lock(m_lock);
  m_idle.store(static_cast<std::int32_t>(idle), std::memory_order_relaxed);
}

void CThread::SetPriority(long) {
}

bool CThread::PingThread(long timeout) {
  long waited = 0;
  for (;;) {
    std::int32_t idle = 0;
    {
      const CScopedLock lock(m_lock);
      if (m_running) {
        return true;
      }
      idle = m_idle.load(std::memory_order_relaxed);
    }
    if (timeout > 0) {
      waited += idle;
    }
    Sleep(static_cast<unsigned int>(idle));
    if (timeout > 0 && waited > timeout) {
      return false;
    }
  }
}

bool CThread::KernelProcess() {
  {
    const CScopedLock lock(m_lock);
    m_state = kThreadBusy;
    if (!m_running) {
      m_state = kThreadShuttingDown;
      return false;
    }
  }
  if (Empty()) {
    const bool goOn = OnTask();
    SetState(goOn ? kThreadWaiting : kThreadShuttingDown);
    return goOn;
  }
  bool goOn = true;
  while (goOn && !Empty()) {
    Pop();
    goOn = OnTask(m_currentItem);
  }
  const CScopedLock lock(m_lock);
  m_state = goOn ? kThreadWaiting : kThreadShuttingDown;
  m_currentItem = nullptr;
  return goOn;
}

void CThread::Kernel() {
  {
    const CScopedLock lock(m_lock);
    m_running = !StopRequested();
    m_state = kThreadWaiting;
    m_threadId = pthread_self();
  }
  bool goOn = true;
  while (goOn) {
    const ThreadType_t typeBefore = m_type.load(std::memory_order_relaxed);
    if (typeBefore == kEventDriven) {
      // Looked at under the mutex that Set takes: neither a change of type, an event nor a stop
      // that comes before the thread has reached its wait is missed.
      m_event.Wait([this] {
        return m_type.load(std::memory_order_relaxed) != kEventDriven || !Running() || !Empty();
      });
    }
    bool holdsEvent = typeBefore == kEventDriven;
    if (holdsEvent && m_type.load(std::memory_order_relaxed) != kEventDriven) {
      // Whoever has changed the type may only be about to wake this thread: a worker's constructor
      // must not wait there for the end of a pass, which may take until a client comes.
      m_event.Reset();
      holdsEvent = false;
    }
    goOn = KernelProcess();
    if (holdsEvent) {
      m_event.Reset();
    }
    if (goOn && m_type.load(std::memory_order_relaxed) == kIntervalDriven &&
        m_bell.load(std::memory_order_relaxed) == nullptr) {
      Sleep(static_cast<unsigned int>(m_idle.load(std::memory_order_relaxed)));
    }
  }
  MakeScheduleNoise();  // whoever stops it waits for this
  const CScopedLock lock(m_lock);
  m_state = kThreadDown;
  m_running = false;
  m_ended = true;
}

}  // namespace vorn
