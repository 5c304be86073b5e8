#include "tests/support/IoVectors.h"
#include "tests/system/SystemTest.h"

/// What an IO client writes, through the connections and the bus. What each command becomes is in
/// the unit tests.

namespace {

class IoCommands : public SYSTEM_TEST {
 protected:
  /// The refused command, told on the CAE interface with its prompt.
  std::string Illegal(const std::string& command) const {
    return CaeLine("COE:Illegal command -> " + command) + CaeLine(">");
  }
};

TEST_F(IoCommands, SendTheirFramesOrAreRefusedOnTheCaeInterface) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  std::vector<std::string> frames = Frames();
  for (const support::io::VECTOR& vector : support::io::kVectors) {
    const std::uint64_t before = adapter.Requests().Last();
    io.Send(std::string(vector.line) + "\n");
    if (vector.body == nullptr) {
      EXPECT_TRUE(cae->Receives(Illegal(vector.line))) << vector.line;
    } else if (*vector.body != '\0') {
      frames.push_back(sim::ToHex(sim::Frame(sim::FromHex(vector.body).value())));
      EXPECT_TRUE(WaitForFrame(frames.back(), before)) << vector.line;
    }
  }
  EXPECT_EQ(Frames(), frames);
  Synchronise(*cae);  // nothing else came on the CAE interface, and nothing on IO
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
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

TEST_F(IoCommands, ALongRefusedCommandIsToldWholeWithOneCarriageReturnAtItsEnd) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT client = ConnectCae();
  const std::string command = "x" + std::string(253, 'y');
  io.Send(command + "\n");
  EXPECT_TRUE(client.Receives(Illegal(command)));
}

}  // namespace
