#pragma once

#include "vorn/master/DaemonControl.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace vorn {

namespace unit {

/// The daemon as the CAE commands see it. What happens elsewhere during a pause, a card's answer
/// above all, is what the test puts into `duringPause`.
class DAEMON_DOUBLE final : public DAEMON_CONTROL {
 public:
  void SetThreadDelays(std::int32_t delayUs) override { delaysUs.push_back(delayUs); }
  bool Polling() override { return polling; }
  void SetPolling(bool on) override { polling = on; }
  void CloseCaeConnection() override {
    if (onClose) {
      onClose();
    }
    ++closings;
  }
  void PauseSeconds(int seconds) override {
    pauses.push_back(seconds);
    if (duringPause) {
      duringPause(pauses.size());
    }
  }

  bool polling = false;
  int closings = 0;
  std::vector<std::int32_t> delaysUs;
  std::vector<int> pauses;
  std::function<void(std::size_t number)> duringPause;  // number: 1 for the first
  std::function<void()> onClose;
};

}  // namespace unit

}  // namespace vorn
