#include "tests/system/SystemTest.h"

/// What an IO client may write: block commands and streams, and where refused commands are told.

namespace {

class IoCommands : public SYSTEM_TEST {
 protected:
  /// A command that is dealt with after all before it and gives a frame of its own.
  static constexpr const char* kMarker = "05 10 09 02 01 7E";
  void SendMarker(TCP_CLIENT& io) {
    io.Send("a9sHS7E\n");
    EXPECT_TRUE(WaitForFrame(kMarker));
  }

  /// The refused command, told on the CAE interface with its prompt.
  std::string Illegal(const std::string& command) const {
    return CaeLine("COE:Illegal command -> " + command) + CaeLine(">");
  }

  /// Each IO message gives exactly these frames, in this order; nobody is told anything.
  void ExpectFrames(const std::vector<std::pair<std::string, std::string>>& commands) {
    TCP_CLIENT io = ConnectIo();
    std::vector<std::string> expected = Frames();
    for (const auto& [command, frame] : commands) {
      const std::uint64_t before = adapter.Requests().Last();
      io.Send(command + "\n");
      EXPECT_TRUE(WaitForFrame(frame, before)) << command;
      expected.push_back(frame);
    }
    SendMarker(io);
    expected.emplace_back(kMarker);
    EXPECT_EQ(Frames(), expected);
    Synchronise(*cae);  // nothing else came on the CAE interface
  }

  /// Each command is refused on the CAE interface; nothing goes to the bus or to the IO client.
  void ExpectIllegal(const std::vector<std::string>& commands) {
    TCP_CLIENT io = ConnectIo();
    const std::vector<std::string> before = Frames();
    for (const std::string& command : commands) {
      io.Send(command + "\n");
      EXPECT_TRUE(cae->Receives(Illegal(command))) << command;
    }
    EXPECT_EQ(Frames(), before);
    io.Send("EXIT\n");
    EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
  }
};

TEST_F(IoCommands, ADigitalOutputBlockSendsTheCardsWholeState) {
  StartIdentified();
  ExpectFrames({{"a5b1dFB", "05 10 05 02 FF FB"},
                {"a5b0d0F", "05 10 05 02 0F FB"},
                {"a5b1dFF", "05 10 05 02 0F FF"},
                {"a5b0dFF", "05 10 05 02 FF FF"}});
}

TEST_F(IoCommands, AnOutputIsSwitchedAtTheRack) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b1dFB\n");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB, kLimit));
  io.Send("a0b4d20\n");
  EXPECT_TRUE(rack.WaitForValue(0, 4, 0x20, kLimit));
  io.Send("aElPAp0301tTail of the cat\n");
  EXPECT_TRUE(rack.WaitForText(0xE, 3, 1, "Tail of the cat", kLimit));
}

TEST_F(IoCommands, AServoBlockSendsAllSixPositions) {
  StartIdentified();
  ExpectFrames({{"a0b4d80", "09 10 00 06 80 80 80 80 80 80"},
                {"a0b0d00", "09 10 00 06 00 80 80 80 80 80"},
                {"a0b5dFF", "09 10 00 06 00 80 80 80 80 FF"}});
}

TEST_F(IoCommands, AMotorBlockSendsFourValues) {
  StartIdentified();
  ExpectFrames({{"a1b0d11", "07 10 01 04 11 00 00 00"}, {"a1b3d44", "07 10 01 04 11 00 00 44"}});
}

TEST_F(IoCommands, ABlockBeyondTheCardsChannelsChangesTheTableButIsNotSent) {
  StartIdentified();
  ExpectFrames({{"a5b7d12", "05 10 05 02 FF FF"}, {"a5bFd12", "05 10 05 02 FF FF"}});
}

TEST_F(IoCommands, FurtherCharactersOfABlockCommandAreIgnored) {
  StartIdentified();
  ExpectFrames({{"a5b1dFBCD and more", "05 10 05 02 FF FB"}});
}

TEST_F(IoCommands, DigitsThatAreNotHexadecimalCountAsZero) {
  StartIdentified();
  ExpectFrames({{"a5b0dxF", "05 10 05 02 0F FF"},
                {"a5b0dff", "05 10 05 02 00 FF"},
                {"a5bxdAA", "05 10 05 02 AA FF"},
                {"aeb1d22", "09 10 00 06 80 22 80 80 80 80"}});  // card e is card 0, a servo
}

TEST_F(IoCommands, ABlockCommandWithMissingDigitsHarmsNothing) {
  StartIdentified();
  // One digit is the value, as for every text of one or two digits.
  ExpectFrames({{"a5b0dF", "05 10 05 02 0F FF"}});
}

TEST_F(IoCommands, ABlockCommandToAnotherCardGivesNeitherFrameNorError) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  const std::vector<std::string> before = Frames();
  for (const char address : std::string("3489EF27")) {
    io.SendAndWaitUntilRead(std::string("a") + address + "b0d55\n");
  }
  Synchronise(*cae);
  SendMarker(io);
  std::vector<std::string> expected = before;
  expected.emplace_back(kMarker);
  EXPECT_EQ(Frames(), expected);
  // It has changed the table all the same.
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=0", {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"}));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d55")));
}

TEST_F(IoCommands, LcdControlsSendTheirCode) {
  StartIdentified();
  ExpectFrames({{"aElCL", "04 10 0E 01 00"},
                {"aElLO", "04 10 0E 01 01"},
                {"aElLF", "04 10 0E 01 02"},
                {"aElCO", "04 10 0E 01 03"},
                {"aElCF", "04 10 0E 01 04"},
                {"aElBO", "04 10 0E 01 05"},
                {"aElBF", "04 10 0E 01 06"},
                {"aElCLxyz", "04 10 0E 01 00"}});
}

TEST_F(IoCommands, AnLcdTextSendsPositionTextAndAClosingZero) {
  StartIdentified();
  ExpectFrames({{"aElPAp0301tTail of the cat",
                 "16 10 0E 13 09 03 01 54 61 69 6C 20 6F 66 20 74 68 65 20 63 61 74 00"},
                // The t is skipped unchecked; TEXT may be empty.
                {"aElPAp0A02?", "07 10 0E 04 09 0A 02 00"},
                {"aElPAp0000 PAp", "0A 10 0E 07 09 00 00 50 41 70 00"}});
}

TEST_F(IoCommands, AnLcdTextMayHave31CharactersAndNoMore) {
  StartIdentified();
  const std::string text = "0123456789ABCDEFGHIJKLMNOPQRSTU";
  ASSERT_EQ(text.size(), 31U);
  ExpectFrames(
      {{"aElPAp0000t" + text,
        "26 10 0E 23 09 00 00 " + sim::ToHex(sim::Bytes(text.begin(), text.end())) + " 00"}});
}

TEST_F(IoCommands, AnLcdTextOf32CharactersIsRefused) {
  StartIdentified();
  ExpectIllegal(
      {"aElPAp0000t0123456789ABCDEFGHIJKLMNOPQRSTUV", "aElPAp0000t" + std::string(200, 'x')});
}

TEST_F(IoCommands, AnLcdTextCommandThatIsTooShortIsRefused) {
  StartIdentified();
  ExpectIllegal({"aElPAp0301", "aElPAp", "aElPAp03", "aElxPAp"});
}

TEST_F(IoCommands, LcdCommandsToAnotherCardAreRefused) {
  StartIdentified();
  ExpectIllegal({"a5lCL", "aFlPAp0301tTail", "a2lLO", "aelCL"});
}

TEST_F(IoCommands, UnknownLcdControlsAreRefused) {
  StartIdentified();
  ExpectIllegal({"aElXX", "aElcl", "aElC", "aEl", "aElPA"});
}

TEST_F(IoCommands, AnIrStreamSendsItsBytes) {
  StartIdentified();
  ExpectFrames({{"a9sHS434F434B524F414348", "0D 10 09 0A 09 43 4F 43 4B 52 4F 41 43 48"},
                // An odd last digit is ignored; what is no digit counts as 0; none is a stream too.
                {"a9sHS1F2", "05 10 09 02 01 1F"},
                {"a9sHSxFFaa", "06 10 09 03 02 0F F0"},
                {"a9sHS", "04 10 09 01 00"}});
}

TEST_F(IoCommands, AnIrStreamMayHave23Bytes) {
  StartIdentified();
  std::string digits;
  std::string hex;
  for (int i = 0; i < 23; ++i) {
    digits += "A5";
    hex += " A5";
  }
  ExpectFrames({{"a9sHS" + digits, "1B 10 09 18 17" + hex},
                {"a9sHS" + digits + "1", "1B 10 09 18 17" + hex}});
}

TEST_F(IoCommands, AnIrStreamOf24BytesIsRefused) {
  StartIdentified();
  ExpectIllegal({"a9sHS" + std::string(48, '1'), "a9sHS" + std::string(240, '1')});
}

TEST_F(IoCommands, IrStreamsInAWrongPlaceOrToAnotherCardAreRefused) {
  StartIdentified();
  ExpectIllegal({"a5sHS1234", "a9sxHS1234", "a9s12HS", "a9s1234", "a9s", "a9shs12"});
}

TEST_F(IoCommands, AnythingElseIsRefused) {
  StartIdentified();
  ExpectIllegal({"x", "a", "a5", "a5b", "a5b1", "a5b1xFB", "A5b1dFB", " a5b1dFB", "b5a1dFB", "HELP",
                 "%s%n", "\r", "exit"});
}

TEST_F(IoCommands, ARefusedCommandWithoutACaeClientWaitsForTheNextOne) {
  Start();
  TCP_CLIENT io = ConnectIo();
  io.SendAndWaitUntilRead("nonsense\n");
  // Dealt with before what comes later.
  io.SendAndWaitUntilRead("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
  TCP_CLIENT client(config.cae.port);
  EXPECT_TRUE(client.Receives(Illegal("nonsense") + kCaeGreeting));
}

TEST_F(IoCommands, TwoCommandsInOneMessageAreHandledInOrderAndEmptyPiecesAreDropped) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  std::vector<std::string> expected = Frames();
  io.Send("\n\na5b0d01\n\n\na5b1d02\na5b0d03");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 03 02"));
  for (const char* frame : {"05 10 05 02 01 FF", "05 10 05 02 01 02", "05 10 05 02 03 02"}) {
    expected.emplace_back(frame);
  }
  EXPECT_EQ(Frames(), expected);
  Synchronise(*cae);
}

TEST_F(IoCommands, TheOtherCommandsOfAMessageWithARefusedOneAreStillHandled) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d01\nbad one\na5b0d02\nworse\n");
  EXPECT_TRUE(cae->Receives(Illegal("bad one") + Illegal("worse")));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 01 FF"));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 02 FF"));
}

TEST_F(IoCommands, ASeparatorOfSeveralBytesIsCutAsAWhole) {
  config.io.inpSeparator = "\r\n";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d01\r\na5b0d02\r\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 02 FF"));
  io.Send("x\r\r\n\ny\r\n");
  EXPECT_TRUE(cae->Receives(Illegal("x\r") + Illegal("\ny")));
}

TEST_F(IoCommands, CommandsAreCopiedToMonAsTyped) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send("a5b0d01");
  EXPECT_TRUE(mon.Receives("a5b0d01\r"));
  io.Send("\na5b0d02\nnonsense\n");
  EXPECT_TRUE(mon.Receives("\na5b0d02\nnonsense\n\r"));
  EXPECT_TRUE(cae->Receives(Illegal("nonsense")));
  // Neither goes back to the IO client.
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
}

TEST_F(IoCommands, ALongRefusedCommandIsToldWholeWithOneCarriageReturnAtItsEnd) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT client = ConnectCae();
  const std::string command = "x" + std::string(253, 'y');
  io.Send(command + "\n");
  EXPECT_TRUE(client.Receives(Illegal(command)));
}

}  // namespace
