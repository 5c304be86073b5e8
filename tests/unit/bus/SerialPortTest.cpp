// The tty of an adapter, on a pseudo-terminal, and the listing of what there may be.

#include "tests/support/ProcessInfo.h"
#include "tests/support/unit/Folder.h"
#include "tests/support/unit/StubPauses.h"
#include "vorn/bus/SerialPort.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>

namespace vorn {

namespace unit {
namespace {

using PATHS = std::list<std::string>;

/// Descriptors of this process that lead to the path.
std::vector<int> OpeningsOf(const std::string& path) {
  std::vector<int> openings;
  for (const auto& [number, target] : support::OpenDescriptors(getpid())) {
    if (target == path) {
      openings.push_back(number);
    }
  }
  return openings;
}

class SerialPort : public testing::Test {
 protected:
  SerialPort() {
    std::array<char, 64> path{};
    EXPECT_EQ(grantpt(master.Get()), 0);
    EXPECT_EQ(unlockpt(master.Get()), 0);
    EXPECT_EQ(ptsname_r(master.Get(), path.data(), path.size()), 0);
    tty = path.data();
  }

  UNIQUE_FD master{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
  std::string tty;
  std::array<std::uint8_t, 16> bytes{};
  SERIAL_PORT port;
};

TEST_F(SerialPort, IsOpenedNonBlockingSynchronousAndUnknownToChildren) {
  ASSERT_TRUE(port.Open(tty));
  ASSERT_EQ(OpeningsOf(tty).size(), 1U);
  unsigned int flags = 0;  // from the kernel's own record
  for (const std::string& entry :
       ReadLines("/proc/self/fdinfo/" + std::to_string(OpeningsOf(tty).front()))) {
    std::istringstream text(entry);
    std::string name;
    if (text >> name && name == "flags:") {
      text >> std::oct >> flags;
    }
  }
  EXPECT_EQ(flags & O_ACCMODE, static_cast<unsigned int>(O_RDWR));
  EXPECT_TRUE(flags & O_NONBLOCK);
  EXPECT_TRUE(flags & O_DSYNC);
  EXPECT_TRUE(flags & O_CLOEXEC);
  errno = 0;
  EXPECT_EQ(port.Read(bytes.data(), bytes.size()), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(SerialPort, IsSetTo460800BaudRawWithEightDataBitsNoParityAndNoFlowControl) {
  ASSERT_TRUE(port.Open(tty));
  EXPECT_EQ(port.SetUp(), 0);
  termios settings{};
  ASSERT_EQ(tcgetattr(OpeningsOf(tty).front(), &settings), 0);
  EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B460800));
  EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B460800));
  EXPECT_EQ(settings.c_iflag, 0U);
  EXPECT_EQ(settings.c_oflag, 0U);
  EXPECT_EQ(settings.c_lflag, 0U);
  EXPECT_EQ(settings.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
  EXPECT_TRUE(settings.c_cflag & CREAD);
  EXPECT_EQ(settings.c_cflag & (PARENB | PARODD | CSTOPB | CRTSCTS), 0U);
  EXPECT_EQ(settings.c_cc[VTIME], 50);
  EXPECT_EQ(settings.c_cc[VMIN], 0);
}

TEST_F(SerialPort, CarriesBytesBothWays) {
  ASSERT_TRUE(port.Open(tty));
  ASSERT_EQ(port.SetUp(), 0);
  const std::array<std::uint8_t, 3> sent = {0x00, 0xFF, 0x0D};
  EXPECT_EQ(port.Write(sent.data(), sent.size()), 3);
  EXPECT_EQ(read(master.Get(), bytes.data(), bytes.size()), 3);
  EXPECT_TRUE(std::equal(sent.begin(), sent.end(), bytes.begin()));
  EXPECT_EQ(write(master.Get(), sent.data(), 2), 2);
  ssize_t count = -1;
  while (count == -1) {
    count = port.Read(bytes.data(), bytes.size());
  }
  EXPECT_EQ(count, 2);
  EXPECT_EQ(bytes[1], 0xFF);
}

TEST_F(SerialPort, ThatIsNotOpenCarriesNothing) {
  EXPECT_FALSE(port.Open("/dev/no-such-port"));
  EXPECT_EQ(port.Read(bytes.data(), bytes.size()), -1);
  EXPECT_EQ(port.Write(bytes.data(), bytes.size()), -1);
  EXPECT_EQ(port.SetUp(), EBADF);
}

TEST_F(SerialPort, IsOpenOnceHoweverOftenItIsOpenedAndClosedWithItsOwner) {
  {
    SERIAL_PORT other;
    ASSERT_TRUE(other.Open(tty));
    ASSERT_TRUE(other.Open(tty));
    EXPECT_EQ(OpeningsOf(tty).size(), 1U);
    other.Close();
    EXPECT_EQ(OpeningsOf(tty).size(), 0U);
    ASSERT_TRUE(other.Open(tty));
  }
  EXPECT_EQ(OpeningsOf(tty).size(), 0U);
}

TEST_F(SerialPort, ThatTakesNoSettingsStaysOpenUntilTheNextSearch) {
  const std::size_t before = OpeningsOf("/dev/null").size();
  for (int attempt = 0; attempt < 3; ++attempt) {
    ASSERT_TRUE(port.Open("/dev/null"));
    EXPECT_EQ(port.SetUp(), ENOTTY);
    port.Close();
    ASSERT_TRUE(port.Open(tty));
    EXPECT_EQ(port.SetUp(), 0);
    port.Close();
    port.Close();
    EXPECT_EQ(OpeningsOf("/dev/null").size(), before + 1);
    EXPECT_EQ(OpeningsOf(tty).size(), 0U);
    port.Search();
    EXPECT_EQ(OpeningsOf("/dev/null").size(), before);
  }
}

TEST_F(SerialPort, ThatTakesNoSettingsIsClosedWhereAnotherIsOpenedInItsPlace) {
  const std::size_t before = OpeningsOf("/dev/null").size();
  ASSERT_TRUE(port.Open("/dev/null"));
  EXPECT_EQ(port.SetUp(), ENOTTY);
  ASSERT_TRUE(port.Open(tty));
  EXPECT_EQ(OpeningsOf("/dev/null").size(), before);
  port.Close();
  EXPECT_EQ(OpeningsOf(tty).size(), 0U);
}

// --- the listing --------------------------------------------------------------------------------

TEST(ReadDeviceListing, GivesEachLineAsAPathInTheOrderOfTheListing) {
  const std::pair<std::string, PATHS> listings[] = {
      {"ttyUSB0\nttyUSB1\n", {"/dev/ttyUSB0", "/dev/ttyUSB1"}},
      {"ttyUSB10\nttyUSB2\n", {"/dev/ttyUSB10", "/dev/ttyUSB2"}},
      {"ttyUSB0\nttyUSB0\n", {"/dev/ttyUSB0", "/dev/ttyUSB0"}},
      {"ttyUSB99\n", {"/dev/ttyUSB99"}},  // eight characters, which are taken whole
      // A longer entry is taken in two pieces that both lose their last character.
      {"ttyUSB100\n", {"/dev/ttyUSB10", "/dev/"}},
      {"ttyUSB100\nttyUSB2\n", {"/dev/ttyUSB10", "/dev/", "/dev/ttyUSB2"}},
      {"my-ttyUSB-port\n", {"/dev/my-ttyUS", "/dev/-port"}},
      {"ttyUSB0", {"/dev/ttyUSB"}},  // as one without its line feed does
  };
  for (const auto& [text, paths] : listings) {
    std::string listed = text;
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(fmemopen(listed.data(), listed.size(), "r"),
                                                       &std::fclose);
    EXPECT_EQ(ReadDeviceListing(stream.get()), paths) << text;
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> nothing(std::fopen("/dev/null", "r"), &std::fclose);
  EXPECT_EQ(ReadDeviceListing(nothing.get()), PATHS());
}

TEST(GetUSBDevices, ListsTheDevicesFolderKeepsTheTtyUsbEntriesAndLeavesNoChildBehind) {
  const FOLDER folder;
  const std::pair<const char*, PATHS> listings[] = {
      {"[ $* = /dev ] && printf '%s\\n' null tty ttyS0 ttyUSB0 ttyUSB10 ttyUSB2 zero",
       {"/dev/ttyUSB0", "/dev/ttyUSB10", "/dev/ttyUSB2"}},
      {"printf '%s\\n' null tty ttyS0", {}},
      {"exit 127", {}},
  };
  const VARIABLE path("PATH", folder.Path() + ":/usr/bin:/bin");
  for (const auto& [script, paths] : listings) {
    WriteFile(folder.File("ls"), std::string("#!/bin/sh\n") + script + "\n");
    std::filesystem::permissions(folder.File("ls"), std::filesystem::perms::owner_all);
    EXPECT_EQ(GetUSBDevices(), paths) << script;
    EXPECT_EQ(SERIAL_PORT().Search(), paths) << script;
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace unit

}  // namespace vorn
