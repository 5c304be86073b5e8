#pragma once

namespace vorn {

/// Owns one descriptor and closes it once. Not copyable; an empty owner holds -1, which never
/// leaves the owner except through Get.
class UNIQUE_FD {
 public:
  UNIQUE_FD() = default;
  explicit UNIQUE_FD(int descriptor) : m_descriptor(descriptor) {}
  ~UNIQUE_FD() { Close(); }
  UNIQUE_FD(UNIQUE_FD&& other) noexcept : m_descriptor(other.Release()) {}
  UNIQUE_FD& operator=(UNIQUE_FD&& other) noexcept;
  UNIQUE_FD(const UNIQUE_FD&) = delete;
  UNIQUE_FD& operator=(const UNIQUE_FD&) = delete;

  bool IsOpen() const { return m_descriptor >= 0; }
  /// Lends the descriptor; -1 when there is none.
  int Get() const { return m_descriptor; }
  /// Gives the descriptor away.
  int Release();
  void Close();

 private:
  int m_descriptor = -1;
};

}  // namespace vorn
