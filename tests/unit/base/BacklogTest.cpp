#include "vorn/base/Backlog.h"

#include <gtest/gtest.h>

namespace vorn {

TEST(Backlog, IsFullFromItsMarkOnAndTellsItOnceUntilHalfOfThatIsGone) {
  struct STEP {
    std::size_t waiting;
    bool isFull;
    bool hasJustFilled;
  };
  BACKLOG backlog(10);
  EXPECT_FALSE(backlog.IsFull());
  EXPECT_FALSE(backlog.HasJustFilled());
  for (const STEP& step :
       {STEP{9, false, false}, STEP{10, true, true}, STEP{11, true, false}, STEP{9, false, false},
        STEP{10, true, false}, STEP{5, false, false}, STEP{10, true, false}, STEP{4, false, false},
        STEP{9, false, false}, STEP{12, true, true}, STEP{0, false, false}}) {
    SCOPED_TRACE(step.waiting);
    backlog.Note(step.waiting);
    EXPECT_EQ(backlog.IsFull(), step.isFull);
    EXPECT_EQ(backlog.HasJustFilled(), step.hasJustFilled);
  }
}

}  // namespace vorn
