#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/SystemTest.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

class Log : public SYSTEM_TEST {
 protected:
  /// The handshake is answered with this reply body.
  void AnswerHandshakeWith(const sim::Bytes& body) {
    adapter.SetReplyHook([body](const sim::REQUEST& request,
                                const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
      if (request.Body() == sim::Bytes{0x40, 0x6F, 0x9A}) {
        return sim::REPLY{{std::chrono::microseconds(0), sim::Frame(body)}};
      }
      return std::nullopt;
    });
  }
};

TEST_F(Log, LinesBearTheLocalTimeOfTheMoment) {
  support::START start;
  // Fourteen and a half hours east of what most machines have.
  start.environment["TZ"] = "TEST-14:30";
  const std::time_t begin = std::time(nullptr);
  Start(start);
  ASSERT_TRUE(log.WaitForLine("[INF] vorn is started"));
  const std::time_t end = std::time(nullptr);
  const auto expected = [](std::time_t time) {
    const std::time_t east = time + 14 * 3600 + 30 * 60;
    std::tm fields{};
    gmtime_r(&east, &fields);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return std::string(text);
  };
  const std::string line = support::Lines(log.Text()).at(0);
  EXPECT_GE(line.substr(0, 19), expected(begin));
  EXPECT_LE(line.substr(0, 19), expected(end));
  EXPECT_EQ(line.substr(19), " [INF] vorn is started");
}

TEST_F(Log, AtLevel1EveryLineIsWritten) {
  config.logLevel = "1";
  Start();
  EXPECT_TRUE(log.WaitForLine("[ERR] ttyUSB devices couldn't be found"));
  EXPECT_EQ(log.Count("[INF] vorn is started"), 1);
}

TEST_F(Log, AtANegativeLevelEveryLineIsWritten) {
  config.logLevel = "-3";
  Start();
  EXPECT_TRUE(log.WaitForLine("[ERR] ttyUSB devices couldn't be found"));
  EXPECT_EQ(log.Count("[INF] vorn is started"), 1);
}

TEST_F(Log, AtLevel2NoLineIsWrittenThoughTheFileIsOpened) {
  config.logLevel = "2";
  Start();
  TCP_CLIENT client = ConnectCae();
  Stop(SIGTERM);
  EXPECT_TRUE(fs::exists(log.Path()));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(Log, WithoutADebuglogElementNothingIsWrittenAndNothingFails) {
  support::START start;
  start.workingFolder = Folder();
  StartWith(support::Document({support::InterfacesElement(
                {support::InterfaceElement(config.cae), support::InterfaceElement(config.io),
                 support::InterfaceElement(config.mon)})}),
            start);
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  Stop(SIGTERM);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(Folder())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"output", "pauses"}));
}

TEST_F(Log, ALogFileThatIsDeletedIsMadeAgainByTheNextLine) {
  Start();
  TCP_CLIENT client = ConnectCae();
  ASSERT_TRUE(log.WaitForLine(Connected("CAE", client)));
  fs::remove(log.Path());
  client.Close();
  ASSERT_TRUE(log.WaitForLine(ClosedByClient("CAE")));
  EXPECT_EQ(log.Count("[INF] vorn is started"), 0);
}

TEST_F(Log, AnEarlierLogIsContinued) {
  support::WriteFile(log.Path(), "an earlier line\n");
  Start();
  ASSERT_TRUE(log.WaitForLine("[INF] vorn is started"));
  EXPECT_TRUE(log.Text().starts_with("an earlier line\n2"));
}

TEST_F(Log, ATextWithACarriageReturnAndPercentSignsIsWrittenUnchanged) {
  AnswerHandshakeWith({0x40, '\r', '%', 's', '%'});
  StartLinked();
  EXPECT_NE(log.Text().find("] hardware found on /dev/ttyUSB0 version: \r%s%\n"),
            std::string::npos);
}

TEST_F(Log, AVersionOfFewerThanFourCharactersIsWrittenAsFarAsItGoes) {
  AnswerHandshakeWith({0x40, '2', '.'});
  StartLinked();
  EXPECT_EQ(log.LinesWith("hardware"),
            (std::vector<std::string>{"[INF] try to catch hardware on /dev/ttyUSB0",
                                      "[INF] hardware found on /dev/ttyUSB0 version: 2."}));
}

TEST_F(Log, AVersionThatIsCutByAZeroByteAtOnceIsEmpty) {
  // The first byte is no error code, but ends the text before the version begins.
  AnswerHandshakeWith({0x00, '2', '.', '0', '4'});
  StartLinked();
  EXPECT_EQ(log.LinesWith("hardware found"),
            (std::vector<std::string>{"[INF] hardware found on /dev/ttyUSB0 version: "}));
}

TEST_F(Log, AVersionOfMoreThanFourCharactersIsCut) {
  AnswerHandshakeWith({0x40, '1', '2', '3', '4', '5', '6'});
  StartLinked();
  EXPECT_EQ(log.LinesWith("hardware found"),
            (std::vector<std::string>{"[INF] hardware found on /dev/ttyUSB0 version: 1234"}));
}

TEST_F(Log, ATextOver1000BytesIsCutToALine) {
  const std::string name(3000, 'N');
  StartWith(support::Document({support::DebuglogElement(log.Path()),
                               "<Interfaces><I Name=\"" + name + "\" Port=\"80\"/></Interfaces>"}));
  ExpectEnd();
  const std::vector<std::string> lines = support::Lines(log.Text());
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(support::WithoutTimeStamp(lines[0]), "[INF] vorn is started");
  EXPECT_LE(lines[1].size() + 1, 1000U);
  EXPECT_GE(lines[1].size() + 1, 990U);
  EXPECT_TRUE(("[ERR] " + name).starts_with(support::WithoutTimeStamp(lines[1])));
  EXPECT_EQ(support::WithoutTimeStamp(lines[2]), "[INF] vorn is stopped with error");
}

TEST_F(Log, AMissingFolderHarmsNothingAndTheFileIsMadeWhenTheFolderIsThere) {
  const std::string folder = Folder() + "/missing";
  config.logFile = folder + "/vorn.log";
  Start();
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  EXPECT_FALSE(fs::exists(folder));
  fs::create_directory(folder);
  client.Close();
  const support::LOG_FILE later(config.logFile);
  EXPECT_TRUE(later.WaitForLine(ClosedByClient("CAE")));
}

TEST_F(Log, AFullDiskHarmsNothing) {
  config.logFile = "/dev/full";
  Start();
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  client.Close();
  TCP_CLIENT next = ConnectCae();
  Synchronise(next);
}

TEST_F(Log, NoDescriptorIsLeftOpenByTheLinesOfAnOrdinaryLevel) {
  Start();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(
      support::WaitUntil([&] { return support::DescriptorsOf(Pid(), log.Path()).empty(); }));
}

}  // namespace
