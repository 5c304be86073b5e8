#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/system/SystemTest.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>

/// The switchboard: order of service, EXIT on the IO interface, and the end by a signal.

namespace {

class MasterLoop : public SYSTEM_TEST {
 protected:
  static std::vector<std::string> EndBy(const std::string& signal) {
    return {"[INF] signal " + signal + " on CAE interface",
            "[INF] signal " + signal + " on IO interface",
            "[INF] signal " + signal + " on MON interface",
            "[INF] signal " + signal + " on serial interface",
            "[INF] vorn is stopped by SIGTERM or SIGINT"};
  }

  std::vector<std::string> EndInLog() const {
    std::vector<std::string> lines = log.AllLines();
    std::erase_if(lines, [](const std::string& line) {
      return line.find("signal") == std::string::npos && line.find("stopped") == std::string::npos;
    });
    return lines;
  }
};

TEST_F(MasterLoop, ASigtermWhileIdleEndsTheDaemonAndIsLogged) {
  Start();
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  Stop(SIGTERM);
  EXPECT_EQ(EndInLog(), EndBy("15"));
}

TEST_F(MasterLoop, ASigintEndsTheDaemonAndIsLogged) {
  Start();
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  Stop(SIGINT);
  EXPECT_EQ(EndInLog(), EndBy("2"));
}

TEST_F(MasterLoop, ASigtermEndsTheDaemonWithClientsAndALinkUp) {
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  ASSERT_TRUE(rack.Press(3, 0));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d01")));
  EXPECT_TRUE(mon.Receives("a3b0d01\n\r"));
  Stop(SIGTERM);
  EXPECT_EQ(EndInLog(), EndBy("15"));
  EXPECT_TRUE(io.IsClosed());
  EXPECT_TRUE(mon.IsClosed());
  EXPECT_TRUE(cae->IsClosed());
}

TEST_F(MasterLoop, TheSignalIsNotMistakenForAnErrorByTheWorkers) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  pauses.Hold(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, 2));
  // Workers are in accept (MON), in select (CAE, IO) and on the line, the master loop in a pause.
  for (int i = 0; i < 20; ++i) {
    daemon.Signal(SIGINT);
  }
  io.SendAndWaitUntilRead("a5b0d00\n");
  pauses.Release(1);
  ExpectEnd();
  EXPECT_EQ(log.LinesWith("[ERR]"), std::vector<std::string>{});
  EXPECT_EQ(EndInLog(), EndBy("2"));
}

TEST_F(MasterLoop, ASignalOnlySetsTheStopFlagAndASecondOneOverwritesIt) {
  StartIdentified();
  pauses.Hold(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, 2));
  daemon.Signal(SIGINT);
  // The loop is in a card's second and goes on with it.
  EXPECT_FALSE(daemon.WaitForEnd(support::kSilence));
  daemon.Signal(SIGTERM);
  pauses.Release(1);
  ExpectEnd();
  EXPECT_EQ(EndInLog(), EndBy("15"));
}

TEST_F(MasterLoop, ExitOnTheIoInterfaceClosesOnlyTheIoConnection) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
  EXPECT_TRUE(io.IsClosed());
  EXPECT_TRUE(log.WaitForLine(ClosedByCommand("IO")));
  Synchronise(*cae);
  // EXIT is the loop's own: the monitor does not see it, the next IO client nothing of it.
  TCP_CLIENT next = ConnectIo();
  next.Send("a5b0d00\n");
  EXPECT_TRUE(mon.Receives("a5b0d00\n\r"));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 00 FF"));
  EXPECT_EQ(log.LinesWith("closed by"), std::vector<std::string>{ClosedByCommand("IO")});
}

TEST_F(MasterLoop, ExitOnTheIoInterfaceWaitsASecondBeforeItCloses) {
  Start();
  TCP_CLIENT io = ConnectIo();
  pauses.Hold(1);
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
  ASSERT_TRUE(pauses.WaitUntilBegun(1));
  EXPECT_TRUE(io.ReceivesNothing());
  EXPECT_EQ(log.Count(ClosedByCommand("IO")), 0);
  pauses.Release(1);
  EXPECT_TRUE(io.IsClosed());
  EXPECT_TRUE(log.WaitForLine(ClosedByCommand("IO")));
}

TEST_F(MasterLoop, ExitWithoutTheSeparatorOrWithAnythingElseIsAnOrdinaryLine) {
  Start();
  TCP_CLIENT client = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  const auto expectIllegal = [&](const std::string& line, const std::string& command) {
    io.Send(line);
    EXPECT_TRUE(client.Receives(CaeReply({"COE:Illegal command -> " + command}))) << line;
    EXPECT_TRUE(mon.Receives(line + "\r")) << line;
  };
  expectIllegal("EXIT", "EXIT");
  expectIllegal("EXIT\r\n", "EXIT\r");
  expectIllegal("EXIT\n\n", "EXIT");
  expectIllegal(" EXIT\n", " EXIT");
  io.Send("EXIT\nEXIT\n");
  EXPECT_TRUE(client.Receives(CaeReply({"COE:Illegal command -> EXIT"}) +
                              CaeReply({"COE:Illegal command -> EXIT"})));
}

TEST_F(MasterLoop, ThreeQueuedCaeCommandsAreAnsweredOneAfterTheOther) {
  StartIdentified();
  pauses.Hold(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, 2));
  cae->SendAndWaitUntilRead("DRVVER\r\n");
  cae->SendAndWaitUntilRead("nonsense\r\n");
  cae->SendAndWaitUntilRead("POLLSTATE\r\n");
  pauses.Release(1);
  EXPECT_TRUE(cae->Receives(
      CaeReply({"CIA: Card is REBOOTED", "RBT:0x5:OK"}) + CaeReply({"CIA: DRIVER VERSION 1.20"}) +
      UnknownReply() +
      CaeReply({"CIA: GLOBAL POLLING IS DISABLED", "PTI:0x3:ON", "PTI:0x8:ON", "PTI:0xF:ON"})));
}

TEST_F(MasterLoop, WhileACaeCommandWaitsForACardIoLinesAndCardInputWaitInTheirQueues) {
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  pauses.Hold(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, 2));
  io.SendAndWaitUntilRead("a5b0d01\n");
  io.SendAndWaitUntilRead("a5b0d02\n");
  ASSERT_TRUE(rack.Press(3, 0));
  EXPECT_TRUE(io.ReceivesNothing());
  EXPECT_EQ(rack.Value(5, 0), 0xFF);
  pauses.Release(1);
  EXPECT_TRUE(io.Receives(IoLine("a3b0d01")));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 01 FF"));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 02 FF"));
  EXPECT_TRUE(cae->Receives(CaeReply({"CIA: Card is REBOOTED", "RBT:0x5:OK"})));
  // Card input comes before the IO line of the same pass.
  EXPECT_TRUE(mon.Receives("a3b0d01\n\ra5b0d01\n\ra5b0d02\n\r"));
}

TEST_F(MasterLoop, LinesTypedOnTheMonInterfaceHaveNoEffect) {
  StartIdentified();
  TCP_CLIENT mon = ConnectMon();
  for (const char* line : {"DRVVER\r\n", "EXIT\r\n", "EXIT#", "a5b0d00\n", "EXIT\n"}) {
    mon.SendAndWaitUntilRead(line);
  }
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d11\n");
  EXPECT_TRUE(mon.Receives("a5b0d11\n\r"));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 11 FF"));
  Synchronise(*cae);
  EXPECT_EQ(Frames(), (std::vector<std::string>{"01 30", "05 10 05 02 11 FF"}));
}

TEST_F(MasterLoop, TheMonitorGetsIoLinesOnlyWhileItIsConnected) {
  Start();
  TCP_CLIENT client = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  io.Send("before");
  EXPECT_TRUE(client.Receives(CaeReply({"COE:Illegal command -> before"})));
  TCP_CLIENT mon = ConnectMon();
  io.Send("after");
  EXPECT_TRUE(mon.Receives("after\r"));
}

TEST_F(MasterLoop, ASignalInTheMiddleOfAnExchangeEndsTheDaemonAndIsNoTimeout) {
  constexpr int kRounds = 12;  // the process ends a moment after the exchange
  const auto isTimeout = [](const std::string& line) {
    return line.find("comm timeout") != std::string::npos;
  };
  adapter.Faults().Add(
      {.kind = sim::FAULT_KIND::kNoAnswer, .code = sim::request::kIdentify, .times = std::nullopt});
  pauses.SetLength(1, support::milliseconds(1));  // before the cards are asked for
  for (int round = 0; round < kRounds;) {
    std::filesystem::remove(log.Path());
    const std::uint64_t before = adapter.Requests().Last();
    StartLinked();
    ASSERT_TRUE(WaitForFrame("01 30", before));
    daemon.Signal(SIGSTOP);  // its threads go on together, the signal delivered
    ASSERT_TRUE(
        support::WaitUntil([&] { return support::StatusField(Pid(), "State").starts_with("T"); }));
    daemon.Signal(SIGTERM);
    daemon.Signal(SIGCONT);
    ExpectEnd();
    Unplug();
    EXPECT_EQ(EndInLog(), EndBy("15"));
    const std::vector<std::string> lines = log.AllLines();
    const auto signalled = std::find(lines.begin(), lines.end(), EndBy("15")[3]);
    EXPECT_TRUE(std::none_of(signalled, lines.end(), isTimeout));
    // Where the exchange was over before the signal came, another try.
    round += std::none_of(lines.begin(), signalled, isTimeout) ? 1 : 0;
  }
}

}  // namespace
