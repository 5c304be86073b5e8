#include "tests/support/unit/Commands.h"
#include "vorn/bus/SerialPort.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <list>
#include <memory>
#include <string>

namespace {

using PATHS = std::list<std::string>;

PATHS ReadFrom(std::string text) {
  if (text.empty()) {
    const std::unique_ptr<FILE, int (*)(FILE*)> nothing(std::fopen("/dev/null", "r"), &std::fclose);
    return ReadDeviceListing(nothing.get());
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> listing(fmemopen(text.data(), text.size(), "r"),
                                                      &std::fclose);
  return ReadDeviceListing(listing.get());
}

TEST(ReadDeviceListing, OfAnEmptyListingIsEmpty) {
  EXPECT_EQ(ReadFrom(""), PATHS());
}

TEST(ReadDeviceListing, GivesEachLineAsAPathInTheOrderOfTheListing) {
  EXPECT_EQ(ReadFrom("ttyUSB0\nttyUSB1\n"), PATHS({"/dev/ttyUSB0", "/dev/ttyUSB1"}));
  EXPECT_EQ(ReadFrom("ttyUSB10\nttyUSB2\n"), PATHS({"/dev/ttyUSB10", "/dev/ttyUSB2"}));
}

TEST(ReadDeviceListing, KeepsDuplicates) {
  EXPECT_EQ(ReadFrom("ttyUSB0\nttyUSB0\n"), PATHS({"/dev/ttyUSB0", "/dev/ttyUSB0"}));
}

TEST(ReadDeviceListing, TakesAnEntryOfEightCharactersWhole) {
  EXPECT_EQ(ReadFrom("ttyUSB99\n"), PATHS({"/dev/ttyUSB99"}));
}

TEST(ReadDeviceListing, TakesALongerEntryInTwoPiecesThatBothLoseTheirLastCharacter) {
  EXPECT_EQ(ReadFrom("ttyUSB100\n"), PATHS({"/dev/ttyUSB10", "/dev/"}));
  EXPECT_EQ(ReadFrom("ttyUSB100\nttyUSB2\n"), PATHS({"/dev/ttyUSB10", "/dev/", "/dev/ttyUSB2"}));
  EXPECT_EQ(ReadFrom("my-ttyUSB-port\n"), PATHS({"/dev/my-ttyUS", "/dev/-port"}));
}

TEST(ReadDeviceListing, DropsTheLastCharacterOfALineWithoutItsLineFeed) {
  EXPECT_EQ(ReadFrom("ttyUSB0"), PATHS({"/dev/ttyUSB"}));
}

TEST(GetUSBDevices, ListsTheDevicesFolderAndKeepsTheTtyUsbEntries) {
  const unit::STUB_COMMANDS commands;
  commands.ListDevices({"null", "tty", "tty0", "ttyS0", "ttyUSB0", "ttyUSB10", "ttyUSB2", "zero"});
  EXPECT_EQ(GetUSBDevices(), PATHS({"/dev/ttyUSB0", "/dev/ttyUSB10", "/dev/ttyUSB2"}));
  EXPECT_EQ(commands.Listings(), std::vector<std::string>({"/dev"}));
}

TEST(GetUSBDevices, IsEmptyWithoutADevice) {
  const unit::STUB_COMMANDS commands;
  commands.ListDevices({"null", "tty", "ttyS0"});
  EXPECT_EQ(GetUSBDevices(), PATHS());
}

TEST(GetUSBDevices, IsEmptyWhereTheListingCannotBeRun) {
  const unit::STUB_COMMANDS commands;
  commands.Add("ls", "exit 127");
  EXPECT_EQ(GetUSBDevices(), PATHS());
}

TEST(GetUSBDevices, LeavesNoChildBehind) {
  const unit::STUB_COMMANDS commands;
  commands.ListDevices({"ttyUSB0"});
  GetUSBDevices();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
