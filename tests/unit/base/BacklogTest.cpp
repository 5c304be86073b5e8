#include "vorn/base/Backlog.h"

#include <gtest/gtest.h>

TEST(Backlog, IsFullFromItsLimitUntilHalfOfItIsGoneAndFillsUpOnce) {
  struct STEP {
    std::size_t waiting;
    bool fillsUp;
    bool isFull;
  };
  BACKLOG backlog(10);
  EXPECT_FALSE(backlog.IsFull());
  for (const STEP& step : {STEP{9, false, false}, STEP{10, true, true}, STEP{11, false, true},
                           STEP{5, false, true}, STEP{4, false, false}, STEP{9, false, false},
                           STEP{12, true, true}, STEP{0, false, false}}) {
    SCOPED_TRACE(step.waiting);
    EXPECT_EQ(backlog.FillsUp(step.waiting), step.fillsUp);
    EXPECT_EQ(backlog.IsFull(), step.isFull);
  }
}
