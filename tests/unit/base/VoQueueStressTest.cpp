// The queue under load: as many messages as a busy daemon hands over in days.

#include "vorn/base/VoQueue.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace vorn {

namespace {

constexpr std::uint32_t kMessages = VORN_STRESS_MESSAGES;

/// A producer holds back while so many wait, as the workers do.
constexpr std::size_t kBacklogLimit = 1024;

struct STAMP {
  std::uint8_t producer = 0;
  std::uint32_t number = 0;
};

QList Message(STAMP stamp) {
  QList message = {static_cast<char>(stamp.producer)};
  for (int shift = 0; shift < 32; shift += 8) {
    message.push_back(static_cast<char>(stamp.number >> shift & 0xFFU));
  }
  return message;
}

STAMP StampOf(const QList& message) {
  STAMP stamp;
  int shift = -8;
  for (const char byte : message) {
    const auto value = static_cast<std::uint8_t>(byte);
    if (shift < 0) {
      stamp.producer = value;
    } else {
      stamp.number |= static_cast<std::uint32_t>(value) << shift;
    }
    shift += 8;
  }
  return stamp;
}

void Produce(VOQUEUE& queue, std::uint8_t producer, std::uint32_t count) {
  for (std::uint32_t number = 0; number < count; ++number) {
    while (queue.Size() >= kBacklogLimit) {
      std::this_thread::yield();
    }
    queue.ToQueue(Message({producer, number}));
  }
}

/// Takes everything; the number of messages that were not their producer's next.
std::uint32_t Consume(VOQUEUE& queue, std::size_t producers, std::uint32_t total) {
  std::vector<std::uint32_t> next(producers);
  std::uint32_t wrong = 0;
  for (std::uint32_t taken = 0; taken < total; ++taken) {
    while (queue.IsEmpty()) {
      std::this_thread::yield();
    }
    const QList message = queue.DeQueue();
    const STAMP stamp = StampOf(message);
    const bool right = message.size() == 5 && stamp.producer < producers &&
                       stamp.number == next.at(stamp.producer)++;
    wrong += right ? 0 : 1;
  }
  return wrong;
}

class VoQueueStress : public testing::TestWithParam<int> {};

TEST_P(VoQueueStress, KeepsCountAndOrderOfEachProducer) {
  const auto producers = static_cast<std::size_t>(GetParam());
  // One alone is the easy case: a tenth will do.
  const auto each =
      static_cast<std::uint32_t>(producers == 1 ? kMessages / 10 : kMessages / producers);
  VOQUEUE queue;
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < producers; ++producer) {
    threads.emplace_back(
        [&queue, producer, each] { Produce(queue, static_cast<std::uint8_t>(producer), each); });
  }
  const std::uint32_t wrong =
      Consume(queue, producers, each * static_cast<std::uint32_t>(producers));
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0U);
  EXPECT_TRUE(queue.IsEmpty()) << queue.Size() << " messages more than were queued";
}

// Two threads hand over to the master loop's queue at most, and to a bus queue; four are harder.
INSTANTIATE_TEST_SUITE_P(Producers, VoQueueStress, testing::Values(1, 4));

}  // namespace

}  // namespace vorn
