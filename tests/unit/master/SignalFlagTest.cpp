#include "vorn/master/SignalFlag.h"

#include <gtest/gtest.h>

#include <csignal>

namespace vorn {

namespace {

class SignalFlag : public testing::Test {
 protected:
  SignalFlag() { pSignalFlag = &flag; }
  ~SignalFlag() override {
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
    pSignalFlag = nullptr;
  }

  SIGNAL_FLAG flag{kNoSignal};
};

TEST_F(SignalFlag, IsMinusOneWithoutASignal) {
  EXPECT_EQ(kNoSignal, -1);
  EXPECT_EQ(flag, -1);
}

TEST_F(SignalFlag, HoldsTheNumberOfTheSignalAndTheProcessGoesOn) {
  std::signal(SIGINT, SIGhandler);
  std::signal(SIGTERM, SIGhandler);
  std::raise(SIGTERM);
  EXPECT_EQ(flag, 15);
  std::raise(SIGINT);  // a second signal overwrites the first
  EXPECT_EQ(flag, 2);
  std::raise(SIGTERM);
  EXPECT_EQ(flag, 15);
}

}  // namespace

}  // namespace vorn
