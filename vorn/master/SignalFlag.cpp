#include "vorn/master/SignalFlag.h"

SIGNAL_FLAG* pSignalFlag = nullptr;

void SIGhandler(int signalNumber) {
  pSignalFlag->store(signalNumber, std::memory_order_relaxed);
}
