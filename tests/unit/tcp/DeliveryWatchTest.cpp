#include "vorn/tcp/DeliveryWatch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace vorn {

namespace {

constexpr std::chrono::seconds kSecond{1};

/// One look a second, as the worker does it.
class DeliveryWatch : public testing::Test {
 protected:
  DeliveryWatch() { m_watch.Begin(m_now); }

  /// True where the client is given up at one of so many looks.
  bool IsGivenUpWithin(int looks, std::uint64_t underWay) {
    for (int i = 0; i < looks; ++i) {
      m_now += kSecond;
      if (m_watch.IsGivenUp(underWay, m_now)) {
        return true;
      }
    }
    return false;
  }

  DELIVERY_WATCH::TIME m_now{1000 * kSecond};
  DELIVERY_WATCH m_watch;
};

}  // namespace

TEST_F(DeliveryWatch, LooksOnceASecondWhileSomethingIsUnderWay) {
  constexpr auto kNever = DELIVERY_WATCH::TIME::max();
  EXPECT_EQ(m_watch.NextLook(), kNever);
  m_watch.Written(0, m_now);
  EXPECT_EQ(m_watch.NextLook(), kNever);
  m_watch.Written(100, m_now);
  EXPECT_EQ(m_watch.NextLook(), m_now + kSecond);
  m_watch.Written(100, m_now + kSecond / 2);
  EXPECT_EQ(m_watch.NextLook(), m_now + kSecond);
  m_now += 7 * kSecond;
  EXPECT_FALSE(m_watch.IsGivenUp(1, m_now));
  EXPECT_EQ(m_watch.NextLook(), m_now + kSecond);
  EXPECT_FALSE(m_watch.IsGivenUp(0, m_now + kSecond));
  EXPECT_EQ(m_watch.NextLook(), kNever);
}

TEST_F(DeliveryWatch, CountsFromTheWriteThatEndsALongRest) {
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(1, 0));
  m_now += 1000 * kSecond;
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(29, 100));
  EXPECT_TRUE(IsGivenUpWithin(1, 100));
}

TEST_F(DeliveryWatch, LeavesAnIdleClientAlone) {
  EXPECT_FALSE(IsGivenUpWithin(1000, 0));
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(1000, 0));
}

TEST_F(DeliveryWatch, GivesUpAClientThatAcknowledgesNothingForHalfAMinute) {
  EXPECT_FALSE(IsGivenUpWithin(100, 0));
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(29, 100));
  EXPECT_TRUE(IsGivenUpWithin(1, 100));
}

TEST_F(DeliveryWatch, CountsFromTheLatestProgressHoweverLittle) {
  m_watch.Written(100, m_now);
  for (std::uint64_t underWay = 100; underWay > 1; --underWay) {
    EXPECT_FALSE(IsGivenUpWithin(29, underWay));
  }
  EXPECT_FALSE(IsGivenUpWithin(29, 1));
  EXPECT_TRUE(IsGivenUpWithin(2, 1));
}

TEST_F(DeliveryWatch, TakesMoreThatIsWrittenForNoProgress) {
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(20, 100));
  m_watch.Written(50, m_now);
  EXPECT_FALSE(IsGivenUpWithin(9, 150));
  EXPECT_TRUE(IsGivenUpWithin(1, 150));
}

TEST_F(DeliveryWatch, BeginsAnewWithTheNextConnection) {
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(29, 100));
  m_watch.Begin(m_now);
  m_watch.Written(100, m_now);
  EXPECT_FALSE(IsGivenUpWithin(29, 100));
  EXPECT_TRUE(IsGivenUpWithin(1, 100));
}

}  // namespace vorn
