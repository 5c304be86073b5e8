#pragma once

#include <cstddef>

namespace vorn {

/// Watches how full a queue is, for a producer that must do without where its mark is reached. One
/// thread.
class BACKLOG {
 public:
  /// `markBytes`: from so many bytes of message on there is no room.
  explicit BACKLOG(std::size_t markBytes) : m_markBytes(markBytes) {}

  /// Takes note of how many bytes wait now; the questions below are about that.
  void Note(std::size_t waitingBytes) {
    m_isFull = waitingBytes >= m_markBytes;
    m_hasJustFilled = m_isFull && !m_isTold;
    // Told again only when half of it is gone: at the mark itself each message would bring a log
    // line while one is taken for each that comes.
    m_isTold = m_isFull || (m_isTold && waitingBytes >= m_markBytes / 2);
  }
  bool IsFull() const { return m_isFull; }
  /// It is full, and was not told to be since half of it was gone: worth a log line.
  bool HasJustFilled() const { return m_hasJustFilled; }

 private:
  std::size_t m_markBytes;
  bool m_isFull = false;
  bool m_hasJustFilled = false;
  bool m_isTold = false;
};

}  // namespace vorn
