#include "sim/line/Schedule.h"

#include <gtest/gtest.h>

#include <cmath>

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr TIME kStart{1h};

/// Each piece with the milliseconds after the start at which it goes out.
std::string TakeAll(SCHEDULE& schedule) {
  std::string text;
  while (const std::optional<TIME> next = schedule.Next()) {
    EXPECT_FALSE(schedule.Take(*next - 1ns));
    const std::chrono::duration<double, std::milli> after = *next - kStart;
    text += (text.empty() ? "" : ", ") + std::to_string(std::lround(after.count())) + ": " +
            ToHex(schedule.Take(*next).value());
  }
  return text;
}

TEST(Schedule, SendsPiecesAtTheirDistances) {
  SCHEDULE schedule(0, 0ms);
  schedule.Add({{10ms, {1}}, {5ms, {2}}}, kStart);
  schedule.Add({{0ms, {3}}, {10ms, {4}}}, kStart);
  EXPECT_EQ(TakeAll(schedule), "0: 03, 10: 01, 10: 04, 15: 02");
  EXPECT_EQ(schedule.Carry(100, kStart), kStart);
  EXPECT_FALSE(schedule.Take(kStart + 1h));
}

TEST(Schedule, TakesTenBitsAByteInBothDirections) {
  SCHEDULE schedule(1000, 0ms);  // a byte in 10 ms
  // Two requests in one write: the second travels while the first is answered.
  for (int i = 0; i < 2; ++i) {
    schedule.Add({{0ms, {1, 2, 3}}}, schedule.Carry(2, kStart));
  }
  EXPECT_EQ(TakeAll(schedule), "50: 01 02 03, 80: 01 02 03");
  schedule.Add({{0ms, {4}}}, schedule.Carry(1, kStart + 1s));
  EXPECT_EQ(TakeAll(schedule), "1020: 04");
}

TEST(Schedule, TheLatencyTimerHoldsAnswersBack) {
  SCHEDULE schedule(1000, 16ms);
  schedule.Add({{0ms, {1}}, {0ms, {2}}}, schedule.Carry(1, kStart));
  EXPECT_EQ(TakeAll(schedule), "36: 01, 46: 02");
}

TEST(Schedule, ForgetsWhatIsCleared) {
  SCHEDULE schedule(0, 0ms);
  schedule.Add({{0ms, {1}}}, kStart);
  schedule.Clear();
  EXPECT_FALSE(schedule.Next());
}

}  // namespace
}  // namespace sim
