#include "vorn/base/VoQueue.h"

#include "thread/ScheduleNoise.h"

#include <utility>

namespace vorn {

namespace {

/// An empty message takes room too.
std::size_t BytesOf(const QList& message) {
  return message.size() + 1;
}

}  // namespace

void VOQUEUE::ToQueue(QList message) {
  MakeMeetingNoise();
  const CScopedLock lock(m_mutex);
  m_bytes += BytesOf(message);
  ++m_came;
  m_messages.push_back(std::move(message));
}

std::vector<QList> VOQUEUE::ToQueueLatest(QList message, std::size_t mostBytes) {
  MakeMeetingNoise();
  std::vector<QList> dropped;
  const CScopedLock lock(m_mutex);
  m_bytes += BytesOf(message);
  ++m_came;
  m_messages.push_back(std::move(message));
  // Never the last one: for the consumer a queue that was not empty stays so until it takes.
  while (m_bytes > mostBytes && m_messages.size() > 1) {
    dropped.push_back(TakeFront());
  }
  return dropped;
}

bool VOQUEUE::IsEmpty() {
  return Size() == 0;
}

QList VOQUEUE::DeQueue() {
  if (IsEmpty()) {
    return {};
  }
  MakeMeetingNoise();  // between the two critical sections
  const CScopedLock lock(m_mutex);
  return TakeFront();
}

/// Under the lock, with a message waiting.
QList VOQUEUE::TakeFront() {
  QList front = std::move(m_messages.front());
  m_messages.pop_front();
  m_bytes -= BytesOf(front);
  return front;
}

std::size_t VOQUEUE::Size() {
  const CScopedLock lock(m_mutex);
  return m_messages.size();
}

std::size_t VOQUEUE::Bytes() {
  const CScopedLock lock(m_mutex);
  return m_bytes;
}

VOQUEUE::NUMBER VOQUEUE::NextToCome() {
  const CScopedLock lock(m_mutex);
  return m_came;
}

VOQUEUE::NUMBER VOQUEUE::NextToGo() {
  const CScopedLock lock(m_mutex);
  return m_came - m_messages.size();
}

}  // namespace vorn
