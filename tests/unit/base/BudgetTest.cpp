#include "vorn/base/Budget.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace vorn {

namespace {

constexpr std::size_t kMega = 1024 * 1024;

}  // namespace

TEST(Budget, AMarkStandsAtItsShares) {
  EXPECT_EQ(BytesAt(MARK::kMachineIsHeldBack), 40U * 1024);
  EXPECT_EQ(BytesAt(MARK::kBusIsBehind), 4U * 1024);
  EXPECT_EQ(BytesAt(MARK::kOperatorWaitsForAnswers), 336U * 1024);
}

TEST(Budget, HasARowForEachMarkAndThoseOfOneQueueStandTogetherAndRise) {
  std::set<MARK> marks;
  std::map<QUEUE_KIND, std::size_t> last;
  for (std::size_t i = 0; i < kBudget.size(); ++i) {
    const BUDGET_ROW& row = kBudget.at(i);
    EXPECT_TRUE(marks.insert(row.mark).second) << row.what;
    EXPECT_GT(row.shares, last[row.queue]) << row.what;
    if (last[row.queue] != 0) {
      EXPECT_EQ(kBudget.at(i - 1).queue, row.queue) << row.what;
      EXPECT_EQ(kBudget.at(i - 1).queues, row.queues) << row.what;
    }
    last[row.queue] = row.shares;
  }
  EXPECT_EQ(marks.size(), static_cast<std::size_t>(MARK::kOperatorWaitsForAnswers) + 1);
}

TEST(Budget, FitsTheMemoryThatIsPromised) {
  // A byte of a list is a node: two pointers, the byte, and what the allocator adds.
  EXPECT_LE(MostWaitingBytes() * 32, 24 * kMega);  // under 32 MB, with some 4 of the program's own
  EXPECT_LE(MostWaitingBytes() * 16, 12 * kMega);  // under 16 MB on the board
}

}  // namespace vorn
