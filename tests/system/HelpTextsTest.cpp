#include "tests/support/GoldenHelp.h"
#include "tests/system/SystemTest.h"

namespace {

class HelpTexts : public SYSTEM_TEST {};

TEST_F(HelpTexts, HelpYieldsExactly69MessagesAndThenThePrompt) {
  Start();
  ASSERT_EQ(kQuickHelp.size(), 69U);
  ASSERT_EQ(kQuickHelp[1], " ");
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "HELP", kQuickHelp));
  // Nothing comes behind the prompt: the next answer follows at once.
  EXPECT_TRUE(Answers(client, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
}

TEST_F(HelpTexts, IoExamplesYieldsExactly22MessagesAndThenThePrompt) {
  Start();
  ASSERT_EQ(kIoExamples.size(), 22U);
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "IOEXAMPLES", kIoExamples));
  EXPECT_TRUE(Answers(client, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
}

TEST_F(HelpTexts, HelpInLowerCaseIsUnknown) {
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("help\r\n");
  EXPECT_TRUE(client.Receives(UnknownReply()));
  client.Send("ioexamples\r\n");
  EXPECT_TRUE(client.Receives(UnknownReply()));
}

TEST_F(HelpTexts, GoToTheCaeInterfaceOnly) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "HELP", kQuickHelp));
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
  EXPECT_TRUE(mon.ReceivesNothing());
}

}  // namespace
