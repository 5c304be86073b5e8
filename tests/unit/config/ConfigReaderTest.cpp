#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/support/unit/Folder.h"
#include "tests/unit/config/SystemLogCalls.h"
#include "vorn/config/ConfigReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace vorn {

namespace {

constexpr const char* kLoadError = "Unable to load config, or unable to parse XML file!";

/// Every element and attribute that is read, in the order of the manual.
constexpr const char* kGoodFile =
    R"(<?xml version="1.0"?>
<VORNConfig>
  <Debuglog File="/var/log/vorn.log" Loglevel="1"/>
  <Speed Percent="50"/>
  <InitPollState Action="TRUE"/>
  <AutoDiscover Action="true"/>
  <Interfaces>
    <Interface Name="CAE" Port="5000" InpSeparator="\r\n" OutSeparator="\n\r"/>
    <Interface Name="IO" Port="5001" InpSeparator="\n" OutSeparator="|"/>
    <Interface Name="MON" Port="5002" InpSeparator="#" OutSeparator="\r"/>
  </Interfaces>
</VORNConfig>
)";

class ConfigReaderTest : public testing::Test {
 protected:
  ConfigReaderTest() { systemLogCalls.clear(); }

  /// Reads a file of that content.
  CONFIG_DESCRIPTOR Read(const std::string& text) const {
    std::filesystem::remove(m_path);  // some file systems flush a file that is written anew
    support::WriteFile(m_path, text);
    return ReadConfigFile(m_path);
  }
  /// Reads a file with that inside its root element.
  CONFIG_DESCRIPTOR ReadRoot(const std::string& elements) const {
    return Read("<VORNConfig>" + elements + "</VORNConfig>");
  }
  /// Reads a file with that inside its `Interfaces`.
  CONFIG_DESCRIPTOR ReadInterfaces(const std::string& children) const {
    return ReadRoot("<Interfaces>" + children + "</Interfaces>");
  }

  static void ExpectLoadError(const CONFIG_DESCRIPTOR& config) {
    EXPECT_EQ(config.errorText, kLoadError);
    EXPECT_EQ(config.logFileName, "");
    EXPECT_EQ(config.threadDelayUs, 5000);
    EXPECT_EQ(config.cae.port, 0);
  }
  static void ExpectDefaults(const CONFIG_DESCRIPTOR& config) {
    EXPECT_EQ(config.errorText, "NONE");
    EXPECT_EQ(config.logFileName, "");
    EXPECT_EQ(config.logLevel, 0);
    EXPECT_EQ(config.threadDelayUs, 5000);
    EXPECT_FALSE(config.polling);
    EXPECT_FALSE(config.autoDiscover);
    for (const INTERFACE_DESCRIPTOR* const interface :
         {&config.io, &config.cae, &config.mon, &config.spare}) {
      EXPECT_EQ(interface->name, "");
      EXPECT_EQ(interface->port, 0);
      EXPECT_EQ(interface->state, 0);
      EXPECT_EQ(interface->inpSeparator, "\r\n");
      EXPECT_EQ(interface->outSeparator, "\r\n");
      EXPECT_EQ(interface->threadDelayUs, 5000);
    }
  }

  unit::FOLDER m_folder;
  const std::string m_path = m_folder.File("vornconf.xml");
};

}  // namespace

// --- good files -------------------------------------------------------------------------------

TEST_F(ConfigReaderTest, ReadsEveryElementAndAttribute) {
  const CONFIG_DESCRIPTOR config = Read(kGoodFile);
  EXPECT_EQ(config.errorText, "NONE");
  EXPECT_EQ(config.logFileName, "/var/log/vorn.log");
  EXPECT_EQ(config.logLevel, 1);
  EXPECT_EQ(config.threadDelayUs, 2525);
  EXPECT_TRUE(config.polling);
  EXPECT_TRUE(config.autoDiscover);

  EXPECT_EQ(config.cae.name, "CAE");
  EXPECT_EQ(config.cae.port, 5000);
  EXPECT_EQ(config.cae.inpSeparator, "\r\n");
  EXPECT_EQ(config.cae.outSeparator, "\n\r");
  EXPECT_EQ(config.cae.threadDelayUs, 2525);
  EXPECT_EQ(config.cae.state, 0);

  EXPECT_EQ(config.io.name, "IO");
  EXPECT_EQ(config.io.port, 5001);
  EXPECT_EQ(config.io.inpSeparator, "\n");
  EXPECT_EQ(config.io.outSeparator, "|");
  EXPECT_EQ(config.io.threadDelayUs, 2525);

  EXPECT_EQ(config.mon.name, "MON");
  EXPECT_EQ(config.mon.port, 5002);
  EXPECT_EQ(config.mon.inpSeparator, "#");
  EXPECT_EQ(config.mon.outSeparator, "\r");
  EXPECT_EQ(config.mon.threadDelayUs, 2525);

  EXPECT_EQ(config.spare.name, "");
  EXPECT_TRUE(systemLogCalls.empty());
}

TEST_F(ConfigReaderTest, ReadsEveryEncodingThatIsMarkedAndRefusesAWrongMark) {
  const auto encoded = [](const std::string& mark, std::size_t width, bool isLittle) {
    std::string text = mark;
    for (const char byte : std::string(kGoodFile)) {
      std::string unit(width, '\0');
      unit[isLittle ? 0 : width - 1] = byte;
      text += unit;
    }
    return text;
  };
  const std::string utf32Big("\0\0\xFE\xFF", 4);
  const std::string utf32Little("\xFF\xFE\0\0", 4);
  for (const std::string& text :
       {encoded("\xEF\xBB\xBF", 1, true), encoded("\xFE\xFF", 2, false),
        encoded("\xFF\xFE", 2, true), encoded(utf32Big, 4, false), encoded(utf32Little, 4, true)}) {
    EXPECT_EQ(Read(text).cae.port, 5000) << support::Visible(text.substr(0, 8));
  }
  ExpectLoadError(Read(encoded("\xFE\xFF", 1, true)));
  ExpectLoadError(Read(encoded("\xFE\xFF", 2, true)));
}

TEST_F(ConfigReaderTest, GivesDefaultsWithoutTheRootElement) {
  ExpectDefaults(Read("<Other><Speed Percent='50'/></Other>"));
  ExpectDefaults(Read("<vornconfig><Speed Percent='50'/></vornconfig>"));
}

TEST_F(ConfigReaderTest, GivesDefaultsForAnEmptyRootElement) {
  ExpectDefaults(Read("<VORNConfig/>"));
  ExpectDefaults(ReadRoot(""));
  ExpectDefaults(ReadRoot("<Interfaces/>"));
}

TEST_F(ConfigReaderTest, SkipsWhatItDoesNotKnow) {
  ExpectDefaults(
      ReadRoot("text<!-- comment --><?target data?><![CDATA[data]]><speed Percent='50'/>"
               "<Unknown Percent='50' Action='TRUE' File='f' Port='80'/>"
               "<Speed percent='50' Action='TRUE'/><InitPollState Percent='50'/>"
               "<Port Port='80'/>"));
}

TEST_F(ConfigReaderTest, LetsALaterElementOrAttributeWin) {
  EXPECT_EQ(ReadRoot("<Speed Percent='1'/><Speed Percent='100'/>").threadDelayUs, 1);
  EXPECT_EQ(ReadRoot("<Speed Percent='1' Percent='100'/>").threadDelayUs, 1);
  EXPECT_EQ(ReadRoot("<Debuglog File='a'/><Debuglog Loglevel='2'/>").logFileName, "a");
  EXPECT_FALSE(ReadRoot("<AutoDiscover Action='TRUE'/><AutoDiscover Action=''/>").autoDiscover);
}

TEST_F(ConfigReaderTest, ReadsTheFirstRootElementOnly) {
  EXPECT_EQ(Read("<VORNConfig/><VORNConfig><Speed Percent='1'/></VORNConfig>").threadDelayUs, 5000);
}

// --- values -----------------------------------------------------------------------------------

TEST_F(ConfigReaderTest, ComputesTheDelayOfASpeed) {
  const std::vector<std::pair<std::string, int>> rows = {
      {"1", 5000}, {"50", 2525},   {"99", 51},   {"100", 1},    {"0", 5050},
      {"", 5050},  {"fast", 5050}, {"101", -49}, {"50%", 2525}, {" 50", 2525},
  };
  for (const auto& [percent, delayUs] : rows) {
    EXPECT_EQ(ReadRoot("<Speed Percent='" + percent + "'/>").threadDelayUs, delayUs) << percent;
  }
}

TEST_F(ConfigReaderTest, ReadsASwitchAsTrueInThreeSpellingsOnly) {
  const std::vector<std::pair<std::string, bool>> rows = {
      {"TRUE", true},  {"True", true},   {"true", true}, {"yes", false},  {"1", false},
      {"tRUE", false}, {"TRUE ", false}, {"", false},    {"FALSE", false}};
  for (const auto& [action, isTrue] : rows) {
    const CONFIG_DESCRIPTOR config =
        ReadRoot("<InitPollState Action='" + action + "'/><AutoDiscover Action='" + action + "'/>");
    EXPECT_EQ(config.polling, isTrue) << action;
    EXPECT_EQ(config.autoDiscover, isTrue) << action;
  }
}

TEST_F(ConfigReaderTest, ReadsAnyLogLevel) {
  EXPECT_EQ(ReadRoot("<Debuglog Loglevel='2'/>").logLevel, 2);
  EXPECT_EQ(ReadRoot("<Debuglog Loglevel='-1'/>").logLevel, -1);
  EXPECT_EQ(ReadRoot("<Debuglog Loglevel='high'/>").logLevel, 0);
}

TEST_F(ConfigReaderTest, TakesTheLogFileAsWritten) {
  EXPECT_EQ(ReadRoot("<Debuglog File=' /a b/%s\\n.log '/>").logFileName, " /a b/%s\\n.log ");
  EXPECT_EQ(ReadRoot("<Debuglog File='/a&amp;b'/>").logFileName, "/a&b");
}

TEST_F(ConfigReaderTest, RewritesTheEscapesOfASeparator) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {R"(\r\n)", "\r\n"},
      {R"(\n)", "\n"},
      {R"(\r)", "\r"},
      {"|", "|"},
      {"", ""},
      {R"(\t)", R"(\t)"},
      {R"(\\n)", "\\\n"},
      {R"(\r\r\n\n)", "\r\r\n\n"},
      {R"(a\nb\rc)", "a\nb\rc"},
      {R"(\R\N)", R"(\R\N)"},
      {R"(\)", R"(\)"},
      {"rn", "rn"},
  };
  for (const auto& [written, separator] : rows) {
    const CONFIG_DESCRIPTOR config = ReadInterfaces("<I Name='IO' InpSeparator='" + written +
                                                    "' OutSeparator='" + written + "'/>");
    EXPECT_EQ(config.io.inpSeparator, separator) << written;
    EXPECT_EQ(config.io.outSeparator, separator) << written;
  }
}

// --- interfaces -------------------------------------------------------------------------------

TEST_F(ConfigReaderTest, TakesInterfacesOfAnyElementName) {
  const CONFIG_DESCRIPTOR config =
      ReadInterfaces("<Operator Name='CAE' Port='2000'/><x Name='IO' Port='2001'/>");
  EXPECT_EQ(config.cae.port, 2000);
  EXPECT_EQ(config.io.port, 2001);
}

TEST_F(ConfigReaderTest, IgnoresAnInterfaceOfAnotherName) {
  const CONFIG_DESCRIPTOR config =
      ReadInterfaces("<I Name='cae' Port='2000'/><I Name='DMI' Port='2001'/><I Port='2002'/>");
  ExpectDefaults(config);
}

TEST_F(ConfigReaderTest, LetsTheLaterOfTwoInterfacesOfOneNameWin) {
  const CONFIG_DESCRIPTOR config =
      ReadInterfaces("<I Name='CAE' Port='2000' OutSeparator='|'/><I Name='CAE' Port='2001'/>");
  EXPECT_EQ(config.cae.port, 2001);
  EXPECT_EQ(config.cae.outSeparator, "\r\n");
}

TEST_F(ConfigReaderTest, AcceptsAnInterfaceWithoutAPort) {
  const CONFIG_DESCRIPTOR config = ReadInterfaces("<I Name='CAE'/>");
  EXPECT_EQ(config.errorText, "NONE");
  EXPECT_EQ(config.cae.name, "CAE");
  EXPECT_EQ(config.cae.port, 0);
}

TEST_F(ConfigReaderTest, RejectsAPortBelow1025) {
  for (const std::string port : {"1024", "80", "0", "-1", "-99999999999", "", "text"}) {
    const CONFIG_DESCRIPTOR config = ReadInterfaces("<I Name='CAE' Port='" + port + "'/>");
    EXPECT_EQ(config.errorText, "CAE interface port number is less than 1025") << port;
  }
}

TEST_F(ConfigReaderTest, AcceptsAPortFrom1025On) {
  const std::vector<std::pair<std::string, int>> rows = {
      {"1025", 1025}, {"65535", 65535}, {"65536", 65536}, {"99999999999", 2147483647}};
  for (const auto& [port, number] : rows) {
    const CONFIG_DESCRIPTOR config = ReadInterfaces("<I Name='CAE' Port='" + port + "'/>");
    EXPECT_EQ(config.errorText, "NONE") << port;
    EXPECT_EQ(config.cae.port, number) << port;
  }
}

TEST_F(ConfigReaderTest, NamesNoInterfaceWhenTheBadPortComesBeforeTheName) {
  EXPECT_EQ(ReadInterfaces("<I Port='80' Name='CAE'/>").errorText,
            " interface port number is less than 1025");
}

TEST_F(ConfigReaderTest, ReadsNothingAfterABadPort) {
  const CONFIG_DESCRIPTOR config = ReadRoot(
      "<Debuglog File='log'/><Interfaces><I Name='IO' Port='2000'/>"
      "<I Name='CAE' Port='1024' Port='2001'/><I Name='MON' Port='2002'/></Interfaces>"
      "<Speed Percent='100'/>");
  EXPECT_EQ(config.errorText, "CAE interface port number is less than 1025");
  EXPECT_EQ(config.logFileName, "log");
  EXPECT_EQ(config.io.port, 2000);
  EXPECT_EQ(config.cae.name, "");
  EXPECT_EQ(config.mon.name, "");
  EXPECT_EQ(config.threadDelayUs, 5000);
  EXPECT_TRUE(systemLogCalls.empty());
}

TEST_F(ConfigReaderTest, ChecksThePortOfAnInterfaceOfAnotherName) {
  EXPECT_EQ(ReadInterfaces("<I Name='DMI' Port='80'/>").errorText,
            "DMI interface port number is less than 1025");
}

TEST_F(ConfigReaderTest, GivesInterfacesTheSpeedThatStandsBeforeThem) {
  const std::string interfaces = "<Interfaces><I Name='CAE' Port='2000'/></Interfaces>";
  CONFIG_DESCRIPTOR config =
      ReadRoot("<Speed Percent='100'/>" + interfaces + "<Speed Percent='50'/>");
  EXPECT_EQ(config.threadDelayUs, 2525);
  EXPECT_EQ(config.cae.threadDelayUs, 1);
  EXPECT_EQ(config.io.threadDelayUs, 5000);  // no such element
  config = ReadRoot(interfaces + "<Speed Percent='100'/>");
  EXPECT_EQ(config.threadDelayUs, 1);
  EXPECT_EQ(config.cae.threadDelayUs, 5000);
}

TEST_F(ConfigReaderTest, ReadsFourInterfacesAndIgnoresAFifth) {
  const std::string four =
      "<I Name='A' Port='2000'/><I Name='B' Port='2001'/><I Name='C' Port='2002'/>"
      "<I Name='CAE' Port='2003'/>";
  EXPECT_EQ(ReadInterfaces(four).cae.port, 2003);
  const CONFIG_DESCRIPTOR config = ReadInterfaces(four + "<I Name='CAE' Port='80'/>");
  EXPECT_EQ(config.errorText, "NONE");
  EXPECT_EQ(config.cae.port, 2003);
}

TEST_F(ConfigReaderTest, CountsNoTextOrCommentAsAnInterface) {
  const CONFIG_DESCRIPTOR config = ReadInterfaces(
      "one<I Name='A'/>two<!-- --><I Name='B'/><![CDATA[three]]><I Name='C'/>four"
      "<I Name='CAE' Port='2003'/>five");
  EXPECT_EQ(config.cae.port, 2003);
}

TEST_F(ConfigReaderTest, ReadsInterfacesOfSeveralElements) {
  const CONFIG_DESCRIPTOR config = ReadRoot(
      "<Interfaces><I Name='CAE' Port='2000' OutSeparator='|'/></Interfaces>"
      "<Interfaces><I Name='IO' Port='2001'/></Interfaces>");
  EXPECT_EQ(config.cae.port, 2000);
  EXPECT_EQ(config.io.port, 2001);
  // The first child again: what the element does not say stays as the earlier one said it.
  EXPECT_EQ(config.io.outSeparator, "|");
}

// --- damage -----------------------------------------------------------------------------------

TEST_F(ConfigReaderTest, ReportsWhatIsNoFile) {
  std::filesystem::create_symlink(m_folder.File("none"), m_folder.File("to-nowhere"));
  std::filesystem::create_symlink(m_folder.File("to-itself"), m_folder.File("to-itself"));
  for (const std::string& path :
       {m_folder.File("none"), m_folder.File("none/none"), std::string(), m_folder.Path(),
        m_folder.File("to-nowhere"), m_folder.File("to-itself"), std::string("/dev/zero"),
        std::string("/dev/null")}) {
    SCOPED_TRACE(path);
    ExpectLoadError(ReadConfigFile(path));
  }
}

TEST_F(ConfigReaderTest, TellsTheSystemLogOfAFileThatCannotBeLoaded) {
  setlogmask(0xFF);
  ReadConfigFile(m_folder.File("none"));
  EXPECT_EQ(systemLogCalls, (std::vector<std::string>{
                                "5 Unable to start by user " + std::to_string(getuid()) +
                                    ", because unable to load config, or unable to parse XML file!",
                                "close"}));
  EXPECT_EQ(setlogmask(0), 0x3F);
}

TEST_F(ConfigReaderTest, DoesNotWaitForTheWriterOfAPipe) {
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  ExpectLoadError(ReadConfigFile(m_path));
}

TEST_F(ConfigReaderTest, FollowsALinkToAFile) {
  support::WriteFile(m_folder.File("target"), kGoodFile);
  std::filesystem::create_symlink(m_folder.File("target"), m_path);
  EXPECT_EQ(ReadConfigFile(m_path).cae.port, 5000);
}

TEST_F(ConfigReaderTest, ReportsWhatIsNoXml) {
  for (const std::string text :
       {"", " \n\t", "<!-- nothing -->", "text", "<", "<VORNConfig>", "</VORNConfig>",
        "<VORNConfig></Other>", "<VORNConfig><Speed Percent=50/></VORNConfig>",
        "<VORNConfig><Speed Percent='50/></VORNConfig>", "<VORNConfig><Speed></VORNConfig></Speed>",
        "<VORNConfig/><", "<VORNConfig a='1'b='2'/>"}) {
    ExpectLoadError(Read(text));
  }
  ExpectLoadError(Read(std::string(1000, '\0')));
}

TEST_F(ConfigReaderTest, ReportsAFileThatIsCutAnywhere) {
  const std::string text = kGoodFile;
  const std::size_t complete = text.rfind('>') + 1;
  for (std::size_t length = 0; length < complete; ++length) {
    const CONFIG_DESCRIPTOR config = Read(text.substr(0, length));
    ASSERT_EQ(config.errorText, kLoadError) << length;
  }
  EXPECT_EQ(Read(text.substr(0, complete)).errorText, "NONE");
}

TEST_F(ConfigReaderTest, SurvivesAnyByteInAnyPlace) {
  const std::string text = kGoodFile;
  for (std::size_t at = 0; at < text.size(); ++at) {
    for (const char byte : {'\0', '<', '>', '"', '&', '\xFF'}) {
      std::string damaged = text;
      damaged[at] = byte;
      const CONFIG_DESCRIPTOR config = Read(damaged);
      ASSERT_FALSE(config.errorText.empty()) << at;
    }
  }
}

TEST_F(ConfigReaderTest, Survives100000Levels) {
  constexpr int kLevels = 100'000;
  std::string opening;
  std::string closing;
  for (int level = 0; level < kLevels; ++level) {
    opening += "<a>";
    closing += "</a>";
  }
  ExpectLoadError(Read(opening));
  ExpectDefaults(ReadRoot(opening + closing));
  ExpectDefaults(ReadInterfaces(opening + closing));
}

TEST_F(ConfigReaderTest, SurvivesVeryLongValues) {
  const std::string value(1'000'000, 'x');
  EXPECT_EQ(ReadRoot("<Debuglog File='" + value + "'/>").logFileName, value);
  EXPECT_EQ(ReadInterfaces("<I Name='" + value + "' Port='1'/>").errorText,
            value + " interface port number is less than 1025");
}

TEST_F(ConfigReaderTest, ExpandsNoEntitiesOfTheFilesOwn) {
  std::string bomb = "<!DOCTYPE VORNConfig [<!ENTITY a0 'xxxxxxxxxx'>";
  for (int i = 1; i < 12; ++i) {
    const std::string one = "&a" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY a" + std::to_string(i) + " '" + one + one + one + one + one + one + "'>";
  }
  const CONFIG_DESCRIPTOR config =
      Read(bomb + "]><VORNConfig><Debuglog File='&a11;'/>&a11;</VORNConfig>");
  EXPECT_EQ(config.errorText, "NONE");
  EXPECT_EQ(config.logFileName, "&a11;");
}

TEST_F(ConfigReaderTest, LeavesNoDescriptorOpen) {
  const std::size_t before = support::OpenDescriptors(getpid()).size();
  Read(kGoodFile);
  Read("text");
  ReadConfigFile(m_folder.Path());
  EXPECT_EQ(support::OpenDescriptors(getpid()).size(), before);
}

}  // namespace vorn
