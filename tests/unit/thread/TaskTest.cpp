#include "thread/Task.h"

#include <gtest/gtest.h>
#include <pthread.h>

namespace vorn {

namespace {

class EMPTY_TASK : public CTask {
 public:
  bool Task() override { return true; }
};

}  // namespace

TEST(Task, HasTheStatusValuesThatAreDocumented) {
  EXPECT_EQ(static_cast<int>(kTaskQueued), 1);
  EXPECT_EQ(static_cast<int>(kTaskRunning), 2);
  EXPECT_EQ(static_cast<int>(kTaskCompleted), 3);
}

TEST(Task, IsNewAndBelongsToNoThreadAtFirst) {
  EMPTY_TASK task;
  EXPECT_EQ(task.TaskStatus(), kTaskNew);
  EXPECT_EQ(task.ThreadId(), pthread_t{0});
}

TEST(Task, KeepsTheStatusThatIsSet) {
  EMPTY_TASK task;
  for (const TaskStatus_t status : {kTaskQueued, kTaskRunning, kTaskCompleted}) {
    task.SetTaskStatus(status);
    EXPECT_EQ(task.TaskStatus(), status);
  }
}

TEST(Task, KeepsTheThreadItWasHandedTo) {
  EMPTY_TASK task;
  task.SetThreadId(pthread_self());
  EXPECT_EQ(task.ThreadId(), pthread_self());
}

}  // namespace vorn
