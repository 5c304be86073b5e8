// How fast the simulated rack answers: sixteen input cards polled in turn, one request on its way
// at a time, as the daemon does it. Prints requests a second and how long an answer took.
//
// usage: simulator_rate [REQUESTS [FEWEST-A-SECOND [LONGEST-US]]]
//
// With limits the exit status is 1 when they are not kept: fewer requests a second, or a 99.9th
// percentile above the microseconds.

#include "sim/line/Adapter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using CLOCK = std::chrono::steady_clock;

/// One poll and its answer by spinning on a port that does not block, as the daemon reads. False
/// when the answer does not come within a second.
bool Exchange(int port, const sim::Bytes& frame, std::size_t answerSize) {
  if (write(port, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size())) {
    return false;
  }
  const auto deadline = CLOCK::now() + std::chrono::seconds(1);
  std::uint8_t buffer[256];
  std::size_t received = 0;
  while (received < answerSize) {
    const ssize_t count = read(port, buffer, sizeof buffer);
    if (count > 0) {
      received += static_cast<std::size_t>(count);
    } else if (CLOCK::now() > deadline) {
      return false;
    }
  }
  return received == answerSize;
}

long Argument(int argc, char** argv, int index, long otherwise) {
  if (index >= argc) {
    return otherwise;
  }
  long value = 0;
  const char* end = argv[index] + std::strlen(argv[index]);
  const auto [stop, error] = std::from_chars(argv[index], end, value);
  if (error != std::errc() || stop != end || value <= 0) {
    std::fprintf(stderr, "simulator_rate: '%s' is no number above 0\n", argv[index]);
    std::exit(2);
  }
  return value;
}

}  // namespace

int main(int argc, char** argv) {
  const auto requests = static_cast<std::size_t>(Argument(argc, argv, 1, 200000));
  const long fewestASecond = Argument(argc, argv, 2, 0);
  const long longestUs = Argument(argc, argv, 3, 0);

  std::string folder = (std::filesystem::temp_directory_path() / "simulator-rate-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    std::perror("simulator_rate");
    return 2;
  }
  sim::RACK rack;
  for (int slot = 0; slot < sim::kSlots; ++slot) {
    rack.Insert(slot, slot % 2 == 0 ? sim::type::kDigitalInput : sim::type::kAnalogue);
  }
  int status = 0;
  {
    sim::ADAPTER adapter(&rack, {.devDir = folder});
    if (const sim::RESULT plugged = adapter.Plug(0); !plugged) {
      std::fprintf(stderr, "simulator_rate: %s\n", plugged.text.c_str());
      return 2;
    }
    const sim::DESCRIPTOR port(
        open(adapter.LinkPath().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::vector<double> microseconds;
    microseconds.reserve(requests);
    const auto begin = CLOCK::now();
    for (std::size_t i = 0; i < requests; ++i) {
      const auto slot = static_cast<std::uint8_t>(i % sim::kSlots);
      const std::uint8_t inputs = slot % 2 == 0 ? 2 : 6;
      const auto sent = CLOCK::now();
      if (!Exchange(port.Get(), {0x03, 0x20, slot, inputs}, inputs + std::size_t{3})) {
        std::fprintf(stderr, "simulator_rate: request %zu was not answered\n", i);
        return 1;
      }
      microseconds.push_back(
          std::chrono::duration<double, std::micro>(CLOCK::now() - sent).count());
    }
    const std::chrono::duration<double> took = CLOCK::now() - begin;
    std::sort(microseconds.begin(), microseconds.end());
    const auto percentile = [&](double share) {
      return microseconds[static_cast<std::size_t>(share * static_cast<double>(requests - 1))];
    };
    const double rate = static_cast<double>(requests) / took.count();
    std::printf(
        "%.0f requests a second; an answer takes %.1f us (median), %.1f us (99 %%), %.1f us "
        "(99.9 %%), %.1f us (longest); %s priority\n",
        rate, percentile(0.5), percentile(0.99), percentile(0.999), microseconds.back(),
        adapter.RealTime() ? "real-time" : "normal");
    if ((fewestASecond > 0 && rate < static_cast<double>(fewestASecond)) ||
        (longestUs > 0 && percentile(0.999) > static_cast<double>(longestUs))) {
      status = 1;
    }
  }
  std::filesystem::remove_all(folder);
  return status;
}
