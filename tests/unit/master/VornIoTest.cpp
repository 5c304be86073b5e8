// The central object: what passes between the cards, the IO client and the monitor.

#include "tests/support/unit/Gate.h"
#include "tests/unit/master/VornFixture.h"

#include <algorithm>
#include <optional>

namespace vorn {

namespace unit {
namespace {

using support::WaitUntil;

// --- card input ---------------------------------------------------------------------------------

TEST_F(Vorn, AnInputChangeReachesTheIoClientAndTheMonitorWithTheIoSeparator) {
  config.initPollState = "TRUE";
  CLIENTS all = StartWithAll();
  firstGroup = 0x40;
  EXPECT_TRUE(all.io.Receives("a3b0d40\n\r"));
  EXPECT_TRUE(all.mon.Receives("a3b0d40\n\r"));
  firstGroup = 0x00;
  EXPECT_TRUE(all.io.Receives("a3b0d00\n\r"));
  EXPECT_TRUE(all.mon.Receives("a3b0d00\n\r"));
}

TEST_F(Vorn, AnInputChangeNeedsAnIoClientAndNoMonitor) {
  const LINES sent = {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"};
  Start();
  TCP_CLIENT cae = ConnectCae();
  WaitForCards(cae);
  TCP_CLIENT mon = ConnectMon();
  Ask(cae, "GETLASTINPST:3=0", sent);
  AskVersion(cae);  // a later pass: the line is gone, for the monitor too
  TCP_CLIENT io = ConnectIo();
  Ask(cae, "GETLASTINPST:3=1", sent);
  EXPECT_TRUE(io.Receives("a3b1d00\n\r"));
  EXPECT_TRUE(mon.Receives("a3b1d00\n\r"));
  mon.Close();
  Ask(cae, "GETLASTINPST:3=1", sent);
  EXPECT_TRUE(io.Receives("a3b1d00\n\r"));
}

TEST_F(Vorn, PausesPollingWhile24KibOfLinesWaitForAnIoClientThatDoesNotRead) {
  auto [cae, io] = StartWithADeafIoClient();
  EXPECT_TRUE(PausesPolling(cae));
  AskVersion(cae);
  const int paused = changes;
  io.Close();
  EXPECT_TRUE(WaitUntil([&] { return changes > paused; }));
}

// --- the IO interface ---------------------------------------------------------------------------

TEST_F(Vorn, KeepsNoFarewellBehind20KibThatWaitForTheNextIoClient) {
  auto [cae, io] = StartWithADeafIoClient();
  EXPECT_TRUE(PausesPolling(cae));
  changesAtEachPoll = false;
  const int accepts = pauses.CountBegun(3);
  pauses.Hold(3);
  io.Close();
  ASSERT_TRUE(pauses.WaitUntilBegun(3, accepts + 1));
  // One that leaves before it is served: nothing can be written to it.
  TCP_CLIENT gone(config.io.port);
  gone.Send("EXIT\n");
  gone.Reset();
  pauses.Hold(2);
  pauses.Release(3);
  EXPECT_TRUE(
      WaitUntil([&] { return Logged("[INF] connection is closed by command on IO interface"); }));
  pauses.Release(2);
  std::optional<TCP_CLIENT> next;
  do {  // who comes too early is dropped with the listener
    next.emplace(config.io.port);
  } while (!next->WaitForFirstByte());
  EXPECT_GE(next->ReadUntil(kIoGreeting).size(), 20U * 1024);  // and the greeting of who is gone
  EXPECT_TRUE(next->Receives(kIoGreeting));
}

TEST_F(Vorn, AnIoCommandReachesItsCardOrTheOperatorAndTheMonitorAsTyped) {
  CLIENTS all = StartWithAll();
  all.io.Send("a5b1dFB\n");
  EXPECT_TRUE(all.mon.Receives("a5b1dFB\n\r"));
  EXPECT_TRUE(WaitUntil([&] {
    const std::vector<BYTES> requests = line.Requests();
    return std::find(requests.begin(), requests.end(), Hex("05 10 05 02 FF FB")) != requests.end();
  }));
  all.io.SendAndWaitUntilRead("bad\n");
  EXPECT_TRUE(all.cae.Receives("COE:Illegal command -> bad\r\n\r>\r\n\r"));
  EXPECT_TRUE(all.mon.Receives("bad\n\r"));
}

TEST_F(Vorn, HoldsTheIoClientBackWhileTheBusIsBehindAndLosesNothing) {
  CLIENTS all = StartWithAll();
  const std::size_t before = line.Requests().size();
  GATE gate;
  line.AnswerWith([&](const BYTES& body) {
    gate.Pass();
    return Answer(body);
  });
  all.io.SendAndWaitUntilRead("a5b0d00\n");
  ASSERT_TRUE(all.mon.Receives("a5b0d00\n\r"));
  ASSERT_TRUE(gate.WaitUntilReached());
  // Six bytes a frame: behind the first, which is on the line, 683 are 4 KiB.
  std::string commandsOfOneRead;
  for (int i = 0; i < 31; ++i) {
    commandsOfOneRead += "a5b0d00\n";
  }
  for (int i = 0; i < 23; ++i) {
    all.io.SendAndWaitUntilRead(commandsOfOneRead);
    ASSERT_TRUE(all.mon.Receives(commandsOfOneRead + "\r"));
  }
  all.io.SendAndWaitUntilRead("a5b0d01\n");
  AskVersion(all.cae);
  AskVersion(all.cae);
  EXPECT_TRUE(all.mon.ReceivesNothing());
  gate.Open();
  EXPECT_TRUE(all.mon.Receives("a5b0d01\n\r"));
  EXPECT_TRUE(WaitUntil([&] { return line.Requests().size() == before + 1 + 23 * 31 + 1; }));
}

TEST_F(Vorn, GoesOnWithIoWithoutAnAdapterAndSendsEachCardTheLatestWhenThereIsOne) {
  CLIENTS all = StartWithAll();
  line.List({});
  line.AnswerWith([](const BYTES&) { return BYTES(); });
  all.io.Send("a5b0d00\n");
  ASSERT_TRUE(WaitUntil([&] { return Logged("[INF] comm timeout " + line.Path()); }));
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));
  std::vector<BYTES> frames;
  for (int read = 0; read < 40; ++read) {
    std::string commandsOfOneRead;
    for (int i = 0; i < 31; ++i) {
      const auto value = static_cast<std::uint8_t>(frames.size());
      commandsOfOneRead += "a5b0d" + ToHex(BYTES{value}) + "\n";
      frames.push_back({0x05, 0x10, 0x05, 0x02, value, 0xFF});
    }
    all.io.SendAndWaitUntilRead(commandsOfOneRead);
    ASSERT_TRUE(all.mon.Receives(commandsOfOneRead + "\r"));
  }
  AskVersion(all.cae);
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(),
                       "[ERR] too many messages wait for the card bus, the oldest are lost"),
            1);
  frames.erase(frames.begin(), frames.end() - 4096 / 6);  // six bytes each, as a queue counts them
  line.AnswerWith([this](const BYTES& body) { return Answer(body); });
  line.List({line.Path()});
  const auto sent = [&] {
    std::vector<BYTES> requests = line.Requests();
    std::erase_if(requests, [](const BYTES& frame) { return frame[1] != 0x10; });
    return std::vector<BYTES>(requests.begin() + 1, requests.end());  // the first cost the link
  };
  EXPECT_TRUE(WaitUntil([&] { return sent().size() >= frames.size(); }));
  EXPECT_EQ(sent(), frames);
}

TEST_F(Vorn, MakesNoCopiesWhile208KibWaitForAMonitorThatDoesNotReadAndSaysSoOnce) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon(config.mon.port, {.smallBuffers = true});
  EXPECT_TRUE(mon.Receives(kMonGreeting));
  constexpr const char* kFull =
      "[ERR] too many messages wait on MON interface, copies are not made";
  const std::string flood(830 * 255, '\n');  // 830 reads without a command for a card
  const auto sendFlood = [&] {
    io.Send(flood);
    io.SendAndWaitUntilRead("bad\n");
    return cae.ReadUntil("COE:Illegal command -> bad\r\n\r>\r\n\r");
  };
  EXPECT_TRUE(WaitUntil([&] {
    sendFlood();
    return Logged(kFull);
  }));
  sendFlood();
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), kFull), 1);
  std::size_t copied = 0;
  EXPECT_TRUE(WaitUntil([&] {
    copied += mon.Read(4096, support::milliseconds(20)).size();
    return copied >= 208U * 1024;
  }));
  // Hardly any wait by now.
  io.Send("good\n");
  EXPECT_TRUE(mon.ReadUntil("good\n\r").ends_with("good\n\r"));
}

TEST_F(Vorn, ExitOnIoEndsOnlyThatConnection) {
  CLIENTS all = StartWithAll();
  Exit(all.io, "\n");
  EXPECT_TRUE(all.io.IsClosed());
  EXPECT_TRUE(Logged("[INF] connection is closed by command on IO interface"));
  AskVersion(all.cae);
  TCP_CLIENT again = ConnectIo();
  again.Send("a5b0d00\n");
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));  // EXIT was not copied
}

TEST_F(Vorn, AnExitThatWaitedEndsNobodyElsesConnection) {
  CLIENTS all = StartWithAll();
  // The master loop is in a command's second while both send their last words and leave.
  const int paused = pauses.CountBegun(1);
  pauses.Hold(1);
  all.cae.SendAndWaitUntilRead("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, paused + 1));
  all.io.SendAndWaitUntilRead("a5b0d00\n");
  all.io.SendAndWaitUntilRead("EXIT\n");
  all.cae.SendAndWaitUntilRead("EXIT\r\n");
  all.io.Close();
  all.cae.Close();
  TCP_CLIENT nextIo = ConnectIo();
  TCP_CLIENT nextCae = ConnectCae();
  pauses.Release(1);
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));  // commands of who has left are carried out
  EXPECT_TRUE(nextCae.Receives("CIA: Card is REBOOTED\r\n\rRBT:0x5:OK\r\n\r>\r\n\r"));
  AskVersion(nextCae);
  nextIo.Send("a5b0d01\n");
  EXPECT_TRUE(all.mon.Receives("a5b0d01\n\r"));
  EXPECT_TRUE(nextIo.ReceivesNothing());
  Exit(nextIo, "\n");
  EXPECT_TRUE(nextIo.IsClosed());
  EXPECT_FALSE(Logged("[INF] connection is closed by command on CAE interface"));
}

TEST_F(Vorn, ExitOnIoNeedsItsSeparatorAndNothingElse) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  io.SendAndWaitUntilRead("EXIT");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\n\r>\r\n\r"));
  io.SendAndWaitUntilRead("EXIT\r\n");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\r\n\r>\r\n\r"));
  io.SendAndWaitUntilRead("EXIT\nEXIT\n");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\n\r>\r\n\r"));
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> EXIT\r\n\r>\r\n\r"));
  Exit(io, "\n");
}

// --- the monitor --------------------------------------------------------------------------------

TEST_F(Vorn, AMonitorSeesNothingOfWhatWentOnBeforeIt) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  io.SendAndWaitUntilRead("bad\n");
  EXPECT_TRUE(cae.Receives("COE:Illegal command -> bad\r\n\r>\r\n\r"));
  AskVersion(cae);                // a later pass
  TCP_CLIENT mon = ConnectMon();  // what waited would come ahead of the greeting
  io.Send("a5b0d00\n");
  EXPECT_TRUE(mon.Receives("a5b0d00\n\r"));
}

TEST_F(Vorn, WhatAMonitorTypesHasNoEffect) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  TCP_CLIENT mon = ConnectMon();
  WaitForCards(cae);
  const std::size_t before = line.Requests().size();
  mon.SendAndWaitUntilRead("EXIT#");
  mon.SendAndWaitUntilRead("EXIT\n");
  mon.SendAndWaitUntilRead("a5b1dFB\n");
  mon.SendAndWaitUntilRead("REBOOT:5\r\n");
  AskVersion(cae);
  AskVersion(cae);
  EXPECT_EQ(line.Requests().size(), before);
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d00\n");
  EXPECT_TRUE(mon.Receives("a5b0d00\n\r"));
}

}  // namespace
}  // namespace unit

}  // namespace vorn
