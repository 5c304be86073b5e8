#pragma once

namespace vorn {

/// Owns one descriptor and closes it once. Not copyable; an empty owner holds -1, which never
/// leaves the owner except through Get.
class FILE_DESCRIPTOR {
 public:
  FILE_DESCRIPTOR() = default;
  explicit FILE_DESCRIPTOR(int descriptor) : m_descriptor(descriptor) {}
  ~FILE_DESCRIPTOR() { Close(); }
  FILE_DESCRIPTOR(FILE_DESCRIPTOR&& other) noexcept : m_descriptor(other.Release()) {}
  FILE_DESCRIPTOR& operator=(FILE_DESCRIPTOR&& other) noexcept;
  FILE_DESCRIPTOR(const FILE_DESCRIPTOR&) = delete;
  FILE_DESCRIPTOR& operator=(const FILE_DESCRIPTOR&) = delete;

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
