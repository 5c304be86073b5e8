// Finding a port, setting it up, and proving that a bus controller answers on it.

#include "tests/support/unit/SystemCalls.h"
#include "tests/unit/bus/SerialFixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace unit {
namespace {

class SerialPort : public SERIAL_FIXTURE {
 protected:
  using LINES = std::vector<std::string>;
};

/// The flags that a descriptor was opened with, from the kernel's own record.
unsigned int OpenFlags(int descriptor) {
  for (const std::string& entry : ReadLines("/proc/self/fdinfo/" + std::to_string(descriptor))) {
    std::istringstream text(entry);
    std::string name;
    unsigned int flags = 0;
    if (text >> name >> std::oct >> flags && name == "flags:") {
      return flags;
    }
  }
  return 0;
}

// --- the fixed path -----------------------------------------------------------------------------

TEST_F(SerialPort, FixedPathIsOpenedSetUpAndConfirmed) {
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath);
  line.Expect("03 40 6F 9A", "05 6F 31 2E 30 37");
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(Log(), LINES({"[INF] try to catch hardware on " + line.Path(),
                          "[INF] hardware found on " + line.Path() + " version: 1.07"}));
}

TEST_F(SerialPort, FixedPathThatCannotBeOpenedIsLoggedWithOneBlank) {
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath, "/dev/no-such-port", {});
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(Log(), LINES({"[ERR] unable to open /dev/no-such-port for hardware communication"}));
}

TEST_F(SerialPort, FixedPathWithoutAnAnswerStaysOpenAndUnconfirmed) {
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath);
  line.Expect(kHandshakeFrame, "");
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 1);
  EXPECT_EQ(line.Openings().size(), 1U);
}

TEST_F(SerialPort, FixedPathThatTakesNoSettingsStaysOpenAndUnconfirmed) {
  const FOLDER folder;
  const std::string path = folder.File("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath, path, {});
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 1);
  EXPECT_EQ(Log(), LINES({"[ERR] error 25 from tcsetattr"}));  // ENOTTY
}

TEST_F(SerialPort, FixedPathNeverSearches) {
  commands.ListDevices({line.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath, "/dev/no-such-port", {});
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(commands.Listings(), LINES());
}

TEST_F(SerialPort, AnyOtherSelectionTriesNothing) {
  commands.ListDevices({line.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(static_cast<PORT_SELECTION>(3));
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(Log(), LINES());
  EXPECT_EQ(line.Openings(), std::vector<int>());
}

// --- the search ---------------------------------------------------------------------------------

TEST_F(SerialPort, SearchWithoutADeviceLogsOneLineForEachAttempt) {
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
  EXPECT_EQ(Log(), LINES({"[ERR] ttyUSB devices couldn't be found",
                          "[ERR] ttyUSB devices couldn't be found"}));
}

TEST_F(SerialPort, SearchTakesTheFirstDeviceThatAnswersAndTriesNoOther) {
  FAR_END second;
  commands.ListDevices({line.Entry(), second.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(second.Openings(), std::vector<int>());
  EXPECT_EQ(Log(), LINES({"[INF] try to catch hardware on " + line.Path(),
                          "[INF] hardware found on " + line.Path() + " version: 1.07"}));
}

TEST_F(SerialPort, SearchClosesADeviceThatIsSilentAndGoesOnWithTheNext) {
  FAR_END second;
  commands.ListDevices({line.Entry(), second.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, "");
  second.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(line.Openings(), std::vector<int>());
  EXPECT_EQ(second.Openings().size(), 1U);
  EXPECT_EQ(Log(), LINES({"[INF] try to catch hardware on " + line.Path(),
                          "[INF] comm timeout " + line.Path(),
                          "[INF] try to catch hardware on " + second.Path(),
                          "[INF] hardware found on " + second.Path() + " version: 1.07"}));
}

TEST_F(SerialPort, SearchKeepsThePathOfTheDeviceThatAnswered) {
  FAR_END second;
  commands.ListDevices({line.Entry(), second.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, "");
  second.Expect(kHandshakeFrame, kHandshakeReply);
  ASSERT_TRUE(worker.Init());
  second.Expect("02 50 01", "");
  worker.BusQueue(1).ToQueue(HexList("50 01"));
  worker.OnTask();
  EXPECT_EQ(Log().back(), "[INF] comm timeout " + second.Path());
}

TEST_F(SerialPort, SearchThatFindsNoControllerEndsUnconnected) {
  FAR_END second;
  commands.ListDevices({line.Entry(), second.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, "");
  second.Expect(kHandshakeFrame, "");
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
  EXPECT_EQ(line.Openings().size() + second.Openings().size(), 0U);
}

TEST_F(SerialPort, SearchLogsADeviceThatCannotBeOpenedWithTwoBlanksAndGoesOn) {
  commands.ListDevices({"noport", line.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(Log().front(), "[ERR] unable to  open /dev/noport for hardware communication");
}

TEST_F(SerialPort, SearchTakesAnEntryThatIsTooLongAsTwoPathsThatFailToOpen) {
  commands.ListDevices({"ttyUnit100"});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(Log(), LINES({"[ERR] unable to  open /dev/ttyUnit1 for hardware communication",
                          "[ERR] unable to  open /dev/0 for hardware communication"}));
}

TEST_F(SerialPort, SearchLeavesADeviceThatTakesNoSettingsOpenAndGoesOnWithTheNext) {
  commands.ListDevices({"null", line.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(Log(), LINES({"[ERR] error 25 from tcsetattr",  // ENOTTY
                          "[INF] try to catch hardware on " + line.Path(),
                          "[INF] hardware found on " + line.Path() + " version: 1.07"}));
}

TEST_F(SerialPort, SearchThatEndsWithADeviceThatTakesNoSettingsIsUnconnected) {
  commands.ListDevices({"null"});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
}

TEST_F(SerialPort, ADeviceThatTakesNoSettingsIsHeldOpenOnceHoweverOftenItIsTried) {
  commands.ListDevices({"null"});
  const auto countOpenings = [] {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
      std::error_code none;
      count += std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none) ==
                       "/dev/null"
                   ? 1
                   : 0;
    }
    return count;
  };
  const int before = countOpenings();
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  for (int attempt = 0; attempt < 5; ++attempt) {
    EXPECT_FALSE(worker.Init());
    EXPECT_EQ(countOpenings(), before + 1);
  }
  serial.reset();
  EXPECT_EQ(countOpenings(), before);
}

TEST_F(SerialPort, SearchEndsWithoutATimeoutLineWhenThePortIsToBeClosed) {
  FAR_END second;
  commands.ListDevices({line.Entry(), second.Entry()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.AnswerWith([&](const BYTES&) {
    worker.ClosePort();
    return BYTES();
  });
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
  EXPECT_EQ(Log(), LINES({"[INF] try to catch hardware on " + line.Path()}));
  EXPECT_EQ(line.Openings().size() + second.Openings().size(), 0U);
}

// --- how a port is opened and set up ------------------------------------------------------------

TEST_F(SerialPort, IsOpenedNonBlockingSynchronousAndUnknownToChildren) {
  Connect();
  const std::vector<int> openings = line.Openings();
  ASSERT_EQ(openings.size(), 1U);
  const unsigned int flags = OpenFlags(openings.front());
  EXPECT_EQ(flags & O_ACCMODE, static_cast<unsigned int>(O_RDWR));
  EXPECT_TRUE(flags & O_NONBLOCK);
  EXPECT_TRUE(flags & O_DSYNC);
  EXPECT_TRUE(flags & O_CLOEXEC);
}

TEST_F(SerialPort, IsClosedWithItsWorker) {
  Connect();
  serial.reset();
  EXPECT_EQ(line.Openings(), std::vector<int>());
}

TEST_F(SerialPort, IsRawAt460800BaudWithEightDataBitsNoParityAndNoFlowControl) {
  Connect();
  const termios settings = line.Settings();
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

TEST_F(SerialPort, AsksForTheBsdSettingsFirstAndIgnoresTheRefusal) {
  const CALLS_RECORDED calls;
  Connect();
  const std::vector<unsigned long> requests = calls.Requests();
  EXPECT_EQ(std::count(requests.begin(), requests.end(), 0x403C7414UL), 1);
}

TEST_F(SerialPort, RestsTwoHundredMicrosecondsBeforeTheHandshake) {
  const CALLS_RECORDED calls;
  Connect();
  EXPECT_EQ(calls.ThreadsThatPaused(200'000), 1U);
}

// --- the handshake ------------------------------------------------------------------------------

TEST_F(SerialPort, VersionIsTheFourCharactersBehindTheReplyCode) {
  SERIAL_INTERFACE& worker = MakeWorker();
  line.Expect(Hex(kHandshakeFrame), Frame(BYTES{'x', '2', '.', '1', '5', 'z', 'z'}));
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(Log().back(), "[INF] hardware found on " + line.Path() + " version: 2.15");
}

TEST_F(SerialPort, VersionOfAShortReplyIsWhatThereIs) {
  for (const BYTES& body : {BYTES{'x'}, BYTES{'x', '2'}, BYTES{'x', '2', '.', '1'}}) {
    SERIAL_INTERFACE& worker = MakeWorker();
    line.Expect(Hex(kHandshakeFrame), Frame(body));
    EXPECT_TRUE(worker.Init());
    EXPECT_EQ(Log().back(), "[INF] hardware found on " + line.Path() +
                                " version: " + std::string(body.begin() + 1, body.end()));
  }
}

TEST_F(SerialPort, ErrorRepliesOtherThanATimeoutAreRejectedSilently) {
  for (const char* const reply :
       {"01 12", "01 23", "01 24", "01 4E", "01 42", "01 43", "00", "05 23 31 2E 30 37"}) {
    SCOPED_TRACE(reply);
    SERIAL_INTERFACE& worker = MakeWorker();
    line.Expect(kHandshakeFrame, reply);
    EXPECT_FALSE(worker.Init());
    EXPECT_EQ(Log().back(), "[INF] try to catch hardware on " + line.Path());
  }
}

TEST_F(SerialPort, AReplyThatBeginsWithTCountsAsATimeout) {
  SERIAL_INTERFACE& worker = MakeWorker();
  line.Expect(kHandshakeFrame, "05 54 31 2E 30 37");
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(Log().back(), "[INF] comm timeout " + line.Path());
}

TEST_F(SerialPort, HardwareCheckNamesThePortItIsGiven) {
  SERIAL_INTERFACE& worker = Connect();
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.HardwareCheck("the port"));
  const LINES log = Log();
  ASSERT_EQ(log.size(), 4U);
  EXPECT_EQ(log[2], "[INF] try to catch hardware on the port");
  EXPECT_EQ(log[3], "[INF] hardware found on the port version: 1.07");
}

TEST_F(SerialPort, FixedPathThatNoLongerAnswersIsUnconfirmedAgain) {
  SERIAL_INTERFACE& worker = Connect();
  line.Expect(kHandshakeFrame, "");
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 1);
}

}  // namespace
}  // namespace unit
