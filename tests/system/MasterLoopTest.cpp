#include "tests/system/SystemTest.h"

#include <signal.h>

#include <algorithm>

/// The switchboard: who waits for whom, and the end by a signal while everybody is busy.

namespace {

class MasterLoop : public SYSTEM_TEST {};

TEST_F(MasterLoop, ASignalEndsItWithClientsAndALinkAndIsNotMistakenForAnErrorByTheWorkers) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  pauses.Hold(1);
  cae->Send("REBOOT:5\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, 2));
  io.SendAndWaitUntilRead("a5b0d00\n");
  // Workers rest by their clients and the bus, the master loop is in a pause, which it leaves.
  for (int i = 0; i < 20; ++i) {
    daemon.Signal(SIGINT);
  }
  ExpectEnd();
  pauses.Release(1);
  EXPECT_TRUE(io.IsClosed());
  EXPECT_TRUE(mon.IsClosed());
  EXPECT_EQ(log.LinesWith("[ERR]"), std::vector<std::string>{});
  std::vector<std::string> ends = log.AllLines();
  ends.erase(ends.begin(), std::find(ends.begin(), ends.end(), "[INF] signal 2 on CAE interface"));
  EXPECT_EQ(ends, (std::vector<std::string>{
                      "[INF] signal 2 on CAE interface", "[INF] signal 2 on IO interface",
                      "[INF] signal 2 on MON interface", "[INF] signal 2 on serial interface",
                      "[INF] vorn is stopped by SIGTERM or SIGINT"}));
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

}  // namespace
