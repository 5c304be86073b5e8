#include "vorn/master/SignalFlag.h"

namespace vorn {

SIGNAL_FLAG* pSignalFlag = nullptr;

void SIGhandler(int signalNumber) {
  pSignalFlag->store(signalNumber, std::memory_order_relaxed);
}

}  // namespace vorn
