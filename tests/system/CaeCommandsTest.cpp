#include "tests/support/CaeVectors.h"
#include "tests/support/GoldenHelp.h"
#include "tests/system/SystemTest.h"

/// The operator's commands, through the connection, the bus and the cards. What each makes of its
/// line is in the unit tests.

namespace {

using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words

constexpr const char* kDigits = "0123456789ABCDEF";

class CaeCommands : public SYSTEM_TEST {
 protected:
  /// A card of each type that a vector is for, where the rack has none, at an address that is free.
  CaeCommands() {
    for (const VECTOR& vector : kVectors) {
      if (vector.cardType != 0 && Find(vector.cardType) == kSlots) {
        rack.Insert(Find(sim::type::kEmpty), static_cast<std::uint8_t>(vector.cardType));
      }
    }
  }

  static constexpr int kSlots = 16;
  /// The first address of a card of that type; kSlots: there is none.
  int Find(int type) const {
    int address = 0;
    while (address < kSlots && rack.TypeAt(address) != type) {
      ++address;
    }
    return address;
  }

  /// Card parameter requests are answered with this body, of which the second byte becomes the
  /// address asked for; with an empty one not at all.
  void AnswerRequestsWith(const sim::Bytes& body) {
    adapter.SetReplyHook([body](const sim::REQUEST& request,
                                const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
      if (request.frame.size() < 3 || request.frame[1] != 0x50) {
        return std::nullopt;
      }
      if (body.empty()) {
        return sim::REPLY{};
      }
      sim::Bytes addressed = body;
      addressed.at(1) = request.frame[2];
      return sim::REPLY{{std::chrono::microseconds(0), sim::Frame(addressed)}};
    });
  }

  std::vector<std::string> ParameterFrames() {
    std::vector<std::string> frames = Frames();
    std::erase_if(frames, [](const std::string& frame) { return frame.substr(3, 2) != "50"; });
    return frames;
  }

  /// The address of a card that a vector is for, and of one that it is not for.
  char AddressFor(const VECTOR& vector) const {
    return kDigits[vector.cardType == 0 ? 5 : Find(vector.cardType)];
  }
  char OtherAddressFor(const VECTOR& vector) const {
    return kDigits[Find(vector.cardType == sim::type::kServo ? sim::type::kMotor
                                                             : sim::type::kServo)];
  }

  /// The request as it is on the line, behind its length byte.
  static std::string FrameOf(const VECTOR& vector, char digit) {
    const std::string body = At(vector.body, digit);
    return "0" + std::to_string((body.size() + 1) / 3) + " " + body;
  }
};

TEST_F(CaeCommands, ForCardsSendTheirFramesAndReportSuccessWithThePrompt) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0, 0x77, kValueRead, 0x99});
  std::vector<std::string> frames;
  for (const VECTOR& vector : kVectors) {
    if (vector.does == DOES::kAsksCard) {
      const char digit = AddressFor(vector);
      EXPECT_TRUE(Answers(*cae, At(vector.line, digit), support::cae::Answers(vector, digit)));
      frames.push_back(FrameOf(vector, digit));
      if (vector.refusal != nullptr) {
        EXPECT_TRUE(Answers(*cae, At(vector.line, OtherAddressFor(vector)), {vector.refusal}));
      }
      cae->Send(At(vector.line, digit));
      EXPECT_TRUE(cae->Receives(UnknownReply())) << "without its separator: " << vector.line;
    }
  }
  EXPECT_EQ(ParameterFrames(), frames);
  EXPECT_EQ(pauses.CountBegun(1), 1 + static_cast<int>(frames.size()));  // one after the link-up
}

TEST_F(CaeCommands, ForCardsReportFailureForAnotherAnswerOrNone) {
  StartIdentified();
  // The query bytes of an earlier success count no more.
  AnswerRequestsWith({0x51, 0, 0x77, kValueRead});
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  for (const std::uint8_t code : {'N', '\x41'}) {
    AnswerRequestsWith({code, 0});
    EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
    EXPECT_EQ(log.LinesWith("comm timeout"), std::vector<std::string>{});
  }
  AnswerRequestsWith({});
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
  EXPECT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0"));
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>(4, "04 50 05 01 AB"));
}

TEST_F(CaeCommands, ParametersWrittenAreReadBackFromTheRack) {
  StartIdentified();
  const std::pair<const char*, std::vector<std::string>> steps[] = {
      {"SETANMASK:F=15", {"CIA: Channel MASK of the card is SET", "AMS:0xF:0x15"}},
      {"GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x15"}},
      {"SETSCB5:0=C8", {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCB5:0xC8"}},
      {"GETSCB5:0", {"CIA: SERVO PARAM is GOT from card", "SPG:0x0:SCB5:0xC8"}},
      {"SETMSR0:1=20", {"CIA: MSR value of the card is SET", "MPS:0x1:MSR0:0x20"}},
      {"GETMSR0:1", {"CIA: MSR value is GOT from card", "MSR0:0x1:0x20"}},
      {"SETMSR0:1=21", {"CIE: PARAM WRITE ERROR"}},  // a value that the card refuses
  };
  for (const auto& [line, answers] : steps) {
    EXPECT_TRUE(Answers(*cae, line, answers));
  }
}

TEST_F(CaeCommands, OfOneReadAreOneLine) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0});
  EXPECT_TRUE(Answers(*cae, "POLLOFF:3\r\nREBOOT:5",
                      {"CIA: Card is REBOOTED", "RBT:0x3:OK", "CIA: POLLOFF is OK at address 3"}));
  EXPECT_EQ(ParameterFrames(), (std::vector<std::string>{"04 50 03 01 AB"}));
  for (const char* const line : {"DRVVER\r\nHELP\r\n", "DRVVER\n", "\r\nDRVVER", "x", "help\r\n",
                                 "VALAMI\r\n", "EXIT", "EXIT\r\n\r\n"}) {
    cae->Send(line);
    EXPECT_TRUE(cae->Receives(UnknownReply())) << line;
  }
  cae->SendAndWaitUntilRead("DRVVER");
  cae->Send("\r\n");
  EXPECT_TRUE(cae->Receives(UnknownReply() + UnknownReply()));
  cae->Send("SPEED=90");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: SPEED IS SET to 90%"})));
}

TEST_F(CaeCommands, HelpAndIoExamplesComeToTheOperatorAloneLineByLine) {
  Start();
  ASSERT_EQ(kQuickHelp.size(), kHelpLines);
  ASSERT_EQ(kIoExamples.size(), kExampleLines);
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "HELP", kQuickHelp));
  EXPECT_TRUE(Answers(client, "IOEXAMPLES", kIoExamples));
  Synchronise(client);
  EXPECT_TRUE(io.ReceivesNothing());
  EXPECT_TRUE(mon.ReceivesNothing());
}

}  // namespace
