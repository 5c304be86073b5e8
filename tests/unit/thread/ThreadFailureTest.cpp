#include "tests/unit/thread/Faults.h"
#include "tests/unit/thread/TestThreads.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

namespace {

/// A thread that the system has refused; `message` is what that wrote to standard error.
std::unique_ptr<TEST_THREAD> MakeRefusedThread(std::string& message) {
  testing::internal::CaptureStderr();
  faults.threadCreation = EAGAIN;
  auto thread = std::make_unique<TEST_THREAD>();
  faults.threadCreation = 0;
  message = testing::internal::GetCapturedStderr();
  return thread;
}

std::unique_ptr<TEST_THREAD> MakeThreadWithoutStack() {
  faults.allocation = true;
  auto thread = std::make_unique<TEST_THREAD>();
  faults.allocation = false;
  return thread;
}

}  // namespace

TEST(ThreadFailure, RefusedThreadIsReportedOnStandardError) {
  std::string message;
  const auto thread = MakeRefusedThread(message);
  EXPECT_EQ(message, "error: could not create thread, pthread_create failed (11)!\n");
}

TEST(ThreadFailure, RefusedThreadLeavesTheFaultStateAndItsFlag) {
  std::string message;
  const auto thread = MakeRefusedThread(message);
  EXPECT_EQ(thread->ThreadState(), kThreadFault);
  EXPECT_EQ(thread->ErrorFlags(), 0x04U);
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

TEST(ThreadFailure, StartAfterARefusalClearsTheFlagAndRuns) {
  std::string message;
  const auto thread = MakeRefusedThread(message);
  EXPECT_TRUE(thread->Start());
  EXPECT_EQ(thread->ErrorFlags(), 0U);
  EXPECT_TRUE(thread->PingThread(0));
}

TEST(ThreadFailure, StopOfAThreadThatWasRefusedReturns) {
  std::string message;
  const auto thread = MakeRefusedThread(message);
  thread->Stop();
  EXPECT_EQ(thread->ThreadState(), kThreadFault);
}

TEST(ThreadFailure, PingOfAThreadThatWasRefusedGivesUp) {
  std::string message;
  const auto thread = MakeRefusedThread(message);
  EXPECT_FALSE(thread->PingThread(1000));
}

TEST(ThreadFailure, WithoutAnEventStackNoThreadIsStarted) {
  const unsigned int before = faults.threadsAsked;
  const auto thread = MakeThreadWithoutStack();
  EXPECT_EQ(faults.threadsAsked, before);
  EXPECT_EQ(thread->ThreadState(), kThreadFault);
  EXPECT_EQ(thread->ErrorFlags(), 0x20U);
}

TEST(ThreadFailure, WithoutAnEventStackEveryItemIsRefused) {
  const auto thread = MakeThreadWithoutStack();
  int item = 0;
  EXPECT_FALSE(thread->Push(&item));
  EXPECT_FALSE(thread->Event(&item));
  EXPECT_EQ(thread->GetEventsPending(), 0);
}
