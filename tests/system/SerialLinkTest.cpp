#include "sim/line/Descriptor.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/SystemTest.h"

#include <fcntl.h>
#include <termios.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>

/// Finding the adapter, the line's settings, the handshake, and replies of every shape.

namespace {

namespace fs = std::filesystem;
using std::chrono::microseconds;

const std::string kTry = "[INF] try to catch hardware on /dev/ttyUSB0";
const std::string kTimeout = "[INF] comm timeout /dev/ttyUSB0";

class SerialLink : public SYSTEM_TEST {
 protected:
  ~SerialLink() override {
    for (const std::string& link : m_links) {
      fs::remove(link);
    }
  }

  /// A device name that leads somewhere else.
  void Link(const std::string& name, const std::string& target) {
    fs::create_symlink(target, "/dev/" + name);
    m_links.push_back("/dev/" + name);
  }

  /// Log lines of the serial worker.
  std::vector<std::string> SerialLines() const {
    std::vector<std::string> lines = log.AllLines();
    std::erase_if(lines, [](const std::string& line) {
      return line.find("interface") != std::string::npos ||
             line.find("Initparam") != std::string::npos ||
             line.find("vorn is") != std::string::npos;
    });
    return lines;
  }

  /// Requests whose first body byte is that get these raw pieces; all others the rack's answer.
  void AnswerCode(std::uint8_t code, const sim::REPLY& reply) {
    adapter.SetReplyHook([=](const sim::REQUEST& request,
                             const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
      if (request.frame.size() > 1 && request.frame[1] == code) {
        return reply;
      }
      return std::nullopt;
    });
  }

  std::vector<std::string> m_links;
};

TEST_F(SerialLink, WithoutAnAdapterOneLineIsWrittenForEachSearch) {
  pauses.Hold(2);
  Start();
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  EXPECT_EQ(SerialLines(), std::vector<std::string>{"[ERR] ttyUSB devices couldn't be found"});
  pauses.Release(2);
  ASSERT_TRUE(log.WaitForLine("[ERR] ttyUSB devices couldn't be found", 3));
  Plug(4);
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB4 version: 2.04"));
}

TEST_F(SerialLink, TheHandshakeIsTheFirstFrameAndTheVersionIsLogged) {
  rack.SetVersion("7.x9");
  config.autoDiscover = "FALSE";
  StartLinked();
  EXPECT_EQ(SerialLines(),
            (std::vector<std::string>{kTry, "[INF] hardware found on /dev/ttyUSB0 version: 7.x9"}));
  const std::vector<sim::REQUEST> requests = adapter.Requests().Since();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(sim::ToHex(requests[0].frame), "03 40 6F 9A");
}

TEST_F(SerialLink, TheLineIsRawAt460800Baud8N1) {
  StartLinked();
  const sim::DESCRIPTOR line(open(adapter.NearPath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_TRUE(line);
  termios settings{};
  ASSERT_EQ(tcgetattr(line.Get(), &settings), 0);
  EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B460800));
  EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B460800));
  EXPECT_EQ(settings.c_iflag, 0U);
  EXPECT_EQ(settings.c_oflag, 0U);
  EXPECT_EQ(settings.c_lflag, 0U);
  const tcflag_t looked = CSIZE | CREAD | CLOCAL | PARENB | PARODD | CSTOPB | CRTSCTS;
  EXPECT_EQ(settings.c_cflag & looked, static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
  EXPECT_EQ(settings.c_cc[VTIME], 50);
  EXPECT_EQ(settings.c_cc[VMIN], 0);
}

TEST_F(SerialLink, ThePortIsOpenedNonBlockingAndSynchronousAndCloseOnExec) {
  StartLinked();
  const std::vector<int> ports = support::DescriptorsOf(Pid(), adapter.NearPath());
  ASSERT_EQ(ports.size(), 1U);
  const int flags = support::DescriptorFlags(Pid(), ports[0]);
  const int looked = O_ACCMODE | O_NONBLOCK | O_DSYNC | O_CLOEXEC;
  EXPECT_EQ(flags & looked, O_RDWR | O_NONBLOCK | O_DSYNC | O_CLOEXEC);
}

TEST_F(SerialLink, OfTwoAdaptersOnlyTheSecondAnswers) {
  sim::ADAPTER silent(nullptr);
  ASSERT_TRUE(silent.Plug(0));
  Plug(1);
  config.autoDiscover = "FALSE";
  Start();
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB1 version: 2.04"));
  EXPECT_EQ(SerialLines(),
            (std::vector<std::string>{kTry, kTimeout, "[INF] try to catch hardware on /dev/ttyUSB1",
                                      "[INF] hardware found on /dev/ttyUSB1 version: 2.04"}));
  EXPECT_EQ(support::DescriptorsOf(Pid(), silent.NearPath()), std::vector<int>{});
  EXPECT_EQ(support::DescriptorsOf(Pid(), adapter.NearPath()).size(), 1U);
  // The port in use names itself where it is lost.
  Unplug();
  TCP_CLIENT client = ConnectCae();
  client.Send("REBOOT:5\r\n");
  EXPECT_TRUE(log.WaitForLine("[ERR] unable to  write to /dev/ttyUSB1"));
  EXPECT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB1"));
}

TEST_F(SerialLink, AdaptersAreTriedInTheOrderOfTheirNamesAsText) {
  sim::ADAPTER other(&rack);
  ASSERT_TRUE(other.Plug(2));
  Plug(10);
  Start();
  ASSERT_TRUE(support::WaitUntil([&] { return !log.LinesWith("hardware found").empty(); }));
  EXPECT_EQ(log.LinesWith("hardware"),
            (std::vector<std::string>{"[INF] try to catch hardware on /dev/ttyUSB10",
                                      "[INF] hardware found on /dev/ttyUSB10 version: 2.04"}));
  EXPECT_EQ(other.Counters().requests, 0U);
}

TEST_F(SerialLink, TheRemainingCandidatesAreLeftUntriedOnceAControllerAnswered) {
  sim::ADAPTER other(&rack);
  ASSERT_TRUE(other.Plug(1));
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  EXPECT_EQ(other.Counters().bytesIn, 0U);
}

TEST_F(SerialLink, ADeviceThatCannotBeOpenedIsToldWithTwoBlanksAndTheNextIsTried) {
  Link("ttyUSB0", "/nonexistent");
  Plug(1);
  Start();
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB1 version: 2.04"));
  EXPECT_EQ(SerialLines().at(0), "[ERR] unable to  open /dev/ttyUSB0 for hardware communication");
  EXPECT_EQ(SerialLines().at(1), "[INF] try to catch hardware on /dev/ttyUSB1");
}

TEST_F(SerialLink, ANameOver9CharactersIsReadInTwoPieces) {
  pauses.Hold(2);
  Plug(100);
  Start();
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  EXPECT_EQ(SerialLines(), (std::vector<std::string>{
                               "[ERR] unable to  open /dev/ttyUSB10 for hardware communication",
                               "[ERR] unable to  open /dev/ for hardware communication"}));
}

TEST_F(SerialLink, ADeviceThatIsNoTerminalIsToldLeftOpenAndTheNextIsTried) {
  // ENOTTY is 25.
  const std::string file = Folder() + "/no-terminal";
  support::WriteFile(file, "");
  Link("ttyUSB0", file);
  Plug(1);
  Start();
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB1 version: 2.04"));
  EXPECT_EQ(SerialLines(),
            (std::vector<std::string>{"[ERR] error 25 from tcsetattr",
                                      "[INF] try to catch hardware on /dev/ttyUSB1",
                                      "[INF] hardware found on /dev/ttyUSB1 version: 2.04"}));
  EXPECT_EQ(support::DescriptorsOf(Pid(), file).size(), 1U);
}

TEST_F(SerialLink, ErrorRepliesToTheHandshakeAreRejectedSilentlyExceptATimeout) {
  const auto tries = std::make_shared<std::atomic<std::size_t>>(0);
  adapter.SetReplyHook([tries](const sim::REQUEST& request,
                               const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
    const std::vector<sim::Bytes> replies{{0x12, 1}, {'#'}, {'$'}, {'N', 'o'},
                                          {'B'},     {'C'}, {},    {'T', 'x', 'y'}};
    if (request.frame[1] != 0x40) {
      return std::nullopt;
    }
    const std::size_t number = tries->fetch_add(1);
    if (number >= replies.size()) {
      return std::nullopt;
    }
    return sim::REPLY{{microseconds(0), sim::Frame(replies[number])}};
  });
  Plug(0);
  config.autoDiscover = "FALSE";
  Start();
  ASSERT_TRUE(log.WaitForLine(kHardwareFound));
  std::vector<std::string> expected(8, kTry);
  expected.push_back(kTimeout);  // the reply that begins with T
  expected.push_back(kTry);
  expected.push_back(kHardwareFound);
  EXPECT_EQ(SerialLines(), expected);
  EXPECT_EQ(pauses.CountBegun(2), 8);
  EXPECT_EQ(support::DescriptorsOf(Pid(), adapter.NearPath()).size(), 1U);
}

TEST_F(SerialLink, AnyOtherReplyToTheHandshakeConfirmsAController) {
  AnswerCode(0x40, {{microseconds(0), sim::Frame({'X', 'a', 'b', 'c', 'd'})}});
  StartLinked();
  EXPECT_EQ(log.Count("[INF] hardware found on /dev/ttyUSB0 version: abcd"), 1);
}

TEST_F(SerialLink, ASilentAdapterIsToldAndTriedAgainAfterTwoSeconds) {
  adapter.SetReplyHook(
      [](const sim::REQUEST&, const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
        return sim::REPLY{};
      });
  pauses.Hold(2);
  Plug(0);
  Start();
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  EXPECT_EQ(SerialLines(), (std::vector<std::string>{kTry, kTimeout}));
  EXPECT_EQ(support::DescriptorsOf(Pid(), adapter.NearPath()), std::vector<int>{});
  adapter.SetReplyHook(nullptr);
  pauses.Release(2);
  EXPECT_TRUE(log.WaitForLine(kHardwareFound));
}

TEST_F(SerialLink, AReplyInPiecesIsPutTogether) {
  StartIdentified();
  AnswerCode(0x50, {{microseconds(100), {0x04}},
                    {microseconds(200), {0x51}},
                    {microseconds(200), {0x0F, 0x01}},
                    {microseconds(200), {0x2B}}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
}

TEST_F(SerialLink, BytesBeyondTheAnnouncedLengthAreIgnored) {
  StartIdentified();
  // A whole second frame, then more than the receive buffer holds.
  sim::Bytes line{0x04, 0x51, 0x0F, 0x01, 0x2B, 0x04, 0x51, 0x0F, 0x01, 0x3C};
  AnswerCode(0x50, {{microseconds(0), line}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
  line.resize(200, 0x55);
  AnswerCode(0x50, {{microseconds(0), line}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
  line.resize(255, 0x55);
  AnswerCode(0x50, {{microseconds(0), line}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
  EXPECT_EQ(log.LinesWith("timeout"), std::vector<std::string>{});
}

TEST_F(SerialLink, AReplyOfLengthZeroCompletesAtOnceAndIsDropped) {
  StartIdentified();
  AnswerCode(0x50, {{microseconds(0), {0x00}}});
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
  adapter.SetReplyHook(nullptr);
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  EXPECT_EQ(log.LinesWith("timeout"), std::vector<std::string>{});
}

TEST_F(SerialLink, TheLongestReplyThatFitsIsTaken) {
  StartIdentified();
  sim::Bytes body(135, 0x2B);
  body[0] = 0x51;
  body[1] = 0x0F;
  AnswerCode(0x50, {{microseconds(0), sim::Frame(body)}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
}

TEST_F(SerialLink, AReplyThatAnnouncesMoreThanTheBufferHoldsIsNoReplyAndTheLinkIsUsableAgain) {
  StartIdentified();
  for (const int length : {136, 200, 255}) {
    sim::Bytes body(static_cast<std::size_t>(length), 0x2B);
    body[0] = 0x51;
    body[1] = 0x0F;
    AnswerCode(0x50, {{microseconds(0), sim::Frame(body)}});
    EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIE: MASK READ ERROR"})) << length;
    adapter.SetReplyHook(nullptr);
    // At once, or after it was found again.
    EXPECT_TRUE(support::WaitUntil([&] {
      cae->Send("GETANMASK:F\r\n");
      return cae->ReadUntil("\r>\r\n\r") ==
             CaeReply({"CIA: MASK is GOT from card", "AMV:0xF:0x3F"});
    })) << length;
  }
}

TEST_F(SerialLink, StaleInputIsDiscardedBeforeARequest) {
  StartIdentified();
  // A complete Q reply that nobody asked for must not pass for the answer.
  adapter.Send(sim::Frame({0x51, 0x0F, 0x01, 0x11}));
  AnswerCode(0x50, {{microseconds(500), sim::Frame({0x51, 0x0F, 0x01, 0x2B})}});
  ASSERT_TRUE(support::WaitUntil([&] { return adapter.Counters().bytesOut > 0; }));
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
}

TEST_F(SerialLink, QRepliesOfOtherLengthsFillWhatTheyHaveAndZeroTheRest) {
  StartIdentified();
  AnswerCode(0x50, {{microseconds(0), sim::Frame({0x51, 0x0F, 0x01, 0x2B})}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x2B"}));
  AnswerCode(0x50, {{microseconds(0), sim::Frame({0x51, 0x0F})}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x00"}));
  AnswerCode(0x50,
             {{microseconds(0), sim::Frame(sim::Bytes{0x51, 0x0F, 3,  4,  5,  6,  7,  8,  9, 10, 11,
                                                      12,   13,   14, 15, 16, 17, 18, 19, 20})}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x04"}));
  // Too short, or for an address that no card can have: no acknowledgement.
  AnswerCode(0x50, {{microseconds(0), sim::Frame({0x51})}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIE: MASK READ ERROR"}));
  AnswerCode(0x50, {{microseconds(0), sim::Frame({0x51, 0x10, 0x01, 0x2B})}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIE: MASK READ ERROR"}));
  AnswerCode(0x50, {{microseconds(0), sim::Frame({0x51, 0xFF, 0x01, 0x2B})}});
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIE: MASK READ ERROR"}));
}

TEST_F(SerialLink, ErrorRepliesAndUnknownCodesAreDroppedWithoutALine) {
  StartIdentified();
  const std::vector<std::string> before = SerialLines();
  for (const std::uint8_t code : sim::Bytes{0x12, '#', '$', 'N', 'B', 'C', 'Z', 0x00, 0xFF}) {
    AnswerCode(0x50, {{microseconds(0), sim::Frame({code, 5, 0, 0})}});
    EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
  }
  EXPECT_EQ(SerialLines(), before);
}

TEST_F(SerialLink, AReplyThatBeginsWithTIsATimeoutAndTheLinkIsMadeAgain) {
  StartIdentified();
  AnswerCode(0x50, {{microseconds(0), sim::Frame({'T', 5})}});
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
  EXPECT_TRUE(log.WaitForLine(kTimeout));
  EXPECT_TRUE(log.WaitForLine(kHardwareFound, 2));
  EXPECT_EQ(SerialLines(),
            (std::vector<std::string>{kTry, kHardwareFound, kTimeout, kTry, kHardwareFound}));
}

TEST_F(SerialLink, EachQueueGivesOneFrameAPassSoThatNoCardStarvesTheOthers) {
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(WaitForFrame("03 20 0F 06"));
  // Thirty frames for card 0 in one message; the input cards are polled in between.
  std::string message;
  for (int i = 0; i < 30; ++i) {
    message += "a0b0d00\n";
  }
  const std::uint64_t from = adapter.Requests().Last();
  io.Send(message);
  const std::string servo = "09 10 00 06 00 80 80 80 80 80";
  ASSERT_TRUE(support::WaitUntil([&] {
    const std::vector<std::string> frames = Frames(from);
    return std::count(frames.begin(), frames.end(), servo) == 30;
  }));
  const std::vector<std::string> frames = Frames(from);
  for (std::size_t i = 0; i + 1 < frames.size(); ++i) {
    EXPECT_FALSE(frames[i] == servo && frames[i + 1] == servo);
  }
}

}  // namespace
