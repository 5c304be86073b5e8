#include "tests/unit/thread/Faults.h"
#include "tests/unit/thread/TestThreads.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace vorn {

TEST(ThreadFailure, RefusedThreadIsToldAndInTheFaultStateUntilAStartSucceeds) {
  testing::internal::CaptureStderr();
  faults.threadCreation = EAGAIN;
  TEST_THREAD thread;
  faults.threadCreation = 0;
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "error: could not create thread, pthread_create failed (11)!\n");
  EXPECT_EQ(thread.ErrorFlags(), 0x04U);
  EXPECT_FALSE(thread.PingThread(1000));
  thread.Stop();
  EXPECT_EQ(thread.ThreadState(), kThreadFault);
  EXPECT_TRUE(thread.Start());
  EXPECT_EQ(thread.ErrorFlags(), 0U);
  EXPECT_TRUE(thread.PingThread(0));
}

TEST(ThreadFailure, RefusedStartReturnsFalse) {
  TEST_THREAD thread;
  thread.Stop();
  testing::internal::CaptureStderr();
  faults.threadCreation = EAGAIN;
  EXPECT_FALSE(thread.Start());
  faults.threadCreation = 0;
  testing::internal::GetCapturedStderr();
}

TEST(ThreadFailure, WithoutAnEventStackNoThreadIsStartedAndEveryItemRefused) {
  const unsigned int before = faults.threadsAsked;
  faults.allocation = true;
  TEST_THREAD thread;
  faults.allocation = false;
  EXPECT_EQ(faults.threadsAsked, before);
  EXPECT_EQ(thread.ThreadState(), kThreadFault);
  EXPECT_EQ(thread.ErrorFlags(), 0x20U);
  int item = 0;
  EXPECT_FALSE(thread.Push(&item));
  EXPECT_FALSE(thread.Event(&item));
  EXPECT_EQ(thread.GetEventsPending(), 0);
}

}  // namespace vorn
