#include "vorn/base/SharedField.h"

#include <gtest/gtest.h>

namespace vorn {

TEST(SharedField, HoldsZeroOrTheValueItIsMadeWith) {
  const SHARED_FIELD<int> zero;
  const SHARED_FIELD<int> seven = 7;
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(seven.Get(), 7);
}

TEST(SharedField, CopiesTheValueOnly) {
  SHARED_FIELD<int> original = 1;
  SHARED_FIELD<int> copy = original;
  original = 2;
  EXPECT_EQ(copy, 1);
  copy = original;
  EXPECT_EQ(copy, 2);
}

TEST(SharedField, ReplacesOnlyTheExpectedValue) {
  SHARED_FIELD<int> field = 1;
  EXPECT_FALSE(field.Replace(2, 3));
  EXPECT_EQ(field, 1);
  EXPECT_TRUE(field.Replace(1, 3));
  EXPECT_EQ(field, 3);
}

TEST(SharedField, ExchangeGivesTheFormerValue) {
  SHARED_FIELD<int> field = 1;
  EXPECT_EQ(field.Exchange(2), 1);
  EXPECT_EQ(field, 2);
}

}  // namespace vorn
