#pragma once

#include "thread/Bell.h"
#include "thread/MutexClass.h"
#include "vorn/base/QList.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace vorn {

/// First-in first-out hand-over of byte lists between threads.
///
/// One consumer calls IsEmpty and DeQueue: the test for emptiness and the removal are two critical
/// sections, so a second consumer would race the first. How many producers there are is all the
/// same to the queue; most have two. There is no bound here: nothing is refused, and nothing is
/// dropped unless a producer asks for it; the queue counts what waits in it, and Budget.h has the
/// bounds. The mutex guards every operation and is never held while calling out.
///
/// It wakes who takes from it where a message comes, and who fills it where there is room again;
/// their bells are lent, and outlive the last message.
class VOQUEUE {
 public:
  /// Messages are numbered in the order they come, from 0 on.
  using NUMBER = std::uint64_t;

  /// Who takes from here rests by this bell. Before the first message.
  void WakeTakerBy(BELL& bell);
  /// A producer that is held back while `markBytes` or more wait rests by this bell.
  void WakeProducerBy(BELL& bell, std::size_t markBytes);
  /// Wakes who takes: whether it can go on depends on more than this queue, and that has changed.
  void WakeTaker();

  /// Appends a copy of the message at the back.
  void ToQueue(QList message);

  /// The same, and where more than so many bytes wait then, removes the oldest messages until they
  /// fit, or until the new one is left alone. Returns what was removed.
  std::vector<QList> ToQueueLatest(QList message, std::size_t mostBytes);

  bool IsEmpty();

  /// Takes the front message; an empty one when nothing waits. Where an empty message means
  /// something, ask IsEmpty first.
  QList DeQueue();

  /// Messages waiting, at the moment of the call.
  std::size_t Size();

  /// Bytes waiting, at the moment of the call: of each message its own and one more. For a producer
  /// that holds its source back while the consumer is behind.
  std::size_t Bytes();

  /// The number that the next message to come will have.
  NUMBER NextToCome();
  /// The number of the front message, or of the next to come when nothing waits.
  NUMBER NextToGo();

 private:
  void Append(QList message);
  QList TakeFront();

  CMutexClass m_mutex;
  BELL* m_taker = nullptr;
  BELL* m_producer = nullptr;
  std::size_t m_producerMark = 0;  // bytes
  std::deque<QList> m_messages;
  std::size_t m_bytes = 0;
  NUMBER m_came = 0;
};

}  // namespace vorn
