// Finding a port, and proving that a bus controller answers on it.

#include "tests/unit/bus/SerialFixture.h"

#include <cerrno>

namespace vorn {

namespace unit {
namespace {

using SerialLink = SERIAL_FIXTURE;

// --- the fixed path -----------------------------------------------------------------------------

TEST_F(SerialLink, FixedPathIsOpenedSetUpAndConfirmed) {
  SERIAL_INTERFACE& worker = Connect();
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(Log(), FoundAt(line));
  EXPECT_EQ(pauses.ThreadsThatDelayed(200), 1U);  // before the handshake
}

TEST_F(SerialLink, FixedPathThatCannotBeOpenedIsLoggedWithOneBlankAndNothingIsSearched) {
  line.List({line.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath, "/dev/no-such-port", {});
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(Log(), LINES({"[ERR] unable to open /dev/no-such-port for hardware communication"}));
  EXPECT_EQ(line.Searches(), 0);
}

TEST_F(SerialLink, FixedPathThatAnswersNotOrNoMoreStaysOpenAndUnconfirmed) {
  SERIAL_INTERFACE& worker = Connect();
  line.Expect(kHandshakeFrame, "");
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 1);
  EXPECT_EQ(line.Openings(), 1);
}

TEST_F(SerialLink, FixedPathThatTakesNoSettingsStaysOpenAndUnconfirmed) {
  line.RefuseSettings(ENOTTY);
  SERIAL_INTERFACE& worker = MakeWorker();
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 1);
  EXPECT_EQ(line.Openings(), 1);
  EXPECT_EQ(Log(), LINES({"[ERR] error 25 from tcsetattr"}));
}

TEST_F(SerialLink, AnyOtherSelectionTriesNothing) {
  line.List({line.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(static_cast<PORT_SELECTION>(3));
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(Log(), LINES());
  EXPECT_EQ(line.Openings(), 0);
}

TEST_F(SerialLink, ThePortIsClosedWithItsWorker) {
  Connect();
  serial.reset();
  EXPECT_EQ(line.Openings(), 0);
}

// --- the search ---------------------------------------------------------------------------------

using SerialSearch = SERIAL_FIXTURE;

TEST_F(SerialSearch, WithoutADeviceLogsOneLineForEachAttempt) {
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_FALSE(worker.Init());
    EXPECT_EQ(worker.LinkStatus(), 0);
  }
  EXPECT_EQ(Log(), LINES(2, "[ERR] ttyUSB devices couldn't be found"));
}

TEST_F(SerialSearch, TakesTheFirstDeviceThatAnswersAndTriesNoOther) {
  line.List({line.Path(), second.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(second.Openings(), 0);
  EXPECT_EQ(Log(), FoundAt(line));
}

TEST_F(SerialSearch, ClosesADeviceThatIsSilentGoesOnWithTheNextAndKeepsItsPath) {
  line.List({line.Path(), second.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, "");
  second.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 3);
  EXPECT_EQ(line.Openings(), 0);
  EXPECT_EQ(second.Openings(), 1);
  EXPECT_EQ(Log(),
            LINES({"[INF] try to catch hardware on " + line.Path(),
                   "[INF] comm timeout " + line.Path(), FoundAt(second)[0], FoundAt(second)[1]}));
  second.Expect("02 50 01", "");
  worker.BusQueue(1).ToQueue(HexList("50 01"));
  worker.OnTask();
  EXPECT_EQ(Log().back(), "[INF] comm timeout " + second.Path());
}

TEST_F(SerialSearch, ThatFindsNoControllerEndsUnconnected) {
  line.List({line.Path(), second.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, "");
  second.Expect(kHandshakeFrame, "");
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
  EXPECT_EQ(line.Openings() + second.Openings(), 0);
}

TEST_F(SerialSearch, LogsADeviceThatCannotBeOpenedWithTwoBlanksAndGoesOn) {
  line.List({"/dev/noport", line.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.Init());
  EXPECT_EQ(Log().front(), "[ERR] unable to  open /dev/noport for hardware communication");
}

TEST_F(SerialSearch, LeavesADeviceThatTakesNoSettingsOpenOnceAndGoesOnWithTheNext) {
  line.List({line.Path(), second.Path()});
  line.RefuseSettings(ENOTTY);
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  for (int attempt = 1; attempt <= 3; ++attempt) {
    second.Expect(kHandshakeFrame, attempt < 3 ? "" : kHandshakeReply);
    EXPECT_EQ(worker.Init(), attempt == 3);
    EXPECT_EQ(worker.LinkStatus(), attempt < 3 ? 0 : 3);
    EXPECT_EQ(line.Openings(), 1);
  }
  EXPECT_EQ(Log().front(), "[ERR] error 25 from tcsetattr");
  line.List({line.Path()});
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
}

TEST_F(SerialSearch, EndsWithoutATimeoutLineWhenThePortIsToBeClosed) {
  line.List({line.Path(), second.Path()});
  SERIAL_INTERFACE& worker = MakeWorker(kSearchDevices);
  line.AnswerWith([&](const BYTES&) {
    worker.ClosePort();
    return BYTES();
  });
  EXPECT_FALSE(worker.Init());
  EXPECT_EQ(worker.LinkStatus(), 0);
  EXPECT_EQ(Log(), LINES({"[INF] try to catch hardware on " + line.Path()}));
  EXPECT_EQ(line.Openings() + second.Openings(), 0);
}

// --- the handshake ------------------------------------------------------------------------------

TEST_F(SerialLink, VersionIsTheFourCharactersBehindTheReplyCodeOrWhatThereIs) {
  for (const std::string body : {"x2.15zz", "x2.1", "x2", "x"}) {
    SERIAL_INTERFACE& worker = MakeWorker();
    line.Expect(Hex(kHandshakeFrame), Frame(BYTES(body.begin(), body.end())));
    EXPECT_TRUE(worker.Init());
    EXPECT_EQ(Log().back(),
              "[INF] hardware found on " + line.Path() + " version: " + body.substr(1, 4));
  }
}

TEST_F(SerialLink, AnErrorReplyIsRejectedSilentlyButOneOfATimeout) {
  const std::pair<const char*, std::string> replies[] = {
      {"01 4E", "try to catch hardware on "},
      {"00", "try to catch hardware on "},
      {"05 23 31 2E 30 37", "try to catch hardware on "},
      {"05 54 31 2E 30 37", "comm timeout "},
  };
  for (const auto& [reply, text] : replies) {
    SCOPED_TRACE(reply);
    SERIAL_INTERFACE& worker = MakeWorker();
    line.Expect(kHandshakeFrame, reply);
    EXPECT_FALSE(worker.Init());
    EXPECT_EQ(Log().back(), "[INF] " + text + line.Path());
  }
}

TEST_F(SerialLink, HardwareCheckNamesThePortItIsGiven) {
  SERIAL_INTERFACE& worker = Connect();
  line.Expect(kHandshakeFrame, kHandshakeReply);
  EXPECT_TRUE(worker.HardwareCheck("the port"));
  const LINES log = Log();
  ASSERT_EQ(log.size(), 4U);
  EXPECT_EQ(log[2], "[INF] try to catch hardware on the port");
  EXPECT_EQ(log[3], "[INF] hardware found on the port version: 1.07");
}

// --- an exchange as bytes -----------------------------------------------------------------------

TEST_F(SerialLink, Comm2HWGivesTheReplysBodyOrTmeOrLceOrNothing) {
  SERIAL_INTERFACE& worker = Connect();
  const auto send = [&](const QList& body) {
    const QList reply = worker.Comm2HW(body);
    return std::string(reply.begin(), reply.end());
  };
  EXPECT_EQ(send({}), "LCE");
  EXPECT_EQ(send(QList(255, '\x20')), "");
  const std::pair<const char*, std::string> replies[] = {
      {"03 51 41 42", "QAB"}, {"", "TME"}, {"02 54 41", "TA"}, {"02 4E 41", "NA"}, {"00", ""},
  };
  for (const auto& [reply, bytes] : replies) {
    line.Expect("01 20", reply);
    EXPECT_EQ(send(HexList("20")), bytes) << reply;
  }
}

TEST_F(SerialLink, AFailedWriteIsLoggedWithTwoBlanks) {
  SERIAL_INTERFACE& worker = MakeWorker(kFixedPath, "/dev/no-such-port", {});
  const QList reply = worker.Comm2HW(HexList("20"));
  EXPECT_EQ(std::string(reply.begin(), reply.end()), "TME");
  EXPECT_EQ(Log().back(), "[ERR] unable to  write to /dev/no-such-port");
}

}  // namespace
}  // namespace unit

}  // namespace vorn
