#include "tests/support/PrivateRun.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  const int status = support::RunPrivately(argc, argv);
  if (status >= 0) {
    return status;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
