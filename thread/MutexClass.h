#pragma once

#include <pthread.h>

#include <atomic>

namespace vorn {

/// A POSIX mutex (default attributes: not recursive) that remembers its owner.
///
/// Locking it a second time in the owning thread is a no-op that is not counted, so nested
/// Lock/Unlock pairs release the mutex at the first Unlock. Unlocking it from any other thread
/// does nothing. Any thread may call any operation; destruction waits for the present holder.
class CMutexClass {
 public:
  CMutexClass();
  ~CMutexClass();
  CMutexClass(const CMutexClass&) = delete;
  CMutexClass& operator=(const CMutexClass&) = delete;

  void Lock();
  void Unlock();

  /// True once the constructor has run. The constructor sets it before the POSIX call, whose result
  /// it does not look at: a default mutex cannot fail to be made on Linux.
  bool Created() const { return m_created; }

 private:
  pthread_mutex_t m_mutex;
  /// The holder, 0 when free. Atomic because Lock compares it with the caller before it holds the
  /// mutex; relaxed, because only the caller's own value could compare equal.
  std::atomic<pthread_t> m_owner{0};
  bool m_created = true;
};

/// Holds a CMutexClass for a scope. Do not nest two on one mutex: see CMutexClass.
class CScopedLock {
 public:
  explicit CScopedLock(CMutexClass& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
  ~CScopedLock() { m_mutex.Unlock(); }
  CScopedLock(const CScopedLock&) = delete;
  CScopedLock& operator=(const CScopedLock&) = delete;

 private:
  CMutexClass& m_mutex;
};

}  // namespace vorn
