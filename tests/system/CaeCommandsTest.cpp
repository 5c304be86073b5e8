#include "tests/system/SystemTest.h"

/// The commands of the CAE interface that are about the daemon itself, and how a line is
/// recognised.

namespace {

class CaeCommands : public SYSTEM_TEST {
 protected:
  static std::vector<std::string> EmptyList(const std::string& title) {
    std::vector<std::string> lines{title};
    for (const char digit : std::string("0123456789ABCDEF")) {
      lines.push_back(std::string("DTI:0x") + digit + ":EMPTY");
    }
    return lines;
  }
};

const std::string kVersion = "CIA: DRIVER VERSION 1.20";
const std::string kPollingOn = "CIA: GLOBAL POLLING IS ENABLED";
const std::string kPollingOff = "CIA: GLOBAL POLLING IS DISABLED";
const std::string kInputOnly = "CIE: THIS COMMAND IS VALID ON INPUT CARDS";
const std::string kOutOfRange = "CIE: Parameter is out of range (1..100)";
const std::string kSent = "CIA: LAST INPUT STATE SENT ON IO INTERFACE";

TEST_F(CaeCommands, DrvverTellsTheVersion) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER\r\n");
  EXPECT_TRUE(client.Receives("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r"));
}

TEST_F(CaeCommands, AnUnknownLineGetsOneMessageThatCarriesItsOwnPrompt) {
  Start();
  TCP_CLIENT client = ConnectCae();
  for (const char* line : {"drvver\r\n", "DRVVERS\r\n", " DRVVER\r\n", "DRVVER \r\n", "DRVVER\n",
                           "\r\nDRVVER", "\r\n", "x", "%s%n\r\n", "CIE: Command ERROR\r\n"}) {
    client.Send(line);
    EXPECT_TRUE(client.Receives("CIE: UNKNOWN COMMAND \r\n>\r\n\r")) << line;
  }
  Synchronise(client);
}

TEST_F(CaeCommands, WithoutTheSeparatorDrvverIsUnknown) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.SendAndWaitUntilRead("DRVVER");
  EXPECT_TRUE(client.Receives(UnknownReply()));
  client.Send("\r\n");
  EXPECT_TRUE(client.Receives(UnknownReply()));
}

TEST_F(CaeCommands, TwoLinesInOneReadMatchNoExactCommand) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER\r\nHELP\r\n");
  EXPECT_TRUE(client.Receives(UnknownReply()));
  Synchronise(client);
}

TEST_F(CaeCommands, ValamiIsComparedAndYetUnknown) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("VALAMI\r\n");
  EXPECT_TRUE(client.Receives(UnknownReply()));
  Synchronise(client);
}

TEST_F(CaeCommands, SpeedTakes1To100) {
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "SPEED=0", {kOutOfRange}));
  EXPECT_TRUE(Answers(client, "SPEED=101", {kOutOfRange}));
  EXPECT_TRUE(Answers(client, "SPEED=-1", {kOutOfRange}));
  EXPECT_TRUE(Answers(client, "SPEED=fast", {kOutOfRange}));
  EXPECT_TRUE(Answers(client, "SPEED=", {kOutOfRange}));
  EXPECT_TRUE(Answers(client, "SPEED=100", {"CIA: SPEED IS SET to 100%"}));
  EXPECT_TRUE(Answers(client, "SPEED=1", {"CIA: SPEED IS SET to 1%"}));
  EXPECT_TRUE(Answers(client, "SPEED=95", {"CIA: SPEED IS SET to 95%"}));
}

TEST_F(CaeCommands, SpeedIsEchoedAsTypedUpToTheSeparator) {
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "SPEED= 050 percent", {"CIA: SPEED IS SET to  050 percent%"}));
  EXPECT_TRUE(Answers(client, "x SPEED=60=70", {"CIA: SPEED IS SET to 60=70%"}));
  // One character of the separator ends the number.
  client.Send("SPEED=8\n0\r\n");
  EXPECT_TRUE(client.Receives(CaeReply({"CIA: SPEED IS SET to 8%"})));
}

TEST_F(CaeCommands, ASpeedBeyond32BitsIsOutOfRange) {
  Start();
  TCP_CLIENT client = ConnectCae();
  // 2 to the 32nd and 50; 2 to the 64th and 50.
  EXPECT_TRUE(Answers(client, "SPEED=4294967346", {kOutOfRange}));
  EXPECT_TRUE(Answers(client, "SPEED=18446744073709551666", {kOutOfRange}));
}

TEST_F(CaeCommands, SpeedIsRecognisedByItsKeywordAlone) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("SPEED=90");
  EXPECT_TRUE(client.Receives(CaeReply({"CIA: SPEED IS SET to 90%"})));
}

TEST_F(CaeCommands, SpeedPacesTheInterfacesToo) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "SPEED=1", {"CIA: SPEED IS SET to 1%"}));
  // One message a pass, 5 ms a pass.
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(Answers(client, "DISCOVER", EmptyList("DISCOVER LIST:")));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(17 * 5));
}

TEST_F(CaeCommands, DiscoverBeforeAnyCardAnsweredListsSixteenEmptySlots) {
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "DISCOVER", EmptyList("DISCOVER LIST:")));
}

TEST_F(CaeCommands, ForceDiscoverWithoutAnAdapterListsSixteenEmptySlots) {
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER", EmptyList("FORCED DISCOVER LIST:")));
  EXPECT_EQ(pauses.CountBegun(1), 2);
}

TEST_F(CaeCommands, PollstateWithNoInputCardSendsOnlyTheGlobalLine) {
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "POLLSTATE", {kPollingOff}));
  EXPECT_TRUE(Answers(client, "ENABLEPOLL", {kPollingOn}));
  EXPECT_TRUE(Answers(client, "POLLSTATE", {kPollingOn}));
  EXPECT_TRUE(Answers(client, "DISABLEPOLL", {kPollingOff}));
  EXPECT_TRUE(Answers(client, "POLLSTATE", {kPollingOff}));
}

TEST_F(CaeCommands, TheInitialPollingSwitchIsConfigured) {
  config.initPollState = "TRUE";
  Start();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "POLLSTATE", {kPollingOn}));
}

TEST_F(CaeCommands, PollonAndPolloffSwitchInputCardsOnly) {
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "POLLSTATE", {kPollingOff, "PTI:0x3:ON", "PTI:0x8:ON", "PTI:0xF:ON"}));
  EXPECT_TRUE(Answers(*cae, "POLLOFF:8", {"CIA: POLLOFF is OK at address 8"}));
  EXPECT_TRUE(Answers(*cae, "POLLOFF:F", {"CIA: POLLOFF is OK at address F"}));
  EXPECT_TRUE(
      Answers(*cae, "POLLSTATE", {kPollingOff, "PTI:0x3:ON", "PTI:0x8:OFF", "PTI:0xF:OFF"}));
  EXPECT_TRUE(Answers(*cae, "POLLON:F", {"CIA: POLLON is OK at address F"}));
  // The flags are remembered while polling is globally off or on.
  EXPECT_TRUE(Answers(*cae, "ENABLEPOLL", {kPollingOn}));
  EXPECT_TRUE(Answers(*cae, "POLLSTATE", {kPollingOn, "PTI:0x3:ON", "PTI:0x8:OFF", "PTI:0xF:ON"}));
  for (const char* address : {"0", "1", "2", "5", "9", "E", "f", "x"}) {
    EXPECT_TRUE(Answers(*cae, std::string("POLLON:") + address, {kInputOnly}));
    EXPECT_TRUE(Answers(*cae, std::string("POLLOFF:") + address, {kInputOnly}));
  }
  EXPECT_TRUE(Answers(*cae, "POLLSTATE", {kPollingOn, "PTI:0x3:ON", "PTI:0x8:OFF", "PTI:0xF:ON"}));
}

TEST_F(CaeCommands, PollonOnADigitalOutputCardRepliesThatItIsNoInputCard) {
  rack.Insert(2, sim::type::kDigitalOutput);
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "POLLON:2", {"CIE: THIS COMMAND IS VALID ON INPUT CARDS"}));
}

TEST_F(CaeCommands, PollonAndPolloffNeedTheSeparator) {
  StartIdentified();
  for (const char* text : {"POLLOFF:3", "POLLON:3", "GETLASTINPST:3=0"}) {
    cae->Send(text);
    EXPECT_TRUE(cae->Receives(UnknownReply()));
  }
  EXPECT_TRUE(Answers(*cae, "POLLSTATE", {kPollingOff, "PTI:0x3:ON", "PTI:0x8:ON", "PTI:0xF:ON"}));
}

TEST_F(CaeCommands, GetlastinpstSendsTheStateOnTheIoAndMonInterfaces) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  // A block command sets the last known state of any card.
  io.SendAndWaitUntilRead("a3b0dA5\n");
  EXPECT_TRUE(mon.Receives("a3b0dA5\n\r"));
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=0", {kSent}));
  EXPECT_TRUE(io.Receives(IoLine("a3b0dA5")));
  EXPECT_TRUE(mon.Receives("a3b0dA5\n\r"));
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:F=5", {kSent}));
  EXPECT_TRUE(io.Receives(IoLine("aFb5d00")));
  EXPECT_TRUE(mon.Receives("aFb5d00\n\r"));
}

TEST_F(CaeCommands, GetlastinpstRefusesOtherBlocksAndOtherCards) {
  StartIdentified();
  const std::string invalid = "CIE: INVALID BLOCK NUMBER";
  const std::string wrongCard = "CIE: THIS COMMAND IS VALID ON ANALOG OR DIGITAL INPUT CARD ONLY";
  TCP_CLIENT io = ConnectIo();
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=2", {invalid}));
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=F", {invalid}));
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:F=6", {invalid}));
  for (const char address : std::string("0125789E")) {
    EXPECT_TRUE(Answers(*cae, std::string("GETLASTINPST:") + address + "=0", {wrongCard}));
  }
  // The block is one digit by the hexadecimal rule: a bad one is block 0.
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=x", {kSent}));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d00")));
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=12", {kSent}));
  EXPECT_TRUE(io.Receives(IoLine("a3b1d00")));
}

TEST_F(CaeCommands, ExitSaysGoodbyeAndClosesByCommand) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("EXIT\r\n");
  EXPECT_TRUE(client.Receives(CaeLine("VORN: Bye Bye...")));
  EXPECT_TRUE(client.IsClosed());
  EXPECT_TRUE(log.WaitForLine(ClosedByCommand("CAE")));
  EXPECT_TRUE(log.WaitForLine(Waiting("CAE"), 2));
  EXPECT_EQ(log.LinesWith("closed by client"), std::vector<std::string>{});
  EXPECT_EQ(pauses.CountBegun(1), 1);
}

TEST_F(CaeCommands, AfterExitThePromptIsTheFirstThingThatTheNextClientReceives) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("EXIT\r\n");
  EXPECT_TRUE(client.Receives(CaeLine("VORN: Bye Bye...")));
  EXPECT_TRUE(client.IsClosed());
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), 2));
  TCP_CLIENT next(config.cae.port);
  EXPECT_TRUE(next.Receives(CaeLine(">") + kCaeGreeting));
  Synchronise(next);
}

TEST_F(CaeCommands, ExitNeedsTheSeparatorAndNothingElse) {
  Start();
  TCP_CLIENT client = ConnectCae();
  for (const char* line : {"EXIT", "EXIT \r\n", "exit\r\n", "EXIT\n", "EXIT\r\n\r\n"}) {
    client.Send(line);
    EXPECT_TRUE(client.Receives(UnknownReply())) << line;
  }
  Synchronise(client);
}

TEST_F(CaeCommands, EachInterfaceHasItsOwnSeparators) {
  config.cae.inpSeparator = ";";
  config.cae.outSeparator = "!";
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER;");
  EXPECT_TRUE(client.Receives("CIA: DRIVER VERSION 1.20!\r>!\r"));
  client.Send("DRVVER\r\n");
  EXPECT_TRUE(client.Receives("CIE: UNKNOWN COMMAND !>!\r"));
}

}  // namespace
