#pragma once

#include <atomic>

namespace vorn {

/// A single word of a record that threads share without a lock. Atomic, and copyable so that the
/// record stays copyable; each access stands alone, nothing else is published through it, hence the
/// relaxed order.
template <class T>
class SHARED_FIELD {
 public:
  // Implicit both ways: the field is used like the T that it holds.
  // cppcheck-suppress noExplicitConstructor
  // NOLINTNEXTLINE(google-explicit-constructor)
  SHARED_FIELD(T value = T{}) : m_value(value) {}
  SHARED_FIELD(const SHARED_FIELD& other) : m_value(other.Get()) {}
  SHARED_FIELD& operator=(const SHARED_FIELD& other) {
    if (this != &other) {
      Set(other.Get());
    }
    return *this;
  }
  ~SHARED_FIELD() = default;

  // NOLINTNEXTLINE(google-explicit-constructor)
  operator T() const { return Get(); }
  T Get() const { return m_value.load(std::memory_order_relaxed); }
  void Set(T value) { m_value.store(value, std::memory_order_relaxed); }
  T Exchange(T value) { return m_value.exchange(value, std::memory_order_relaxed); }
  /// Sets `value` only where the field still holds `expected`; true when it did.
  bool Replace(T expected, T value) {
    return m_value.compare_exchange_strong(expected, value, std::memory_order_relaxed);
  }

 private:
  std::atomic<T> m_value;
};

}  // namespace vorn
