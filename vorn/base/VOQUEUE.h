#pragma once

#include "thread/MutexClass.h"
#include "vorn/base/QList.h"

#include <cstddef>
#include <deque>

/// First-in first-out hand-over of byte lists between exactly two threads.
///
/// One producer calls ToQueue, one consumer calls IsEmpty and DeQueue. The test for emptiness and
/// the removal in DeQueue are two critical sections, so a second consumer would race the first.
/// There is no bound: nothing is refused, nothing dropped. The mutex guards every operation and is
/// never held while calling out.
class VOQUEUE {
 public:
  /// Appends a copy of the message at the back.
  void ToQueue(QList message);

  bool IsEmpty();

  /// Takes the front message; an empty one when nothing waits. Where an empty message means
  /// something, ask IsEmpty first.
  QList DeQueue();

  /// Messages waiting, at the moment of the call. For a producer that holds its source back while
  /// the consumer is behind.
  std::size_t Size();

 private:
  CMutexClass m_mutex;
  std::deque<QList> m_messages;
};
