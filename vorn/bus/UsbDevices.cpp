#include "vorn/bus/UsbDevices.h"

#include <array>

namespace {

constexpr const char* kListCommand = "ls /dev | grep ttyUSB";
/// "ttyUSB10" and its line feed, and the terminating zero.
constexpr std::size_t kPieceBufferSize = 10;

}  // namespace

std::list<std::string> ReadDeviceListing(FILE* listing) {
  std::list<std::string> devices;
  std::array<char, kPieceBufferSize> piece{};
  while (fgets(piece.data(), static_cast<int>(piece.size()), listing) != nullptr) {
    std::string path = std::string("/dev/") + piece.data();
    path.pop_back();  // meant to be the line feed
    devices.push_back(path);
  }
  return devices;
}

std::list<std::string> GetUSBDevices() {
  FILE* const listing = popen(kListCommand, "re");
  if (listing == nullptr) {
    return {};
  }
  std::list<std::string> devices = ReadDeviceListing(listing);
  pclose(listing);
  return devices;
}
