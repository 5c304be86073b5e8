#include "sim/line/RequestLog.h"

#include <gtest/gtest.h>

#include <thread>

namespace sim {
namespace {

using namespace std::chrono_literals;

REQUEST Numbered(std::uint64_t number, Bytes frame) {
  return {number, {}, std::move(frame)};
}

TEST(RequestLog, FindsWhatCameBefore) {
  REQUEST_LOG log;
  log.Add(Numbered(1, {0x01, 0x30}));
  log.Add(Numbered(2, {0x03, 0x20, 0x03, 0x02}));
  const auto found = log.WaitForFrame({0x03, 0x20, 0x03, 0x02}, 0ms);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->number, 2U);
  EXPECT_EQ(found->Body(), (Bytes{0x20, 0x03, 0x02}));
}

TEST(RequestLog, WaitsForWhatComesLater) {
  REQUEST_LOG log;
  std::thread sender([&log] { log.Add(Numbered(1, {0x01, 0x30})); });
  EXPECT_TRUE(log.WaitForFrame({0x01, 0x30}, 30s));
  sender.join();
}

TEST(RequestLog, GivesUpAfterTheLimit) {
  REQUEST_LOG log;
  log.Add(Numbered(1, {0x01, 0x30}));
  EXPECT_FALSE(log.WaitForFrame({0x01, 0x31}, 5ms));
}

TEST(RequestLog, SkipsWhatWasSeenAlready) {
  REQUEST_LOG log;
  log.Add(Numbered(1, {0x01, 0x30}));
  EXPECT_FALSE(log.WaitForFrame({0x01, 0x30}, 0ms, log.Last()));
  log.Add(Numbered(2, {0x01, 0x30}));
  EXPECT_TRUE(log.WaitForFrame({0x01, 0x30}, 0ms, 1));
  EXPECT_EQ(log.Since(1).size(), 1U);
}

TEST(RequestLog, HoldsABoundedNumber) {
  REQUEST_LOG log;
  for (std::uint64_t number = 1; number <= REQUEST_LOG::kCapacity + 10; ++number)
    log.Add(Numbered(number, {0x01, 0x30}));
  EXPECT_EQ(log.Since().size(), REQUEST_LOG::kCapacity);
  EXPECT_EQ(log.Since().front().number, 11U);
  EXPECT_EQ(log.Last(), REQUEST_LOG::kCapacity + 10);
}

}  // namespace
}  // namespace sim
