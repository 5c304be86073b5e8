#include "vorn/base/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

namespace vorn {

namespace {

int OpenNull() {
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool IsOpenNumber(int number) {
  return fcntl(number, F_GETFD) != -1;
}

}  // namespace

TEST(FileDescriptor, HoldsNothingAtFirst) {
  const FILE_DESCRIPTOR owner;
  EXPECT_FALSE(owner.IsOpen());
  EXPECT_EQ(owner.Get(), -1);
}

TEST(FileDescriptor, ClosesAtTheEndOfItsScope) {
  const int number = OpenNull();
  {
    const FILE_DESCRIPTOR owner(number);
    EXPECT_TRUE(owner.IsOpen());
    EXPECT_EQ(owner.Get(), number);
  }
  EXPECT_FALSE(IsOpenNumber(number));
}

TEST(FileDescriptor, ClosesOnce) {
  FILE_DESCRIPTOR owner(OpenNull());
  owner.Close();
  EXPECT_FALSE(owner.IsOpen());
  const FILE_DESCRIPTOR other(OpenNull());  // takes the number over
  owner.Close();
  EXPECT_TRUE(IsOpenNumber(other.Get()));
}

TEST(FileDescriptor, MovesTheOwnership) {
  const int number = OpenNull();
  FILE_DESCRIPTOR first(number);
  FILE_DESCRIPTOR second(std::move(first));
  EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(second.Get(), number);
}

TEST(FileDescriptor, ClosesWhatItHeldWhenAssigned) {
  const int first = OpenNull();
  const int second = OpenNull();
  FILE_DESCRIPTOR owner(first);
  owner = FILE_DESCRIPTOR(second);
  EXPECT_FALSE(IsOpenNumber(first));
  EXPECT_TRUE(IsOpenNumber(second));
  EXPECT_EQ(owner.Get(), second);
}

TEST(FileDescriptor, SurvivesAnAssignmentToItself) {
  FILE_DESCRIPTOR owner(OpenNull());
  FILE_DESCRIPTOR& same = owner;
  owner = std::move(same);
  EXPECT_TRUE(owner.IsOpen());
  EXPECT_TRUE(IsOpenNumber(owner.Get()));
}

TEST(FileDescriptor, ReleaseGivesTheDescriptorAway) {
  const int number = OpenNull();
  {
    FILE_DESCRIPTOR owner(number);
    EXPECT_EQ(owner.Release(), number);
    EXPECT_FALSE(owner.IsOpen());
    EXPECT_EQ(owner.Get(), -1);
  }
  EXPECT_TRUE(IsOpenNumber(number));
  close(number);
}

}  // namespace vorn
