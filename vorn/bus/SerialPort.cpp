#include "vorn/bus/SerialPort.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <array>
#include <cerrno>
#include <utility>

namespace vorn {

namespace {

constexpr int kOpenFlags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_DSYNC | O_CLOEXEC;

constexpr const char* kListCommand = "ls /dev | grep ttyUSB";
/// "ttyUSB10" and its line feed, and the terminating zero.
constexpr std::size_t kPieceBufferSize = 10;

/// The BSD set-attributes request ('t', 20, a 60-byte argument). Linux refuses it; tcsetattr does
/// the work.
constexpr unsigned long kBsdSetAttributes = 0x403C7414;

constexpr cc_t kReadTimeoutTenths = 50;  // 5 s; without effect on a non-blocking port

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

std::list<std::string> SERIAL_PORT::Search() {
  m_aside.clear();
  return GetUSBDevices();
}

bool SERIAL_PORT::Open(const std::string& path) {
  m_hasRefused = false;
  m_tty = UNIQUE_FD(open(path.c_str(), kOpenFlags));
  return m_tty.IsOpen();
}

int SERIAL_PORT::SetUp() {
  termios line{};
  cfmakeraw(&line);
  cfsetispeed(&line, B460800);
  cfsetospeed(&line, B460800);
  line.c_iflag &= ~static_cast<tcflag_t>(IGNBRK | IXON | IXANY | IXOFF);
  line.c_cflag |= CS8 | CREAD | CLOCAL;
  line.c_cflag &= ~static_cast<tcflag_t>(PARENB | PARODD | CSTOPB | CRTSCTS);
  line.c_oflag = 0;
  line.c_lflag = 0;
  line.c_cc[VTIME] = kReadTimeoutTenths;
  line.c_cc[VMIN] = 0;
  ioctl(m_tty.Get(), kBsdSetAttributes, &line);
  m_hasRefused = tcsetattr(m_tty.Get(), TCSANOW, &line) != 0;
  return m_hasRefused ? errno : 0;
}

void SERIAL_PORT::Close() {
  if (std::exchange(m_hasRefused, false)) {
    m_aside.push_back(std::move(m_tty));
  }
  m_tty.Close();
}

}  // namespace vorn
