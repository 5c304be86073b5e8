// SERIAL_INTERFACE: finding a port, setting it up, and proving that a bus controller answers on it.

#include "thread/Pause.h"
#include "vorn/base/Values.h"
#include "vorn/bus/SERIAL_INTERFACE.h"
#include "vorn/bus/UsbDevices.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <list>
#include <utility>

namespace {

/// Non-blocking for the whole of the port's life: every read is a poll.
constexpr int kOpenFlags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_DSYNC | O_CLOEXEC;

/// The BSD set-attributes request ('t', 20, a 60-byte argument). Linux refuses it; tcsetattr does
/// the work.
constexpr unsigned long kBsdSetAttributes = 0x403C7414;

constexpr cc_t kReadTimeoutTenths = 50;  // 5 s; without effect on a non-blocking port

constexpr unsigned int kPauseBeforeHandshake =
    2000;  // Sleep units: 200 µs for a freshly opened port

}  // namespace

bool SERIAL_INTERFACE::Init() {
  m_receiveBuffer.fill(0);
  m_receiveCount = 0;
  switch (m_selection) {
    case kFixedPath:
      return InitFixedPath();
    case kSearchDevices:
      return InitSearch();
  }
  return false;
}

/// A port that fails its check stays open, with the status that says so.
bool SERIAL_INTERFACE::InitFixedPath() {
  if (!OpenPort()) {
    m_logger.WriteLog(kErr, "unable to open " + m_devicePath + " for hardware communication");
    return false;
  }
  m_linkStatus = kPortOpen;
  if (!SetSerialParams() || !HardwareCheck(m_devicePath)) {
    return false;
  }
  m_linkStatus = kControllerFound;
  return true;
}

bool SERIAL_INTERFACE::InitSearch() {
  m_leftOpen.clear();
  const std::list<std::string> candidates = GetUSBDevices();
  if (candidates.empty()) {
    m_logger.WriteLog(kErr, "ttyUSB devices couldn't be found");
    m_linkStatus = kNotConnected;
    return false;
  }
  for (const std::string& candidate : candidates) {
    if (m_closeRequested) {
      break;
    }
    m_devicePath = candidate;
    if (TryDevice()) {
      m_linkStatus = kControllerFound;
      return true;
    }
  }
  return false;
}

bool SERIAL_INTERFACE::TryDevice() {
  if (!OpenPort()) {
    m_logger.WriteLog(kErr, "unable to  open " + m_devicePath + " for hardware communication");
    return false;
  }
  m_linkStatus = kPortOpen;
  if (!SetSerialParams()) {
    m_linkStatus = kNotConnected;
    m_leftOpen.push_back(std::move(m_port));
    return false;
  }
  if (!HardwareCheck(m_devicePath)) {
    LoseLink();
    return false;
  }
  return true;
}

bool SERIAL_INTERFACE::OpenPort() {
  m_port = FILE_DESCRIPTOR(open(m_devicePath.c_str(), kOpenFlags));
  return m_port.IsOpen();
}

void SERIAL_INTERFACE::LoseLink() {
  m_port.Close();
  if (m_linkStatus == kControllerFound) {
    m_isLostInOnePass = !m_hasCarriedPass;
  }
  m_linkStatus = kNotConnected;
  if (m_isServing.Exchange(false)) {
    m_isLossTold = false;
  }
}

bool SERIAL_INTERFACE::SetSerialParams() {
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
  ioctl(m_port.Get(), kBsdSetAttributes, &line);
  if (tcsetattr(m_port.Get(), TCSANOW, &line) != 0) {
    m_logger.WriteLog(kErr, "error " + ITOA(errno) + " from tcsetattr");
    return false;
  }
  return true;
}

bool SERIAL_INTERFACE::HardwareCheck(const std::string& port) {
  m_logger.WriteLog(kInf, "try to catch hardware on " + port);
  Sleep(kPauseBeforeHandshake);
  const QList reply = Comm2HW(bus::HandshakeRequest());
  switch (GetQListError(reply)) {
    case kNoError: {
      // Four characters behind the reply code; a shorter reply shows what it has.
      const std::string text = Convert_QList2String(reply);
      const std::string version = text.size() > 1 ? text.substr(1, 4) : std::string();
      m_logger.WriteLog(kInf, "hardware found on " + port + " version: " + version);
      return true;
    }
    case kTimeout:
      if (!m_closeRequested) {  // else the wait was cut short: the controller is not to blame
        m_logger.WriteLog(kInf, "comm timeout " + port);
      }
      return false;
    default:
      return false;
  }
}
