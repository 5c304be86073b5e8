#include "tests/support/GoldenHelp.h"
#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/system/SystemTest.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>

/// What any client of any interface sees: greeting, one message a read, one client at a time, and
/// what the log tells of it.

namespace {

class ClientInterface : public SYSTEM_TEST {
 protected:
  /// Log lines about an interface by its name.
  std::vector<std::string> About(const std::string& name) const {
    return log.LinesWith(name + " interface");
  }
};

TEST_F(ClientInterface, ACaeClientReceivesExactlyTheGreetingAndOneCarriageReturn) {
  Start();
  TCP_CLIENT client(config.cae.port);
  EXPECT_TRUE(client.Receives("VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(ClientInterface, AnIoClientReceivesExactlyItsGreetingAndOneCarriageReturn) {
  Start();
  TCP_CLIENT client(config.io.port);
  EXPECT_TRUE(client.Receives("VORN IO interface is ready\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(ClientInterface, AMonClientReceivesExactlyItsGreetingAndOneCarriageReturn) {
  Start();
  TCP_CLIENT client(config.mon.port);
  EXPECT_TRUE(client.Receives("VORN MON interface is ready\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(ClientInterface, ListensOnAllAddresses) {
  Start();
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  std::vector<int> expected{config.cae.port, config.io.port, config.mon.port};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(support::ListeningPorts(Pid()), expected);
}

TEST_F(ClientInterface, TheLogTellsOfAConnectionFromBeginningToEnd) {
  for (const support::INTERFACE* interface : {&config.cae, &config.io, &config.mon}) {
    std::filesystem::remove(log.Path());
    Start();
    TCP_CLIENT first(interface->port);
    EXPECT_TRUE(first.Read(1) == "V");
    first.Close();
    ASSERT_TRUE(log.WaitForLine(Waiting(interface->name), 2));
    TCP_CLIENT second(interface->port);
    EXPECT_TRUE(second.Read(1) == "V");
    const std::string& name = interface->name;
    EXPECT_EQ(About(name), (std::vector<std::string>{Listening(*interface), Waiting(name),
                                                     Connected(name, first), ClosedByClient(name),
                                                     Listening(*interface), Waiting(name),
                                                     Connected(name, second)}));
    Stop(SIGTERM);
  }
}

TEST_F(ClientInterface, ARepliedMessageIsFollowedByOneCarriageReturn) {
  config.cae.outSeparator = "";
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER\r\n");
  EXPECT_TRUE(client.Receives("CIA: DRIVER VERSION 1.20\r>\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(ClientInterface, AReadIsOneMessageWithItsLineEndUnchanged) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  // The monitor shows IO messages as they were read.
  io.Send("HELP\r\n");
  EXPECT_TRUE(mon.Receives("HELP\r\n\r"));
  io.Send("one\ntwo\n");
  EXPECT_TRUE(mon.Receives("one\ntwo\n\r"));
  io.Send(std::string("\xFF\x80\x01", 3));
  EXPECT_TRUE(mon.Receives("\xFF\x80\x01\r"));
}

TEST_F(ClientInterface, TwoLinesInOneSegmentAreOneMessage) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER\r\nDRVVER\r\n");
  EXPECT_TRUE(client.Receives(UnknownReply()));
  Synchronise(client);
}

TEST_F(ClientInterface, AZeroByteCutsTheMessage) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send(std::string("DRVVER\r\n\0HELP\r\n", 15));
  EXPECT_TRUE(client.Receives(CaeReply({"CIA: DRIVER VERSION 1.20"})));
  client.Send(std::string("DRV\0VER\r\n", 9));
  EXPECT_TRUE(client.Receives(UnknownReply()));
  Synchronise(client);
}

TEST_F(ClientInterface, AMessageThatBeginsWithAZeroByteIsEmpty) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send(std::string("\0DRVVER\r\n", 9));
  EXPECT_TRUE(client.Receives(UnknownReply()));
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send(std::string("\0a5b0d00\n", 9));
  EXPECT_TRUE(mon.Receives("\r"));
  Synchronise(client);
}

TEST_F(ClientInterface, AReadTakesAtMost255Bytes) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  const std::string text = std::string(255, 'a') + std::string(45, 'b');
  io.Send(text);
  EXPECT_TRUE(mon.Receives(std::string(255, 'a') + "\r" + std::string(45, 'b') + "\r"));
}

TEST_F(ClientInterface, AMessageOver255BytesGoesOutWholeWithOneCarriageReturnAtItsEnd) {
  Start();
  TCP_CLIENT client = ConnectCae();
  const std::string number = std::string(200, '0') + "90" + std::string(40, ' ');
  EXPECT_TRUE(Answers(client, "SPEED=" + number, {"CIA: SPEED IS SET to " + number + "%"}));
}

TEST_F(ClientInterface, AfterAClientLeftThePortRefusesUntilTheWorkerListensAgain) {
  Start();
  TCP_CLIENT client = ConnectCae();
  pauses.Hold(2);
  client.Close();
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE")));
  // The line is written, then the sockets are closed, then the first of two pauses is made.
  EXPECT_TRUE(support::WaitUntil([&] { return TCP_CLIENT::IsRefused(config.cae.port); }));
  const std::vector<int> begun = pauses.Begun();
  EXPECT_EQ(log.Count(Listening(config.cae)), 1);
  pauses.Release(2);
  TCP_CLIENT next = ConnectCae();
  EXPECT_EQ(log.Count(Listening(config.cae)), 2);
  Synchronise(next);
}

TEST_F(ClientInterface, AClientThatConnectsAgainIsAcceptedAfterThePauseBeforeAccept) {
  Start();
  TCP_CLIENT client = ConnectCae();
  pauses.Hold(3);
  client.Close();
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), 2));
  TCP_CLIENT next(config.cae.port);
  EXPECT_TRUE(next.ReceivesNothing());
  pauses.Release(3);
  EXPECT_TRUE(next.Receives(kCaeGreeting));
}

TEST_F(ClientInterface, ASecondClientGetsNoGreetingWhileTheFirstIsThereAndIsThenDropped) {
  Start();
  TCP_CLIENT first = ConnectCae();
  TCP_CLIENT second(config.cae.port);
  Synchronise(first);
  EXPECT_TRUE(second.ReceivesNothing());
  first.Close();
  // It waited on the listening socket that is now closed.
  EXPECT_TRUE(second.IsClosed());
  TCP_CLIENT third = ConnectCae();
  Synchronise(third);
}

TEST_F(ClientInterface, AHalfCloseIsAClose) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.CloseSending();
  EXPECT_TRUE(client.IsClosed());
  EXPECT_TRUE(log.WaitForLine(ClosedByClient("CAE")));
  TCP_CLIENT next = ConnectCae();
}

TEST_F(ClientInterface, AResetIsAClose) {
  Start();
  TCP_CLIENT client = ConnectIo();
  client.Reset();
  EXPECT_TRUE(log.WaitForLine(ClosedByClient("IO")));
  TCP_CLIENT next = ConnectIo();
}

TEST_F(ClientInterface, WhatIsQueuedWhileNobodyIsConnectedComesBeforeTheGreeting) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send("bad");
  EXPECT_TRUE(mon.Receives("bad\r"));
  io.Send("worse");
  EXPECT_TRUE(mon.Receives("worse\r"));
  TCP_CLIENT client(config.cae.port);
  EXPECT_TRUE(client.Receives(CaeReply({"COE:Illegal command -> bad"}) +
                              CaeReply({"COE:Illegal command -> worse"}) + kCaeGreeting));
  Synchronise(client);
}

TEST_F(ClientInterface, OneMessageIsLostWhenTheClientLeavesAndTheRestGoesToTheNext) {
  config.speedPercent = "1";  // one message each 5 ms
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("HELP\r\n");
  EXPECT_TRUE(client.Receives(CaeLine(kQuickHelp[0])));
  client.Close();
  // In the pass in which it sees the close the worker still tries to write.
  ASSERT_TRUE(log.WaitForLine("[ERR] socket write error on CAE interface"));
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), 2));
  TCP_CLIENT next(config.cae.port);
  const std::string rest = next.ReadUntil(kCaeGreeting);
  ASSERT_TRUE(rest.ends_with(CaeLine(">") + kCaeGreeting));
  const std::string all = CaeReply(kQuickHelp) + kCaeGreeting;
  EXPECT_TRUE(all.ends_with(rest)) << rest;
  EXPECT_LT(rest.size(), all.size() - CaeLine(kQuickHelp[0]).size());
  EXPECT_EQ(log.LinesWith("socket write error"),
            std::vector<std::string>{"[ERR] socket write error on CAE interface"});
  EXPECT_EQ(log.LinesWith("closed by client"), std::vector<std::string>{ClosedByClient("CAE")});
  const std::vector<std::string> lines = log.AllLines();
  EXPECT_LT(std::find(lines.begin(), lines.end(), ClosedByClient("CAE")),
            std::find(lines.begin(), lines.end(), "[ERR] socket write error on CAE interface"));
}

TEST_F(ClientInterface, APortThatIsTakenIsToldAndTheWorkerListensSomewhereElse) {
  // Somebody else listens there: bind fails, is told, and listen goes on as documented.
  support::CONFIG other = config;
  other.io.port = config.cae.port;
  StartWith(other.Text());
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  EXPECT_EQ(log.LinesWith("IO interface").at(0), "[ERR] couldn't bind socket forIO interface");
  EXPECT_EQ(log.LinesWith("IO interface").at(1),
            "[INF] IO interface listening on port " + std::to_string(config.cae.port));
  EXPECT_EQ(support::ListeningPorts(Pid()).size(), 3U);
  TCP_CLIENT client = ConnectCae();
}

TEST_F(ClientInterface, ManyConnectionsOneAfterTheOtherLeaveNoDescriptorBehind) {
  Start();
  const auto open = [&] { return support::OpenDescriptors(Pid()).size(); };
  std::size_t afterFirst = 0;
  for (int i = 0; i < 6; ++i) {
    TCP_CLIENT client = ConnectIo();
    // Between two pauses, which open a pipe each.
    ASSERT_TRUE(log.WaitForLine("[ERR] ttyUSB devices couldn't be found"));
    if (i == 0) {
      afterFirst = open();
    }
    if (i % 2 == 0) {
      client.Reset();
    }
  }
  TCP_CLIENT last = ConnectIo();
  EXPECT_TRUE(support::WaitUntil([&] { return open() <= afterFirst; })) << open();
}

}  // namespace
