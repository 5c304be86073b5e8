#include "thread/UniqueFd.h"

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

TEST(UniqueFd, HoldsNothingAtFirst) {
  const UNIQUE_FD owner;
  EXPECT_FALSE(owner.IsOpen());
  EXPECT_EQ(owner.Get(), -1);
}

TEST(UniqueFd, ClosesAtTheEndOfItsScope) {
  const int number = OpenNull();
  {
    const UNIQUE_FD owner(number);
    EXPECT_TRUE(owner.IsOpen());
    EXPECT_EQ(owner.Get(), number);
  }
  EXPECT_FALSE(IsOpenNumber(number));
}

TEST(UniqueFd, ClosesOnce) {
  UNIQUE_FD owner(OpenNull());
  owner.Close();
  EXPECT_FALSE(owner.IsOpen());
  const UNIQUE_FD other(OpenNull());  // takes the number over
  owner.Close();
  EXPECT_TRUE(IsOpenNumber(other.Get()));
}

TEST(UniqueFd, MovesTheOwnership) {
  const int number = OpenNull();
  UNIQUE_FD first(number);
  UNIQUE_FD second(std::move(first));
  EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(second.Get(), number);
}

TEST(UniqueFd, ClosesWhatItHeldWhenAssigned) {
  const int first = OpenNull();
  const int second = OpenNull();
  UNIQUE_FD owner(first);
  owner = UNIQUE_FD(second);
  EXPECT_FALSE(IsOpenNumber(first));
  EXPECT_TRUE(IsOpenNumber(second));
  EXPECT_EQ(owner.Get(), second);
}

TEST(UniqueFd, SurvivesAnAssignmentToItself) {
  UNIQUE_FD owner(OpenNull());
  UNIQUE_FD& same = owner;
  owner = std::move(same);
  EXPECT_TRUE(owner.IsOpen());
  EXPECT_TRUE(IsOpenNumber(owner.Get()));
}

TEST(UniqueFd, ReleaseGivesTheDescriptorAway) {
  const int number = OpenNull();
  {
    UNIQUE_FD owner(number);
    EXPECT_EQ(owner.Release(), number);
    EXPECT_FALSE(owner.IsOpen());
    EXPECT_EQ(owner.Get(), -1);
  }
  EXPECT_TRUE(IsOpenNumber(number));
  close(number);
}

}  // namespace vorn
