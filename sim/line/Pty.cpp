#include "sim/line/Pty.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace sim {

namespace {

std::string ErrorText(int number) {
  return std::generic_category().message(number);
}

std::string LinkTarget(const std::string& path) {
  std::error_code error;
  const std::filesystem::path target = std::filesystem::read_symlink(path, error);
  return error ? std::string() : target.string();
}

std::string WhyRefused(const std::string& linkPath, int number) {
  std::string why = "cannot make " + linkPath + ": " + ErrorText(number);
  if (number == EEXIST) {
    const std::string target = LinkTarget(linkPath);
    std::error_code error;
    if (!target.empty() && !std::filesystem::exists(linkPath, error)) {
      why += " (a link to " + target + ", which is gone: remove it, or take another number)";
    } else {
      why += " (take another number)";
    }
  }
  return why;
}

/// Not yet what a serial program would set, but no byte is changed, echoed or held back before it
/// does.
bool MakeRaw(int descriptor) {
  termios settings{};
  if (tcgetattr(descriptor, &settings) != 0) {
    return false;
  }
  cfmakeraw(&settings);
  return tcsetattr(descriptor, TCSANOW, &settings) == 0;
}

}  // namespace

PTY::~PTY() {
  Unplug();
}

RESULT PTY::Plug(const std::string& linkPath) {
  if (Plugged()) {
    return RESULT::Error("plugged in already as " + m_linkPath);
  }
  DESCRIPTOR master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  if (!master) {
    return RESULT::Error("cannot make a pseudo-terminal: " + ErrorText(errno));
  }
  std::array<char, 64> name{};
  if (grantpt(master.Get()) != 0 || unlockpt(master.Get()) != 0 ||
      ptsname_r(master.Get(), name.data(), name.size()) != 0) {
    return RESULT::Error("cannot set up the pseudo-terminal: " + ErrorText(errno));
  }
  DESCRIPTOR near(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!near || !MakeRaw(near.Get())) {
    return RESULT::Error(std::string("cannot set up ") + name.data() + ": " + ErrorText(errno));
  }
  if (symlink(name.data(), linkPath.c_str()) != 0) {
    return RESULT::Error(WhyRefused(linkPath, errno));
  }
  m_master = std::move(master);
  m_near = std::move(near);
  m_nearPath = name.data();
  m_linkPath = linkPath;
  return RESULT::Good();
}

void PTY::Unplug() {
  if (!Plugged()) {
    return;
  }
  if (LinkTarget(m_linkPath) == m_nearPath) {
    unlink(m_linkPath.c_str());
  }
  m_near.Close();
  m_master.Close();
  m_nearPath.clear();
  m_linkPath.clear();
}

void PTY::FlushTowardNear() {
  if (Plugged()) {
    tcflush(m_near.Get(), TCIFLUSH);
  }
}

}  // namespace sim
