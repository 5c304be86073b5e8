#include "vorn/base/VoQueue.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace vorn {

namespace {

QList Message(const std::string& text) {
  return {text.begin(), text.end()};
}

/// A loop that rests, with nobody who does.
class RESTING {
 public:
  /// It has been rung for since the last look; it rests again.
  bool IsWoken() {
    pollfd event = {m_bell.Descriptor(), POLLIN, 0};
    const bool isWoken = poll(&event, 1, 0) > 0;
    m_bell.Clear();
    m_bell.Arm(BELL::kResting);
    return isWoken;
  }
  BELL& Bell() { return m_bell; }

 private:
  BELL m_bell;
};

}  // namespace

TEST(VoQueue, IsEmptyAtFirst) {
  VOQUEUE queue;
  EXPECT_TRUE(queue.IsEmpty());
  EXPECT_EQ(queue.Size(), 0U);
}

TEST(VoQueue, DeQueueOfAnEmptyQueueGivesAnEmptyMessageAndChangesNothing) {
  VOQUEUE queue;
  EXPECT_TRUE(queue.DeQueue().empty());
  EXPECT_TRUE(queue.IsEmpty());
  queue.ToQueue(Message("A"));
  EXPECT_EQ(queue.DeQueue(), Message("A"));
}

TEST(VoQueue, GivesMessagesInTheOrderTheyCame) {
  VOQUEUE queue;
  queue.ToQueue(Message("first"));
  queue.ToQueue(Message("second"));
  queue.ToQueue(Message("third"));
  EXPECT_EQ(queue.Size(), 3U);
  EXPECT_EQ(queue.DeQueue(), Message("first"));
  EXPECT_EQ(queue.DeQueue(), Message("second"));
  EXPECT_EQ(queue.DeQueue(), Message("third"));
  EXPECT_TRUE(queue.IsEmpty());
}

TEST(VoQueue, HoldsAnEmptyMessage) {
  VOQUEUE queue;
  queue.ToQueue({});
  EXPECT_FALSE(queue.IsEmpty());
  EXPECT_TRUE(queue.DeQueue().empty());
  EXPECT_TRUE(queue.IsEmpty());
}

TEST(VoQueue, CountsTheBytesOfEachMessageAndOneMore) {
  VOQUEUE queue;
  EXPECT_EQ(queue.Bytes(), 0U);
  queue.ToQueue(Message("first"));
  EXPECT_EQ(queue.Bytes(), 6U);
  queue.ToQueue({});
  EXPECT_EQ(queue.Bytes(), 7U);
  queue.DeQueue();
  EXPECT_EQ(queue.Bytes(), 1U);
  queue.DeQueue();
  EXPECT_EQ(queue.Bytes(), 0U);
  queue.DeQueue();
  EXPECT_EQ(queue.Bytes(), 0U);
}

TEST(VoQueue, NumbersItsMessages) {
  VOQUEUE queue;
  EXPECT_EQ(queue.NextToCome(), 0U);
  EXPECT_EQ(queue.NextToGo(), 0U);
  queue.ToQueue(Message("A"));
  queue.ToQueue(Message("B"));
  EXPECT_EQ(queue.NextToCome(), 2U);
  EXPECT_EQ(queue.NextToGo(), 0U);
  queue.DeQueue();
  EXPECT_EQ(queue.NextToGo(), 1U);
  queue.DeQueue();
  queue.DeQueue();
  EXPECT_EQ(queue.NextToGo(), 2U);
  queue.ToQueueLatest(Message("C"), 100);
  EXPECT_EQ(queue.NextToCome(), 3U);
  EXPECT_EQ(queue.NextToGo(), 2U);
}

TEST(VoQueue, KeepsTheLatestThatFitWhereThatIsAskedFor) {
  VOQUEUE queue;
  EXPECT_TRUE(queue.ToQueueLatest(Message("first"), 12).empty());
  EXPECT_TRUE(queue.ToQueueLatest(Message("other"), 12).empty());
  EXPECT_EQ(queue.Bytes(), 12U);
  EXPECT_EQ(queue.ToQueueLatest({}, 12), std::vector<QList>{Message("first")});
  EXPECT_EQ(queue.Bytes(), 7U);
  EXPECT_EQ(queue.NextToGo(), 1U);
  // The new one stays, whatever it takes.
  EXPECT_EQ(queue.ToQueueLatest(Message("longer than that"), 12),
            (std::vector<QList>{Message("other"), {}}));
  EXPECT_EQ(queue.DeQueue(), Message("longer than that"));
  EXPECT_TRUE(queue.IsEmpty());
  EXPECT_EQ(queue.Bytes(), 0U);
}

TEST(VoQueue, KeepsZeroBytesAndHighBytes) {
  VOQUEUE queue;
  const QList message = Message(std::string("\0\xFF\x80\0", 4));
  queue.ToQueue(message);
  EXPECT_EQ(queue.DeQueue(), message);
}

TEST(VoQueue, QueuesACopy) {
  VOQUEUE queue;
  QList message = Message("A");
  queue.ToQueue(message);
  message.push_back('B');
  EXPECT_EQ(queue.DeQueue(), Message("A"));
}

TEST(VoQueue, HasNoBound) {
  constexpr int kMany = 20000;
  VOQUEUE queue;
  for (int i = 0; i < kMany; ++i) {
    queue.ToQueue(Message(std::to_string(i)));
  }
  for (int i = 0; i < kMany; ++i) {
    ASSERT_EQ(queue.DeQueue(), Message(std::to_string(i)));
  }
}

TEST(VoQueue, WakesWhoTakesForEachMessage) {
  VOQUEUE queue;
  RESTING taker;
  queue.ToQueue(Message("before"));
  queue.WakeTakerBy(taker.Bell());
  EXPECT_FALSE(taker.IsWoken());
  queue.ToQueue(Message("first"));
  EXPECT_TRUE(taker.IsWoken());
  EXPECT_FALSE(taker.IsWoken());
  queue.ToQueue(Message("second"));
  EXPECT_TRUE(taker.IsWoken());
  queue.ToQueueLatest(Message("third"), 1);
  EXPECT_TRUE(taker.IsWoken());
  queue.DeQueue();
  EXPECT_FALSE(taker.IsWoken());
  queue.WakeTaker();
  EXPECT_TRUE(taker.IsWoken());
}

TEST(VoQueue, WakesWhoIsHeldBackWhereItComesBelowTheMark) {
  VOQUEUE queue;
  RESTING producer;
  constexpr std::size_t kMark = 8;  // two messages of three, with one more for each
  queue.WakeProducerBy(producer.Bell(), kMark);
  EXPECT_FALSE(producer.IsWoken());
  for (int i = 0; i < 4; ++i) {
    queue.ToQueue(Message("abc"));
  }
  EXPECT_FALSE(producer.IsWoken());
  queue.DeQueue();
  queue.DeQueue();
  EXPECT_FALSE(producer.IsWoken());  // just at it
  queue.DeQueue();
  EXPECT_TRUE(producer.IsWoken());
  queue.DeQueue();
  EXPECT_FALSE(producer.IsWoken());
}

TEST(VoQueue, WithoutABellWakesNobody) {
  VOQUEUE queue;
  queue.WakeTaker();
  queue.ToQueue(Message("A"));
  EXPECT_EQ(queue.DeQueue(), Message("A"));
}

TEST(VoQueue, DestroysTheMessagesLeftInIt) {
  auto queue = std::make_unique<VOQUEUE>();
  queue->ToQueue(Message("left"));
  queue.reset();  // a leak is for the sanitizer to see
  EXPECT_EQ(queue, nullptr);
}

TEST(VoQueue, KeepsTheOrderBetweenAProducerAndAConsumer) {
  constexpr int kMany = 20000;
  VOQUEUE queue;
  std::thread producer([&] {
    for (int i = 0; i < kMany; ++i) {
      queue.ToQueue(Message(std::to_string(i)));
    }
  });
  for (int i = 0; i < kMany; ++i) {
    while (queue.IsEmpty()) {
      std::this_thread::yield();
    }
    EXPECT_EQ(queue.DeQueue(), Message(std::to_string(i)));
  }
  producer.join();
  EXPECT_TRUE(queue.IsEmpty());
}

}  // namespace vorn
