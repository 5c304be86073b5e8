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

void VOQUEUE::WakeTakerBy(BELL& bell) {
  const CScopedLock lock(m_mutex);
  m_taker = &bell;
}

void VOQUEUE::WakeProducerBy(BELL& bell, std::size_t markBytes) {
  const CScopedLock lock(m_mutex);
  m_producer = &bell;
  m_producerMark = markBytes;
}

void VOQUEUE::WakeTaker() {
  BELL* taker = nullptr;
  {
    const CScopedLock lock(m_mutex);
    taker = m_taker;
  }
  if (taker != nullptr) {
    taker->Ring();
  }
}

void VOQUEUE::ToQueue(QList message) {
  MakeScheduleNoise();
  BELL* taker = nullptr;
  {
    const CScopedLock lock(m_mutex);
    Append(std::move(message));
    taker = m_taker;
  }
  if (taker != nullptr) {
    taker->Ring();
  }
}

std::vector<QList> VOQUEUE::ToQueueLatest(QList message, std::size_t mostBytes) {
  MakeScheduleNoise();
  std::vector<QList> dropped;
  BELL* taker = nullptr;
  {
    const CScopedLock lock(m_mutex);
    Append(std::move(message));
    // Never the last one: for the consumer a queue that was not empty stays so until it takes.
    while (m_bytes > mostBytes && m_messages.size() > 1) {
      dropped.push_back(TakeFront());
    }
    taker = m_taker;
  }
  if (taker != nullptr) {
    taker->Ring();
  }
  return dropped;
}

/// Under the lock.
void VOQUEUE::Append(QList message) {
  m_bytes += BytesOf(message);
  ++m_came;
  m_messages.push_back(std::move(message));
}

bool VOQUEUE::IsEmpty() {
  return Size() == 0;
}

QList VOQUEUE::DeQueue() {
  if (IsEmpty()) {
    return {};
  }
  MakeScheduleNoise();  // between the two critical sections
  QList front;
  BELL* producer = nullptr;
  {
    const CScopedLock lock(m_mutex);
    const bool wasFull = m_bytes >= m_producerMark;
    front = TakeFront();
    producer = wasFull && m_bytes < m_producerMark ? m_producer : nullptr;
  }
  if (producer != nullptr) {
    producer->Ring();
  }
  return front;
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
