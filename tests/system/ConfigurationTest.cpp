#include "tests/support/GoldenHelp.h"
#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/SystemLog.h"
#include "tests/support/Text.h"
#include "tests/system/SystemTest.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using support::Document;
using support::INTERFACE;
using support::InterfaceElement;
using support::InterfacesElement;

class Configuration : public SYSTEM_TEST {
 protected:
  std::string Debuglog() const { return support::DebuglogElement(log.Path()); }
  std::string Interfaces() const {
    return InterfacesElement(
        {InterfaceElement(config.cae), InterfaceElement(config.io), InterfaceElement(config.mon)});
  }

  /// A file that is refused: the daemon ends with status 0, and this is its whole log.
  void ExpectRefusal(const std::string& configText, const std::vector<std::string>& lines) {
    StartWith(configText);
    ExpectEnd();
    EXPECT_EQ(log.AllLines(), lines);
  }

  /// The line that tells the thread delay which a Percent text gives.
  std::string SpeedLine(const std::string& percent) {
    StartWith(Document({Debuglog(), support::SpeedElement(percent), Interfaces()}));
    EXPECT_TRUE(log.WaitForLine(Listening(config.mon)));
    const std::vector<std::string> lines = log.LinesWith("Speed");
    Stop(SIGTERM);
    fs::remove(log.Path());
    return lines.size() == 1 ? lines[0] : "";
  }
  static std::string DelayLine(const std::string& delayUs) {
    return "[INF] Initparam Speed (ThreadDelay): " + delayUs;
  }
};

TEST_F(Configuration, AGoodFileIsToldInFourLines) {
  config.speedPercent = "50";
  config.initPollState = "TRUE";
  config.autoDiscover = "FALSE";
  Start();
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  std::vector<std::string> lines = log.AllLines();
  lines.resize(4);
  EXPECT_EQ(lines,
            (std::vector<std::string>{
                "[INF] vorn is started", "[INF] Initparam Autodiscover: FALSE",
                "[INF] Initparam Enablepoll: TRUE", "[INF] Initparam Speed (ThreadDelay): 2525"}));
}

TEST_F(Configuration, AMissingFileLeavesOneSystemLogLineAndStatusZero) {
  support::SYSTEM_LOG systemLog;
  support::START start;
  start.workingFolder = Folder();
  EXPECT_EQ(daemon.Start(start), 0);
  ExpectEnd();
  const std::string message = systemLog.Receive();
  // Facility user (1), priority notice (5): 1 * 8 + 5; then the time, then the program's name.
  EXPECT_TRUE(message.starts_with("<13>")) << message;
  const std::string text = " vorn: Unable to start by user " + std::to_string(getuid()) +
                           ", because unable to load config, or unable to parse XML file!";
  ASSERT_GE(message.size(), text.size());
  EXPECT_EQ(message.substr(message.size() - text.size()), text);
  EXPECT_EQ(systemLog.Receive(support::kSilence), "");
  EXPECT_FALSE(fs::exists(log.Path()));
}

TEST_F(Configuration, AFileThatIsNoXmlIsRefusedLikeAMissingOne) {
  for (const char* text : {"", "no markup at all", "<VORNConfig><Debuglog></VORNConfig>",
                           "<VORNConfig><Speed Percent=50/></VORNConfig>"}) {
    SCOPED_TRACE(text);
    support::SYSTEM_LOG systemLog;
    StartWith(text);
    ExpectEnd();
    EXPECT_NE(
        systemLog.Receive().find("because unable to load config, or unable to parse XML file!"),
        std::string::npos);
  }
}

TEST_F(Configuration, ADocumentWithoutTheRootElementStartsWithTheDefaults) {
  StartWith("<Other><Debuglog File=\"" + log.Path() + "\"/></Other>");
  // Without ports each interface listens where the system puts it.
  EXPECT_TRUE(support::WaitUntil([&] { return support::ListeningPorts(Pid()).size() == 3; }));
  EXPECT_TRUE(daemon.Running());
  EXPECT_FALSE(fs::exists(log.Path()));
}

TEST_F(Configuration, AnEmptyRootElementStartsWithTheDefaults) {
  StartWith("<VORNConfig/>");
  EXPECT_TRUE(support::WaitUntil([&] { return support::ListeningPorts(Pid()).size() == 3; }));
}

TEST_F(Configuration, APortOf1024RejectsTheFileAndAPortOf1025IsAccepted) {
  config.io.port = 1024;
  ExpectRefusal(config.Text(),
                {"[INF] vorn is started", "[ERR] IO interface port number is less than 1025",
                 "[INF] vorn is stopped with error"});
  fs::remove(log.Path());
  config.io.port = 1025;
  Start();
  EXPECT_TRUE(log.WaitForLine("[INF] IO interface listening on port 1025"));
}

TEST_F(Configuration, PortsThatAreNoNumberOrNegativeAreBelow1025) {
  for (const char* port : {"", "x5000", "-5000", "0"}) {
    SCOPED_TRACE(port);
    fs::remove(log.Path());
    ExpectRefusal(Document({Debuglog(), "<Interfaces><I Name=\"MON\" Port=\"" + std::string(port) +
                                            "\"/></Interfaces>"}),
                  {"[INF] vorn is started", "[ERR] MON interface port number is less than 1025",
                   "[INF] vorn is stopped with error"});
  }
}

TEST_F(Configuration, APortBeforeItsNameIsToldWithAnEmptyNameAndItsLeadingBlank) {
  ExpectRefusal(Document({Debuglog(), "<Interfaces><I Port=\"80\" Name=\"CAE\"/></Interfaces>"}),
                {"[INF] vorn is started", "[ERR]  interface port number is less than 1025",
                 "[INF] vorn is stopped with error"});
}

TEST_F(Configuration, NothingAfterABadPortIsRead) {
  // The log's own name comes too late.
  StartWith(Document(
      {"<Interfaces><I Name=\"CAE\" Port=\"80\"/></Interfaces>", Debuglog(), Interfaces()}));
  ExpectEnd();
  EXPECT_FALSE(fs::exists(log.Path()));
}

TEST_F(Configuration, PercentBecomesTheThreadDelayByTheFormula) {
  EXPECT_EQ(SpeedLine("1"), DelayLine("5000"));
  EXPECT_EQ(SpeedLine("2"), DelayLine("4949"));
  EXPECT_EQ(SpeedLine("50"), DelayLine("2525"));
  EXPECT_EQ(SpeedLine("99"), DelayLine("51"));
  EXPECT_EQ(SpeedLine("100"), DelayLine("1"));
  EXPECT_EQ(SpeedLine("0"), DelayLine("5050"));
  EXPECT_EQ(SpeedLine("fast"), DelayLine("5050"));
  EXPECT_EQ(SpeedLine("  +50%"), DelayLine("2525"));
  EXPECT_EQ(SpeedLine("101"), DelayLine("-49"));
}

TEST_F(Configuration, ANegativeDelayIsNoPause) {
  config.speedPercent = "101";
  Start();
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
}

TEST_F(Configuration, APercentBeyond32BitsSaturatesAndHarmsNothing) {
  config.speedPercent = "99999999999999999999";
  Start();
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  EXPECT_EQ(log.Count(DelayLine("-2147483648")), 1);
}

TEST_F(Configuration, APercentFarOutsideItsRangeIsTakenByTheFormulaInSinglePrecision) {
  EXPECT_EQ(SpeedLine("1000000"), DelayLine("-50489896"));
  EXPECT_EQ(SpeedLine("42528781"), DelayLine("-2147483520"));
  EXPECT_EQ(SpeedLine("42528782"), DelayLine("-2147483648"));
  for (const char* const percent : {"-42528580", "-99999999999999999999"}) {
    SCOPED_TRACE(percent);
    config.speedPercent = percent;
    Start();
    EXPECT_TRUE(log.WaitForLine(DelayLine("2147483647")));
    daemon.Kill();  // half an hour a pass
    fs::remove(log.Path());
  }
  isEndExpected = false;
}

TEST_F(Configuration, OnlyThreeSpellingsOfTrueAreTrue) {
  for (const char* text : {"TRUE", "True", "true"}) {
    SCOPED_TRACE(text);
    config.initPollState = text;
    config.autoDiscover = text;
    fs::remove(log.Path());
    Start();
    EXPECT_TRUE(log.WaitForLine("[INF] Initparam Autodiscover: TRUE"));
    EXPECT_TRUE(log.WaitForLine("[INF] Initparam Enablepoll: TRUE"));
    Stop(SIGTERM);
  }
  for (const char* text : {"yes", "1", "tRUE", "TRUE ", ""}) {
    SCOPED_TRACE(text);
    config.initPollState = text;
    config.autoDiscover = text;
    fs::remove(log.Path());
    Start();
    EXPECT_TRUE(log.WaitForLine("[INF] Initparam Autodiscover: FALSE"));
    EXPECT_TRUE(log.WaitForLine("[INF] Initparam Enablepoll: FALSE"));
    Stop(SIGTERM);
  }
}

TEST_F(Configuration, MissingElementsLeaveTheirDefaults) {
  StartWith(Document({Debuglog(), Interfaces()}));
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  std::vector<std::string> lines = log.AllLines();
  lines.resize(4);
  EXPECT_EQ(lines,
            (std::vector<std::string>{
                "[INF] vorn is started", "[INF] Initparam Autodiscover: FALSE",
                "[INF] Initparam Enablepoll: FALSE", "[INF] Initparam Speed (ThreadDelay): 5000"}));
}

TEST_F(Configuration, UnknownElementsAttributesAndTextAreSkipped) {
  StartWith(Document({"some text", "<!-- a remark -->", "<Unknown Percent=\"1\"/>",
                      "<speed Percent=\"1\"/>", Debuglog(),
                      "<Speed percent=\"1\" Percent=\"50\" Other=\"1\">text</Speed>",
                      InterfacesElement({"text between", InterfaceElement(config.cae), "more text",
                                         InterfaceElement(config.io), "<!-- a remark -->",
                                         InterfaceElement(config.mon), "and the end"})}));
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  EXPECT_EQ(log.Count(DelayLine("2525")), 1);
  EXPECT_EQ(log.Count(Listening(config.cae)), 1);
}

TEST_F(Configuration, ALaterElementOrAttributeOverwritesAnEarlierOne) {
  StartWith(
      Document({support::DebuglogElement(Folder() + "/other.log"), support::SpeedElement("1"),
                Debuglog(), support::SpeedElement("50"), support::InitPollStateElement("FALSE"),
                support::InitPollStateElement("TRUE"), Interfaces()}));
  ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
  EXPECT_EQ(log.Count(DelayLine("2525")), 1);
  EXPECT_EQ(log.Count("[INF] Initparam Enablepoll: TRUE"), 1);
  EXPECT_FALSE(fs::exists(Folder() + "/other.log"));
}

TEST_F(Configuration, OfTwoInterfacesWithOneNameTheLaterWins) {
  INTERFACE earlier = config.cae;
  earlier.port = support::FreePorts(1)[0];
  StartWith(Document(
      {Debuglog(), InterfacesElement({InterfaceElement(earlier), InterfaceElement(config.cae),
                                      InterfaceElement(config.io)})}));
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(TCP_CLIENT::IsRefused(earlier.port));
  EXPECT_EQ(log.Count(Listening(earlier)), 0);
}

TEST_F(Configuration, InterfacesMayHaveAnyElementNameAndAnyOrder) {
  const auto named = [](std::string element, const std::string& name) {
    return element.replace(1, std::string("Interface").size(), name);
  };
  StartWith(
      Document({Debuglog(), InterfacesElement({named(InterfaceElement(config.mon), "First"),
                                               named(InterfaceElement(config.io), "a"),
                                               named(InterfaceElement(config.cae), "CAE")})}));
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  TCP_CLIENT client = ConnectCae();
}

TEST_F(Configuration, AnInterfaceOfAnotherNameIsIgnoredAndAMissingOneGetsAWorkerWithDefaults) {
  INTERFACE lowerCase = config.cae;
  lowerCase.name = "cae";
  StartWith(Document(
      {Debuglog(), InterfacesElement({InterfaceElement(lowerCase), InterfaceElement(config.io),
                                      InterfaceElement(config.mon)})}));
  ASSERT_TRUE(log.WaitForLine("[INF]  interface listening on port 0"));
  ASSERT_TRUE(log.WaitForLine("[INF]  interface is waiting for incoming connection"));
  EXPECT_TRUE(TCP_CLIENT::IsRefused(lowerCase.port));
  // It listens where the system put it, and greets nobody.
  ASSERT_TRUE(support::WaitUntil([&] { return support::ListeningPorts(Pid()).size() == 3; }));
  for (const int port : support::ListeningPorts(Pid())) {
    if (port == config.io.port || port == config.mon.port) {
      continue;
    }
    TCP_CLIENT client(port);
    EXPECT_TRUE(log.WaitForLine(Connected("", client)));
    // Its separators are the defaults: carriage return, line feed.
    client.Send("DRVVER\r\n");
    EXPECT_TRUE(client.Receives("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r"));
  }
}

TEST_F(Configuration, AnInterfaceWithoutAPortIsNoError) {
  StartWith(Document(
      {Debuglog(), InterfacesElement({"<Interface Name=\"CAE\"/>", InterfaceElement(config.io),
                                      InterfaceElement(config.mon)})}));
  EXPECT_TRUE(log.WaitForLine("[INF] CAE interface listening on port 0"));
}

TEST_F(Configuration, AFourthChildIsReadAndAFifthIsIgnoredWithItsPort) {
  INTERFACE spare = config.cae;
  spare.name = "SPARE";
  StartWith(Document(
      {Debuglog(),
       InterfacesElement({InterfaceElement(spare), InterfaceElement(config.io),
                          InterfaceElement(config.mon), InterfaceElement(config.cae),
                          "<Interface Name=\"CAE\" Port=\"80\"/>", "<Interface Port=\"1\"/>"})}));
  TCP_CLIENT client = ConnectCae();
}

TEST_F(Configuration, APortAbove65535IsNotChecked) {
  const int port = config.cae.port;
  config.cae.port += 65536;
  Start();
  ASSERT_TRUE(log.WaitForLine(Listening(config.cae)));  // as configured
  TCP_CLIENT client(port);                              // its low 16 bits
  EXPECT_TRUE(client.Receives(kCaeGreeting));
}

TEST_F(Configuration, SeparatorsMayBeAnyText) {
  config.cae.inpSeparator = "|";
  config.cae.outSeparator = "\\t;";  // backslash t is no escape
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER|");
  EXPECT_TRUE(client.Receives("CIA: DRIVER VERSION 1.20\\t;\r>\\t;\r"));
  client.Send("DRVVER\r\n");
  EXPECT_TRUE(client.Receives("CIE: UNKNOWN COMMAND \\t;>\\t;\r"));
}

TEST_F(Configuration, ASeparatorWrittenAsBackslashNIsALineFeed) {
  config.cae.inpSeparator = "\n";
  config.cae.outSeparator = "\n\r\r\n";
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("DRVVER\n");
  EXPECT_TRUE(client.Receives("CIA: DRIVER VERSION 1.20\n\r\r\n\r>\n\r\r\n\r"));
}

TEST_F(Configuration, ASpeedBeforeTheInterfacesReachesThem) {
  // -990 % gives 55 ms a pass, one message a pass.
  StartWith(Document({Debuglog(), support::SpeedElement("-990"), Interfaces()}));
  TCP_CLIENT client = ConnectCae();
  ASSERT_EQ(log.Count(DelayLine("55040")), 1);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(Answers(client, "IOEXAMPLES", kIoExamples));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(22 * 55));
}

TEST_F(Configuration, ASpeedAfterTheInterfacesChangesTheDelayButNotTheirs) {
  StartWith(Document({Debuglog(), Interfaces(), support::SpeedElement("100")}));
  TCP_CLIENT client = ConnectCae();
  ASSERT_EQ(log.Count(DelayLine("1")), 1);
  // The interface keeps its 5 ms a pass, one message a pass.
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(Answers(client, "IOEXAMPLES", kIoExamples));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(22 * 5));
}

TEST_F(Configuration, TheEncodingOfTheFileIsDetected) {
  std::string utf16 = "\xFF\xFE";
  for (const char byte : config.Text()) {
    utf16 += byte;
    utf16 += '\0';
  }
  StartWith(utf16);
  EXPECT_TRUE(log.WaitForLine(Listening(config.mon)));
}

}  // namespace
