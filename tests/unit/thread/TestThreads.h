#pragma once

#include "tests/support/Wait.h"
#include "tests/support/unit/Gate.h"
#include "thread/Thread.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <vector>

namespace vorn {

using unit::GATE;

template <class T>
bool IsReady(const std::future<T>& future, std::chrono::milliseconds limit = support::kLimit) {
  return future.wait_for(limit) == std::future_status::ready;
}

/// A worker whose work the test says: for each item, and for each pass without one.
class TEST_THREAD final : public CThread {
 public:
  using ITEM_WORK = std::function<bool(void*)>;
  using PASS_WORK = std::function<bool()>;

  explicit TEST_THREAD(PASS_WORK pass = {}, ITEM_WORK item = {})
      : m_pass(std::move(pass)), m_item(std::move(item)) {}
  /// An interval-driven one, made as the workers of the daemon are.
  TEST_THREAD(ThreadType_t type, long idle, PASS_WORK pass) : m_pass(std::move(pass)) {
    SetThreadType(type, idle);
  }
  ~TEST_THREAD() { StopAndJoin(); }
  TEST_THREAD(const TEST_THREAD&) = delete;
  TEST_THREAD& operator=(const TEST_THREAD&) = delete;

  bool OnTask(void* item) override {
    {
      const std::lock_guard lock(m_lock);
      m_handled.push_back(item);
    }
    return m_item ? m_item(item) : true;
  }

  bool OnTask() override {
    ++m_passes;
    return m_pass ? m_pass() : true;
  }

  int Passes() const { return m_passes; }
  std::vector<void*> Handled() const {
    const std::lock_guard lock(m_lock);
    return m_handled;
  }

  bool WaitForPasses(int count) const {
    return support::WaitUntil([&] { return Passes() >= count; });
  }
  bool WaitForState(ThreadState_t state) {
    return support::WaitUntil([&] { return ThreadState() == state; });
  }
  bool WaitUntilHandled(std::size_t count) const {
    return support::WaitUntil([&] { return Handled().size() >= count; });
  }

  using CThread::StopAndJoin;
  using CThread::StopRequested;

 private:
  const PASS_WORK m_pass;
  const ITEM_WORK m_item;
  std::atomic<int> m_passes{0};
  mutable std::mutex m_lock;
  std::vector<void*> m_handled;  // guarded by m_lock
};

}  // namespace vorn
