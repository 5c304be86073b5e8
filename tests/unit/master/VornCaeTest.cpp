// The central object: what passes between the operator and the master loop.

#include "tests/support/ListeningPorts.h"
#include "tests/unit/master/VornFixture.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace vorn {

namespace unit {
namespace {

using support::WaitUntil;

TEST_F(Vorn, CommandsOfThreeReadsAreAnsweredInTheirOrder) {
  config.autoDiscover = "FALSE";
  Start();
  TCP_CLIENT cae = ConnectCae();
  cae.SendAndWaitUntilRead("DRVVER\r\n");
  cae.SendAndWaitUntilRead("nonsense\r\n");
  cae.SendAndWaitUntilRead("POLLSTATE\r\n");
  EXPECT_TRUE(
      cae.Receives("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r"
                   "CIE: UNKNOWN COMMAND \r\n>\r\n\r"
                   "CIA: GLOBAL POLLING IS DISABLED\r\n\r>\r\n\r"));
}

TEST_F(Vorn, ExitOnCaeEndsOnlyThatConnectionAndLeavesItsPromptForTheNextClient) {
  CLIENTS all = StartWithAll();
  pauses.Hold(2);
  Exit(all.cae, "\r\n");
  EXPECT_TRUE(all.cae.IsClosed());
  EXPECT_TRUE(Logged("[INF] connection is closed by command on CAE interface"));
  all.io.Send("a5b0d00\n");
  EXPECT_TRUE(all.mon.Receives("a5b0d00\n\r"));  // in a later pass: the prompt waits
  pauses.Release(2);
  TCP_CLIENT again(config.cae.port);
  EXPECT_TRUE(again.Receives(">\r\n\r"));
  EXPECT_TRUE(again.Receives(kCaeGreeting));
}

TEST_F(Vorn, PollingFollowsTheOperator) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  WaitForCards(cae);
  const auto polls = [&] {
    const std::vector<BYTES> requests = line.Requests();
    return std::count(requests.begin(), requests.end(), Hex("03 20 03 02"));
  };
  EXPECT_EQ(polls(), 0);
  Ask(cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"});
  EXPECT_TRUE(WaitUntil([&] { return polls() > 3; }));
  Ask(cae, "POLLSTATE", {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON"});
  Ask(cae, "DISABLEPOLL", {"CIA: GLOBAL POLLING IS DISABLED"});
}

TEST_F(Vorn, SpeedPacesAllFiveLoops) {
  config.speedPercent = "100";
  CLIENTS all = StartWithAll();
  Ask(all.cae, "SPEED=50", {"CIA: SPEED IS SET to 50%"});
  EXPECT_TRUE(WaitUntil([&] { return pauses.ThreadsThatDelayed(2525) == 5; }));
}

TEST_F(Vorn, TakesNoCommandWhile336KibOfAnswersWaitForTheOperator) {
  config.speedPercent = "100";
  Start();
  TCP_CLIENT cae = ConnectCae();
  cae.Send(AskedAtOnce());
  const std::size_t answer = cae.ReadUntil("\r>\r\n\r").size();
  constexpr std::size_t kReads = 1000;
  std::thread asking([&] {
    for (std::size_t i = 0; i < kReads; ++i) {
      cae.Send(AskedAtOnce());
    }
    cae.SendAndWaitUntilRead("");
    cae.Send("SPEED=50\r\n");
  });
  // Most of the answers have gone out when the last command is carried out.
  std::size_t answered = 0;
  EXPECT_TRUE(WaitUntil([&] {
    answered += cae.Read(4096, std::chrono::milliseconds(20)).size();
    return pauses.ThreadsThatDelayed(2525) > 0;
  }));
  asking.join();
  // All others have gone out, those included that this thread has not got yet.
  answered += cae.Read(kReads * answer, std::chrono::milliseconds(0)).size();
  const long underWay = support::UnacknowledgedBytes(config.cae.port, cae.LocalPort()) +
                        support::UnreadBytes(cae.LocalPort(), config.cae.port);
  EXPECT_GT(answered + static_cast<std::size_t>(underWay),
            kReads * answer - 336U * 1024 - 4096);  // one answer may go over it
}

TEST_F(Vorn, KeepsNoMoreThan336KibOfAnswersForOperatorsWhoAskAndGoAndSaysSoOnce) {
  config.speedPercent = "100";
  Start();
  constexpr const char* kFull =
      "[ERR] too many messages wait on CAE interface, answers are not kept";
  std::string reads;
  for (int i = 0; i < 60; ++i) {
    reads += AskedAtOnce();
  }
  EXPECT_TRUE(WaitUntil([&] {
    TCP_CLIENT cae(config.cae.port);
    cae.Send(reads);
    cae.CloseSending();  // read to its end; few answers go out meanwhile
    cae.ReadToEnd();
    return Logged(kFull);
  }));
  TCP_CLIENT cae(config.cae.port);
  const std::string waited = cae.ReadUntil(kCaeGreeting);
  EXPECT_TRUE(waited.ends_with(kCaeGreeting));
  EXPECT_LT(waited.size(), 336U * 1024 + 4096);  // one answer may go over it
  EXPECT_TRUE(WaitUntil([&] {
    cae.Send("DRVVER\r\n");
    return cae.ReadUntil("\r\n\r>\r\n\r").ends_with("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r");
  }));
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), kFull), 1);
}

TEST_F(Vorn, TakesNoCommandWhile28KibOfLinesWaitThatTheOperatorHasAskedFor) {
  auto [cae, io] = StartWithADeafIoClient();
  const std::string question = "GETLASTINPST:3=0";
  const LINES answer = {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"};
  // Lines of 209 bytes for the client, 24 KiB of them, and 28 KiB of eight for the master loop: up
  // to here each is answered.
  for (int i = 0; i < 24 * 1024 / 209 + 28 * 1024 / 8; ++i) {
    Ask(cae, question, answer);
  }
  constexpr int kMoreThanTheConnectionHolds = 100'000;
  bool waits = false;
  for (int i = 0; i < kMoreThanTheConnectionHolds && !waits; ++i) {
    cae.Send(question + "\r\n");
    const std::string got = cae.ReadUntil(">\r\n\r", support::kSilence);
    waits = got.empty();
    if (!waits && !got.ends_with(">\r\n\r")) {
      EXPECT_TRUE(cae.ReadUntil(">\r\n\r").ends_with(">\r\n\r"));
    }
  }
  EXPECT_TRUE(waits);
  io.Close();
  EXPECT_TRUE(cae.Receives(answer[0] + "\r\n\r>\r\n\r"));
  AskVersion(cae);
}

}  // namespace
}  // namespace unit

}  // namespace vorn
