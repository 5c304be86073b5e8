#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/FaultFixture.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <random>

/// Everything that can go wrong on the line and with the adapter, by the hundred, on one daemon
/// that goes on polling.

namespace {

namespace fs = std::filesystem;
using sim::FAULT_KIND;
using std::chrono::microseconds;
using std::chrono::milliseconds;

const std::string kAnyTimeout = "[INF] comm timeout /dev/ttyUSB";
const std::string kFound = "[INF] hardware found on /dev/ttyUSB";
constexpr milliseconds kHitLimit{support::kInstrumented ? 10'000 : 3000};
constexpr std::size_t kPollRequestSize = 4;  // 03 20 03 02
constexpr int kAllLengths = 256;             // of a length byte

class BusFaults : public FAULT_FIXTURE {
 protected:
  void StartPolling() {
    config.initPollState = "TRUE";
    config.speedPercent = kSpeedOfLongFaults;
    // Nothing here needs an answer within the pause of a CAE command but the discovery.
    pauses.SetLength(2, milliseconds(5));
    StartForFaults();
  }

  /// Key 6 of card 3 down and up: both changes are reported, whatever was reported before them.
  void ExpectKeyReported() {
    for (const bool isDown : {true, false}) {
      ASSERT_TRUE(isDown ? rack.Press(3, 6) : rack.Release(3, 6));
      const std::string line = IoLine(isDown ? "a3b0d40" : "a3b0d00");
      EXPECT_TRUE(io->ReadUntil(line).ends_with(line));
    }
  }

  /// The adapter is found once more than before, and polled.
  void ExpectFoundAgain(int& found) {
    ASSERT_TRUE(WaitForLines(kFound, found + 1));
    found = CountLines(kFound);  // the rest of a frame, or its timeout, can have cost it once more
    ExpectKeyReported();
  }

  /// The fault hits, and is over.
  void Suffer(const sim::FAULT& fault) {
    adapter.Faults().Add(fault);
    // Asked for again where it has not been made: what an earlier fault left on the line can have
    // stood for the answer whose absence was to cost the link.
    ASSERT_TRUE(support::WaitUntil(
        [&] {
          Trigger(*fault.code);
          return support::WaitUntil([this] { return adapter.Faults().List().empty(); }, kHitLimit);
        },
        3 * kLimit))
        << sim::Describe(fault);
  }

  /// Sees to it that the request is made; polls are made all the time.
  void Trigger(std::uint8_t code) {
    switch (code) {
      case sim::request::kOutput:
        io->Send("a5b0d5A\n");
        break;
      case sim::request::kParameter:
        cae->Send("GETANMASK:F\r\n");
        cae->ReadUntil(CaeLine(">"));
        break;
      case sim::request::kIdentify:
        cae->Send("FORCEDISCOVER\r\n");
        cae->ReadUntil(CaeLine(">"));
        break;
      case sim::request::kHandshake:
        LoseLink();
        break;
      default:
        break;
    }
  }

  /// The next poll of a card is not answered, which costs the link.
  void LoseLink() {
    adapter.Faults().Add(
        {.kind = FAULT_KIND::kNoAnswer, .address = 3, .code = sim::request::kPoll});
  }

  /// Each poll of card 3 gets the next of these pieces of line, until all are used up.
  void AnswerPollsWith(std::vector<sim::Bytes> answers) {
    BeginAnswers(std::move(answers));
    FinishAnswers();
  }
  void BeginAnswers(std::vector<sim::Bytes> answers) {
    m_used = std::make_shared<std::atomic<std::size_t>>(0);
    m_answers = answers.size();
    adapter.SetReplyHook([used = m_used, all = std::move(answers)](
                             const sim::REQUEST& request,
                             const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
      const sim::Bytes& frame = request.frame;
      if (frame.size() < 3 || frame[1] != sim::request::kPoll || frame[2] != 3 ||
          *used >= all.size()) {
        return std::nullopt;
      }
      return sim::REPLY{{microseconds(0), all[(*used)++]}};
    });
  }
  void FinishAnswers() {
    // Each may cost the link, which is then searched for.
    const milliseconds limit = 3 * support::kLimit + m_answers * milliseconds(1000);
    ASSERT_TRUE(support::WaitUntil([&] { return *m_used == m_answers; }, limit));
    adapter.SetReplyHook(nullptr);
  }

 private:
  std::shared_ptr<std::atomic<std::size_t>> m_used;
  std::size_t m_answers = 0;
};

/// A reply of each kind.
struct REPLY_ROW {
  const char* name;
  std::uint8_t code;
  std::optional<std::uint8_t> address;
  std::size_t length;  // of the reply, with its length byte
  int timeouts;        // one for the reply, one for what brought the request about
};
void PrintTo(const REPLY_ROW& row, std::ostream* out) {
  *out << row.name;
}
const REPLY_ROW kReplies[] = {
    {"PollOfAnInputCard", sim::request::kPoll, 3, 5, 1},
    {"PollOfAKeyMatrix", sim::request::kPoll, 8, 4, 1},
    {"PollOfAnAnalogueCard", sim::request::kPoll, 15, 9, 1},
    {"Output", sim::request::kOutput, 5, 3, 1},
    {"Parameter", sim::request::kParameter, 15, 5, 1},
    {"Handshake", sim::request::kHandshake, std::nullopt, 6, 2},
    {"Identification", sim::request::kIdentify, std::nullopt, 18, 1},
};

TEST_F(BusFaults, EveryPrefixOfEveryReplyIsATimeoutAndTheLinkIsMadeAgain) {
  StartPolling();
  pauses.SetLength(1, milliseconds(5));
  BeginFault({.touched = {PART::kBus}, .mostLines = 400});
  int timeouts = 0;
  int found = CountLines(kFound);
  for (const REPLY_ROW& row : kReplies) {
    for (std::size_t count = 0; count < row.length; ++count) {
      SCOPED_TRACE(row.name + std::string(" cut to ") + std::to_string(count));
      Suffer({.kind = FAULT_KIND::kCut, .count = count, .address = row.address, .code = row.code});
      timeouts += row.timeouts;
      if (count == 0) {
        ExpectService();
      }
      ASSERT_TRUE(WaitForLines(kAnyTimeout, timeouts));
      ASSERT_TRUE(WaitForLines(kFound, ++found));
    }
  }
  Identify();
  ExpectKeyReported();
  EndFault();
}

TEST_F(BusFaults, EveryFaultOnEveryKindOfRequestIsSurvived) {
  struct ROW {
    std::uint8_t code;
    std::optional<std::uint8_t> address;
  };
  const ROW rows[] = {{sim::request::kPoll, 3},
                      {sim::request::kOutput, 5},
                      {sim::request::kParameter, 15},
                      {sim::request::kHandshake, std::nullopt},
                      {sim::request::kIdentify, std::nullopt}};
  StartPolling();
  pauses.SetLength(1, milliseconds(40));
  BeginFault({.touched = {PART::kBus}, .mostLines = 400});
  for (const ROW& row : rows) {
    for (const sim::FAULT_TYPE& type : sim::kFaultTypes) {
      const bool namesAddress = type.argument == sim::FAULT_ARGUMENT::kAddress;
      if (namesAddress && !row.address) {
        continue;  // the reply names none
      }
      sim::FAULT fault{.kind = type.kind, .address = row.address, .code = row.code};
      fault.time = milliseconds(2);
      fault.count = 2;
      fault.bytes = {0x03, 0x21, 0x13, 0xFF};
      fault.length = sim::LENGTH_FAULT::kOver;
      fault.value = 0x0C;  // an address that is empty
      if (type.argument == sim::FAULT_ARGUMENT::kError) {
        fault.value = sim::error::kBusy;
      }
      SCOPED_TRACE(sim::Describe(fault));
      Suffer(fault);
      ExpectService();
      // Found again, if it was lost.
      if (row.code == sim::request::kIdentify) {
        Identify();
      }
      const std::uint64_t from = adapter.Requests().Last();
      io->Send("a5b0d11\na5b0d22\n");
      ASSERT_TRUE(adapter.WaitForRequest(
          [](const sim::REQUEST& request) { return request.frame.at(1) == 0x10; }, kLimit, from));
    }
  }
  Identify();
  ExpectKeyReported();
  EndFault();
}

class BusFaultsOfReply : public BusFaults, public testing::WithParamInterface<REPLY_ROW> {};

TEST_P(BusFaultsOfReply, EveryLengthByteIsSurvivedAndATooLongOneIsATimeout) {
  StartPolling();
  pauses.SetLength(1, milliseconds(5));
  const int step = Rounds(1, kAllLengths);
  const auto faults = static_cast<std::size_t>(Rounds(255, 5));
  BeginFault({.touched = {PART::kBus}, .mostLines = faults * 6 + 9});
  const REPLY_ROW& row = GetParam();
  int allTimeouts = 0;
  const int trueLength = static_cast<int>(row.length) - 1;
  for (int length = 0; length < kAllLengths; ++length) {
    // 135 bytes and the length byte fill the daemon's buffer.
    const bool isAtALimit = std::abs(length - trueLength) == 1 || length == 135 || length == 136;
    if (length == trueLength || (!isAtALimit && length % step != 0)) {
      continue;
    }
    SCOPED_TRACE(length);
    const int timeouts = CountLines(kAnyTimeout);
    Suffer({.kind = FAULT_KIND::kLength,
            .value = static_cast<std::uint8_t>(length),
            .address = row.address,
            .code = row.code});
    const int expected = length > trueLength ? row.timeouts : row.timeouts - 1;
    ASSERT_TRUE(WaitForLines(kAnyTimeout, timeouts + expected));
    allTimeouts += expected;
  }
  ExpectService();
  Identify();
  ExpectKeyReported();
  // Those that are too short cost nothing; a busy machine can.
  EXPECT_LE(CountLines(kAnyTimeout), allTimeouts + 3);
  EndFault();
}

INSTANTIATE_TEST_SUITE_P(, BusFaultsOfReply, testing::ValuesIn(kReplies),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BusFaults, TheAdapterIsPulledOutAndComesBackUnderAnotherNumberAgainAndAgain) {
  StartPolling();
  const int rounds = Rounds(1000, 60);
  BeginFault({.touched = {PART::kBus}, .mostLines = static_cast<std::size_t>(rounds) * 12});
  int found = CountLines(kFound);
  for (int i = 0; i < rounds; ++i) {
    Unplug();
    Plug((i * 7 + 1) % 100);
    ASSERT_TRUE(WaitForLines(kFound, ++found)) << i;
    if (i % 50 == 0) {
      ExpectService();
    }
  }
  ExpectKeyReported();
  ExpectGrowthBelow(1024);
  Unplug();
  Plug(0);
  EndFault();
}

/// Something breaks off in the middle of what is on the line.
struct BREAK {
  const char* name;
  bool isOfReply;  // else of the request
  bool isAdapter;  // is pulled out; else the controller starts anew
};
void PrintTo(const BREAK& row, std::ostream* out) {
  *out << row.name;
}

class BusFaultsInTheMiddle : public BusFaults, public testing::WithParamInterface<BREAK> {};

TEST_P(BusFaultsInTheMiddle, IsSurvivedBehindEachByte) {
  constexpr milliseconds kDeaf(20);
  const sim::Bytes reply = sim::Frame({0x21, 0x03, 0x00, 0x00});
  const BREAK& row = GetParam();
  StartPolling();
  BeginFault({.touched = {PART::kBus}, .mostLines = 200});
  int found = CountLines(kFound);
  for (std::size_t count = 0; count < (row.isOfReply ? reply.size() : kPollRequestSize); ++count) {
    if (row.isOfReply) {
      AnswerPollsWith({sim::Bytes(reply.begin(), reply.begin() + static_cast<long>(count))});
      row.isAdapter ? Unplug() : adapter.ResetController(kDeaf);
    } else if (row.isAdapter) {
      adapter.InterruptRequest(count);
      ASSERT_TRUE(support::WaitUntil([&] { return !adapter.Plugged(); })) << count;
    } else {
      adapter.InterruptRequest(count, kDeaf);
    }
    ExpectService();
    if (row.isAdapter) {
      Plug(static_cast<int>(count));
    }
    ASSERT_NO_FATAL_FAILURE(ExpectFoundAgain(found)) << count;
  }
  EndFault();
}

INSTANTIATE_TEST_SUITE_P(, BusFaultsInTheMiddle,
                         testing::Values(BREAK{"OfARequestByTheAdapter", false, true},
                                         BREAK{"OfARequestByTheController", false, false},
                                         BREAK{"OfAReplyByTheAdapter", true, true},
                                         BREAK{"OfAReplyByTheController", true, false}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BusFaults, WithoutAnAdapterTheLogGetsOneLineForEachSearch) {
  config.speedPercent = "50";
  StartForFaults();
  pauses.SetLength(2, milliseconds(150));
  BeginFault({.touched = {PART::kBus}, .mostLines = 40});
  Unplug();
  io->Send("a5b0d00\n");  // notices
  ASSERT_TRUE(WaitForLines("[ERR] ttyUSB devices couldn't be found", 1));
  ExpectService();
  const int searches = CountLines("[ERR] ttyUSB devices couldn't be found");
  EXPECT_LE(searches, pauses.CountBegun(2) + 1);  // which is asked later
  Plug(4);
  EndFault();
}

TEST_F(BusFaults, DevicesThatAreNoAdaptersAreToldAtEachSearchAndLeakNothing) {
  config.speedPercent = "50";
  StartForFaults();
  pauses.SetLength(2, milliseconds(150));
  BeginFault(
      {.touched = {PART::kBus}, .lines = {"[ERR] error 25 from tcsetattr"}, .mostLines = 400});
  // A folder and a link to nowhere cannot be opened, a pipe and a file are no terminals.
  fs::create_directory("/dev/ttyUSB1");
  fs::create_symlink("/nonexistent", "/dev/ttyUSB2");
  ASSERT_EQ(mkfifo("/dev/ttyUSB3", 0600), 0);
  support::WriteFile("/dev/ttyUSB4", "");
  Unplug();
  io->Send("a5b0d00\n");
  ASSERT_TRUE(WaitForLines("[ERR] unable to  open /dev/ttyUSB1 for hardware communication", 10));
  const int searches = CountLines("[ERR] unable to  open /dev/ttyUSB2");
  EXPECT_LE(searches, pauses.CountBegun(2) + 1);  // which is asked later
  EXPECT_LE(support::DescriptorsOf(Pid(), "/dev/ttyUSB4").size(), 1U);
  ExpectService();
  for (const char* name : {"/dev/ttyUSB1", "/dev/ttyUSB2", "/dev/ttyUSB3", "/dev/ttyUSB4"}) {
    fs::remove(name);
  }
  Plug(0);
  EndFault();
}

TEST_F(BusFaults, AStormOfBytesThatNobodyAskedForIsSurvived) {
  StartPolling();
  BeginFault({.touched = {PART::kBus}, .mostLines = 2000});
  std::mt19937 random(20260103);
  // An exchange takes two reads of 255 bytes off the line: what is left at the end is gone soon.
  for (int i = 0; i < 400; ++i) {
    sim::Bytes bytes(random() % 20 + 1);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    adapter.Send(bytes);
    if (i % 100 == 0) {
      cae->Send("DRVVER\r\n");
      EXPECT_TRUE(cae->Receives(CaeReply({"CIA: DRIVER VERSION 1.20"})));
      ExpectService();
    }
  }
  Identify();  // what a chance reply has made of the cards is over
  ExpectKeyReported();
  EndFault();
}

TEST_F(BusFaults, CardsAreExchangedWhileTheDaemonPollsThem) {
  StartPolling();
  pauses.SetLength(1, milliseconds(30));
  BeginFault({.touched = {PART::kBus}, .mostLines = 1000});
  std::mt19937 random(20260104);
  for (int i = 0; i < 400; ++i) {
    const int slot = static_cast<int>(random() % sim::kSlots);
    const std::uint8_t codes[] = {0, 3, 4, 5, 6, 7, 8, 9, 10, 77, 255};
    const std::uint8_t code = codes[random() % std::size(codes)];
    code == 0 ? rack.Remove(slot) : rack.Insert(slot, code);
    if (i % 20 == 0) {
      Trigger(sim::request::kIdentify);
      ExpectService();
    }
    io->Send("a" + sim::ToHex(static_cast<std::uint8_t>(slot)).substr(1) + "b0d5A\n");
  }
  for (int slot = 0; slot < sim::kSlots; ++slot) {
    rack.Remove(slot);
  }
  rack.PopulateDefault();
  Identify();
  ExpectKeyReported();
  EndFault();
}

}  // namespace
