#pragma once

#include <unistd.h>

#include <utility>

namespace client {

/// Owns one file descriptor and closes it once.
class DESCRIPTOR {
 public:
  DESCRIPTOR() = default;
  explicit DESCRIPTOR(int number) : m_number(number) {}
  DESCRIPTOR(DESCRIPTOR&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  DESCRIPTOR& operator=(DESCRIPTOR&& other) noexcept {
    if (this != &other) {
      Close();
      m_number = std::exchange(other.m_number, -1);
    }
    return *this;
  }
  DESCRIPTOR(const DESCRIPTOR&) = delete;
  DESCRIPTOR& operator=(const DESCRIPTOR&) = delete;
  ~DESCRIPTOR() { Close(); }

  void Close() {
    if (m_number >= 0) {
      close(std::exchange(m_number, -1));
    }
  }
  int Get() const { return m_number; }
  explicit operator bool() const { return m_number >= 0; }

 private:
  int m_number = -1;
};

}  // namespace client
