#include "tests/system/SystemTest.h"

#include <algorithm>
#include <ostream>

/// The commands of the CAE interface that ask something of a card: the frame that the card gets,
/// and the replies to its three kinds of answer.

namespace {

constexpr const char* kLcdOnly = "CIE: THIS COMMAND IS VALID FOR LCD CONTROL CARD ONLY";
constexpr const char* kAnalogueOnly = "CIE: THIS COMMAND IS VALID ON ANALOG INPUT CARD ONLY";
constexpr const char* kServoOnly = "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY";
constexpr const char* kServoOnlyLegal = "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY";
constexpr const char* kMotorOnly = "CIE: THIS COMMAND IS VALID ON DC MOTOR CONTROLLER CARD ONLY";

struct COMMAND {
  const char* name;
  const char* text;   // @ stands for the address
  char address;       // where the test's rack has a card of the right type
  const char* frame;  // length byte first
  std::vector<std::string> success;
  const char* failure;
  const char* wrongCard;  // null: any card will do
  int type;
};

/// A card answers with this value where it is asked for one.
constexpr std::uint8_t kAnsweredValue = 0x2E;

const COMMAND kCommands[] = {
    {"LcdSelfTestOn",
     "LCDSELFTEST:@=ON",
     'E',
     "05 50 0E 01 01 FF",
     {"CIA: SELFTEST STATE IS SET TO ON at address E"},
     "CIE: STATE WRITE ERROR",
     kLcdOnly,
     9},
    {"LcdSelfTestOff",
     "LCDSELFTEST:@=OFF",
     'E',
     "05 50 0E 01 01 00",
     {"CIA: SELFTEST STATE IS SET TO OFF at address E"},
     "CIE: STATE WRITE ERROR",
     kLcdOnly,
     9},
    {"LcdInitLightOn",
     "LCDINITLIGHT:@=ON",
     'C',
     "05 50 0C 01 02 FF",
     {"CIA: INITLIGHT STATE IS SET TO ON at address C"},
     "CIE: STATE WRITE ERROR",
     kLcdOnly,
     9},
    {"LcdInitLightOff",
     "LCDINITLIGHT:@=OFF",
     'C',
     "05 50 0C 01 02 00",
     {"CIA: INITLIGHT STATE IS SET TO OFF at address C"},
     "CIE: STATE WRITE ERROR",
     kLcdOnly,
     9},
    {"Reboot",
     "REBOOT:@",
     '5',
     "04 50 05 01 AB",
     {"CIA: Card is REBOOTED", "RBT:0x5:OK"},
     "CIE: BUS WRITE ERROR",
     nullptr,
     3},
    {"SetAnMask",
     "SETANMASK:@=3C",
     'F',
     "05 50 0F 01 01 3C",
     {"CIA: Channel MASK of the card is SET", "AMS:0xF:0x3C"},
     "CIE: MASK WRITE ERROR",
     kAnalogueOnly,
     7},
    {"GetAnMask",
     "GETANMASK:@",
     'B',
     "04 50 0B 40 01",
     {"CIA: MASK is GOT from card", "AMV:0xB:0x2E"},
     "CIE: MASK READ ERROR",
     kAnalogueOnly,
     7},
    {"StoreAnMask",
     "STOREANMASK:@",
     'F',
     "04 50 0F 01 02",
     {"CIA: MASK IS STORED at address F"},
     "CIE: MASK STORE ERROR",
     kAnalogueOnly,
     7},
    {"StoreSrvPos",
     "STORESRVPOS:@",
     '0',
     "04 50 00 01 74",
     {"CIA: POSITIONS ARE STORED at address 0"},
     "CIE: POSITION STORING ERROR",
     kServoOnly,
     5},
    {"MoveStrPos",
     "MOVESTRPOS:@",
     '2',
     "04 50 02 01 3F",
     {"CIA: SERVOS ARE MOVED TO STORED POSITIONS at address 2"},
     "CIE: POSITIONS MOVING ERROR",
     kServoOnlyLegal,
     5},
    {"SetServoEndA",
     "SETSCA5:@=0A",
     '0',
     "05 50 00 01 C5 0A",
     {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCA5:0x0A"},
     "CIE: PARAM WRITE ERROR",
     kServoOnly,
     5},
    {"SetServoEndB",
     "SETSCB3:@=7F",
     '2',
     "05 50 02 01 D3 7F",
     {"CIA: SERVO PARAM of the card is SET", "SPS:0x2:SCB3:0x7F"},
     "CIE: PARAM WRITE ERROR",
     kServoOnly,
     5},
    {"GetServoEndA",
     "GETSCA4:@",
     '0',
     "04 50 00 40 25",
     {"CIA: SERVO PARAM is GOT from card", "SPG:0x0:SCA4:0x2E"},
     "CIE: PARAM READ ERROR",
     kServoOnly,
     5},
    {"GetServoEndB",
     "GETSCB1:@",
     '2',
     "04 50 02 40 28",
     {"CIA: SERVO PARAM is GOT from card", "SPG:0x2:SCB1:0x2E"},
     "CIE: PARAM READ ERROR",
     kServoOnly,
     5},
    {"SetMsr",
     "SETMSR2:@=1F",
     '1',
     "05 50 01 01 C2 1F",
     {"CIA: MSR value of the card is SET", "MPS:0x1:MSR2:0x1F"},
     "CIE: PARAM WRITE ERROR",
     kMotorOnly,
     6},
    {"GetMsr",
     "GETMSR1:@",
     '6',
     "04 50 06 40 02",
     {"CIA: MSR value is GOT from card", "MSR1:0x6:0x2E"},
     "CIE: PARAM READ ERROR",
     kMotorOnly,
     6},
    {"StoreMsrs",
     "STOREMSRS:@",
     '1',
     "04 50 01 01 CD",
     {"CIA: MSR values are STORED at address 1"},
     "CIE: MSR STORING ERROR",
     kMotorOnly,
     6},
};

std::string Text(const COMMAND& command, char address) {
  std::string text = command.text;
  text[text.find('@')] = address;
  return text;
}

std::ostream& operator<<(std::ostream& stream, const COMMAND& command) {
  return stream << command.text;
}

class CaeCardCommands : public SYSTEM_TEST {
 protected:
  CaeCardCommands() {
    rack.Insert(0x2, sim::type::kServo);
    rack.Insert(0x6, sim::type::kMotor);
    rack.Insert(0xB, sim::type::kAnalogue);
    rack.Insert(0xC, sim::type::kLcd);
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
      if (addressed.size() > 1) {
        addressed[1] = request.frame[2];
      }
      return sim::REPLY{{std::chrono::microseconds(0), sim::Frame(addressed)}};
    });
  }

  std::vector<std::string> ParameterFrames() {
    std::vector<std::string> frames = Frames();
    std::erase_if(frames, [](const std::string& frame) { return frame.substr(3, 2) != "50"; });
    return frames;
  }
};

class CaeCardCommand : public CaeCardCommands, public testing::WithParamInterface<COMMAND> {};

TEST_P(CaeCardCommand, SendsItsFrameAndReportsSuccessAndThePrompt) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0, 0x77, kAnsweredValue, 0x99});
  EXPECT_TRUE(Answers(*cae, Text(GetParam(), GetParam().address), GetParam().success));
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>{GetParam().frame});
  EXPECT_EQ(pauses.CountBegun(1), 2);  // one after the link-up, one for the card
}

TEST_P(CaeCardCommand, ReportsFailureForAnotherAnswerOrNone) {
  StartIdentified();
  const std::string text = Text(GetParam(), GetParam().address);
  // The query bytes of an earlier success count no more.
  AnswerRequestsWith({0x51, 0, 0x77, kAnsweredValue});
  ASSERT_TRUE(Answers(*cae, text, GetParam().success));

  AnswerRequestsWith({'N', 0});
  EXPECT_TRUE(Answers(*cae, text, {GetParam().failure}));
  AnswerRequestsWith({0x41, 0});
  EXPECT_TRUE(Answers(*cae, text, {GetParam().failure}));
  ASSERT_EQ(log.LinesWith("comm timeout"), std::vector<std::string>{});

  AnswerRequestsWith({});
  EXPECT_TRUE(Answers(*cae, text, {GetParam().failure}));
  EXPECT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0"));
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>(4, GetParam().frame));
}

INSTANTIATE_TEST_SUITE_P(, CaeCardCommand, testing::ValuesIn(kCommands),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(CaeCardCommands, RefuseEveryOtherCardWithoutAFrame) {
  StartIdentified();
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (const COMMAND& command : kCommands) {
    for (int address = 0; address < 16 && command.wrongCard != nullptr; ++address) {
      if (rack.TypeAt(address) != command.type) {
        EXPECT_TRUE(Answers(*cae, Text(command, kDigits[address]), {command.wrongCard}));
      }
    }
  }
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>{});
  EXPECT_EQ(pauses.CountBegun(1), 1);
}

TEST_F(CaeCardCommands, RebootOfAnEmptySlotStillSendsTheFrame) {
  rack.Remove(5);
  StartIdentified();
  AnswerRequestsWith({});
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>{"04 50 05 01 AB"});
}

TEST_F(CaeCardCommands, ABadAddressSelectsCard0) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0});
  EXPECT_TRUE(Answers(*cae, "REBOOT:e", {"CIA: Card is REBOOTED", "RBT:0x0:OK"}));
  EXPECT_TRUE(Answers(*cae, "STORESRVPOS:?", {"CIA: POSITIONS ARE STORED at address ?"}));
  EXPECT_EQ(ParameterFrames(), (std::vector<std::string>{"04 50 00 01 AB", "04 50 00 01 74"}));
}

TEST_F(CaeCardCommands, BadCharactersInAValueCountAsZero) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0});
  EXPECT_TRUE(
      Answers(*cae, "SETANMASK:F=1f", {"CIA: Channel MASK of the card is SET", "AMS:0xF:0x10"}));
  EXPECT_TRUE(
      Answers(*cae, "SETSCA0:0=zF", {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCA0:0x0F"}));
  EXPECT_EQ(ParameterFrames(),
            (std::vector<std::string>{"05 50 0F 01 01 10", "05 50 00 01 C0 0F"}));
}

TEST_F(CaeCardCommands, AServoParameterOtherThanBIsA) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0, 0, kAnsweredValue});
  EXPECT_TRUE(
      Answers(*cae, "SETSCb2:0=11", {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCb2:0x11"}));
  EXPECT_TRUE(
      Answers(*cae, "GETSCx3:0", {"CIA: SERVO PARAM is GOT from card", "SPG:0x0:SCx3:0x2E"}));
  // The channel follows the hexadecimal rule as well.
  EXPECT_TRUE(
      Answers(*cae, "SETSCAF:0=11", {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCAF:0x11"}));
  EXPECT_TRUE(
      Answers(*cae, "SETSCAf:0=11", {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCAf:0x11"}));
  EXPECT_EQ(ParameterFrames(),
            (std::vector<std::string>{"05 50 00 01 C2 11", "04 50 00 40 24", "05 50 00 01 CF 11",
                                      "05 50 00 01 C0 11"}));
}

TEST_F(CaeCardCommands, AMotorChannelThatIsNoDigitCountsAsZero) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0, 0, kAnsweredValue});
  EXPECT_TRUE(
      Answers(*cae, "SETMSRx:1=02", {"CIA: MSR value of the card is SET", "MPS:0x1:MSRx:0x02"}));
  EXPECT_TRUE(Answers(*cae, "GETMSRx:1", {"CIA: MSR value is GOT from card", "MSR0:0x1:0x2E"}));
  EXPECT_EQ(ParameterFrames(), (std::vector<std::string>{"05 50 01 01 C0 02", "04 50 01 40 01"}));
}

TEST_F(CaeCardCommands, TheOnOffByteKeepsItsValueForAnythingElse) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0});
  const auto selfTest = [](const std::string& state) {
    return std::vector<std::string>{"CIA: SELFTEST STATE IS SET TO " + state + " at address E"};
  };
  const auto initLight = [](const std::string& state) {
    return std::vector<std::string>{"CIA: INITLIGHT STATE IS SET TO " + state + " at address E"};
  };
  EXPECT_TRUE(Answers(*cae, "LCDSELFTEST:E=ON", selfTest("ON")));
  EXPECT_TRUE(Answers(*cae, "LCDINITLIGHT:E=OF", initLight("OFF")));
  // Only two characters count, and each command has a byte of its own.
  EXPECT_TRUE(Answers(*cae, "LCDSELFTEST:E=maybe", selfTest("ma")));
  EXPECT_TRUE(Answers(*cae, "LCDINITLIGHT:E=on", initLight("on")));
  EXPECT_TRUE(Answers(*cae, "LCDSELFTEST:E=OFx", selfTest("OFF")));
  EXPECT_TRUE(Answers(*cae, "LCDSELFTEST:E=??", selfTest("??")));
  EXPECT_EQ(ParameterFrames(), (std::vector<std::string>{
                                   "05 50 0E 01 01 FF", "05 50 0E 01 02 00", "05 50 0E 01 01 FF",
                                   "05 50 0E 01 02 00", "05 50 0E 01 01 00", "05 50 0E 01 01 00"}));
}

TEST_F(CaeCardCommands, ACommandInTheMiddleOfALineIsFound) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0});
  // The address is what follows the first colon.
  EXPECT_TRUE(Answers(*cae, "please REBOOT:3 now", {"CIA: Card is REBOOTED", "RBT:0x3:OK"}));
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>{"04 50 03 01 AB"});
}

TEST_F(CaeCardCommands, TwoCommandsInOneReadRunOnceEachWithTheFirstColonAndEqualsSign) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0, 0, kAnsweredValue});
  EXPECT_TRUE(Answers(*cae, "POLLOFF:3\r\nREBOOT:5",
                      {"CIA: Card is REBOOTED", "RBT:0x3:OK", "CIA: POLLOFF is OK at address 3"}));
  EXPECT_TRUE(Answers(*cae, "SETANMASK:F=11\r\nSETSCA0:0=22",
                      {"CIA: Channel MASK of the card is SET", "AMS:0xF:0x11", kServoOnly}));
  EXPECT_EQ(ParameterFrames(), (std::vector<std::string>{"04 50 03 01 AB", "05 50 0F 01 01 11"}));
}

TEST_F(CaeCardCommands, MissingParametersCountAsZeroAndAreEchoedAsFarAsTheyWereTyped) {
  StartIdentified();
  AnswerRequestsWith({0x51, 0, 0, kAnsweredValue});
  // The separator first: nothing follows the colon, the equals sign, or the keyword.
  cae->Send("\r\nREBOOT:");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: Card is REBOOTED", "RBT:0x0:OK"})));
  cae->Send("\r\nSTORESRVPOS:");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: POSITIONS ARE STORED at address "})));
  cae->Send("\r\nSETANMASK:F=");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: Channel MASK of the card is SET", "AMS:0xF:0x00"})));
  cae->Send("\r\nSETANMASK:F=3");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: Channel MASK of the card is SET", "AMS:0xF:0x30"})));
  cae->Send("\r\nSETANMASK:F");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: Channel MASK of the card is SET", "AMS:0xF:0x00"})));
  cae->Send("\r\nSETSC");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SC:0x00"})));
  cae->Send(":0GETSC\r\n");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: SERVO PARAM is GOT from card", "SPG:0x0:SC:0x2E"})));
  cae->Send("\r\nLCDSELFTEST:E=");
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: SELFTEST STATE IS SET TO  at address E"})));
  EXPECT_EQ(ParameterFrames(),
            (std::vector<std::string>{"04 50 00 01 AB", "04 50 00 01 74", "05 50 0F 01 01 00",
                                      "05 50 0F 01 01 30", "05 50 0F 01 01 00", "05 50 00 01 C0 00",
                                      "04 50 00 40 21", "05 50 0E 01 01 00"}));
}

TEST_F(CaeCardCommands, WithoutTheSeparatorAreUnknown) {
  StartIdentified();
  for (const COMMAND& command : kCommands) {
    cae->Send(Text(command, command.address));
    EXPECT_TRUE(cae->Receives(UnknownReply())) << command.text;
  }
  EXPECT_EQ(ParameterFrames(), std::vector<std::string>{});
}

TEST_F(CaeCardCommands, ParametersWrittenAreReadBackFromTheRack) {
  StartIdentified();
  EXPECT_TRUE(
      Answers(*cae, "SETANMASK:F=15", {"CIA: Channel MASK of the card is SET", "AMS:0xF:0x15"}));
  EXPECT_TRUE(Answers(*cae, "GETANMASK:F", {"CIA: MASK is GOT from card", "AMV:0xF:0x15"}));
  EXPECT_TRUE(
      Answers(*cae, "SETSCB5:0=C8", {"CIA: SERVO PARAM of the card is SET", "SPS:0x0:SCB5:0xC8"}));
  EXPECT_TRUE(
      Answers(*cae, "GETSCB5:0", {"CIA: SERVO PARAM is GOT from card", "SPG:0x0:SCB5:0xC8"}));
  EXPECT_TRUE(
      Answers(*cae, "SETMSR0:1=20", {"CIA: MSR value of the card is SET", "MPS:0x1:MSR0:0x20"}));
  EXPECT_TRUE(Answers(*cae, "GETMSR0:1", {"CIA: MSR value is GOT from card", "MSR0:0x1:0x20"}));
  // A value that the card refuses.
  EXPECT_TRUE(Answers(*cae, "SETMSR0:1=21", {"CIE: PARAM WRITE ERROR"}));
}

}  // namespace
