#include "tests/support/unit/Folder.h"
#include "vornctl/ExitStatus.h"
#include "vornctl/Settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>

namespace ctl {
namespace {

using client::INTERFACE;

/// An environment of its own: no settings of whoever runs the test.
class Settings : public testing::Test {
 protected:
  Settings() {
    for (const char* name : {"VORNCTL_HOST", "VORNCTL_TIMEOUT"}) {
      unsetenv(name);
    }
    setenv("XDG_CONFIG_HOME", m_folder.File("config").c_str(), 1);
  }

  /// The user's own file.
  void Write(const std::string& text) const {
    std::filesystem::create_directory(m_folder.File("config"));
    std::ofstream(m_folder.File("config/vornctl.toml")) << text;
  }

  /// What is wrong with the file; empty where nothing is.
  static std::string Complaint(const std::string& text) {
    SETTINGS settings;
    try {
      ReadSettingsText(settings, text, "file");
    } catch (const FAILURE& failure) {
      EXPECT_EQ(failure.Status(), EXIT_STATUS::kUsage);
      return failure.what();
    }
    return {};
  }

 private:
  vorn::unit::FOLDER m_folder;
};

TEST_F(Settings, WithoutAnyAreThoseOfTheExampleConfigurationOnThisMachine) {
  const SETTINGS settings = ReadSettings({});
  EXPECT_EQ(settings.host, "127.0.0.1");
  EXPECT_EQ(settings.ports.at(INTERFACE::kCae), 5000);
  EXPECT_EQ(settings.ports.at(INTERFACE::kIo), 5001);
  EXPECT_EQ(settings.ports.at(INTERFACE::kMon), 5002);
  EXPECT_EQ(settings.separators.at(INTERFACE::kIo).inp, "\r\n");
  EXPECT_FALSE(settings.isWaitGiven);
}

TEST_F(Settings, OfTheFileAreTaken) {
  Write(R"(
host = "rack"
timeout = 2.5
wait = 30
[ports]
cae = 6000
[separators.io]
inp = "\n"
out = ";"
[cards]
5 = "digital-out"
[names]
lamp = "5.10"
)");
  const SETTINGS settings = ReadSettings({});
  EXPECT_EQ(settings.host, "rack");
  EXPECT_EQ(settings.timeout, std::chrono::milliseconds(2500));
  EXPECT_EQ(settings.wait, std::chrono::seconds(30));
  EXPECT_TRUE(settings.isWaitGiven);
  EXPECT_EQ(settings.ports.at(INTERFACE::kCae), 6000);
  EXPECT_EQ(settings.ports.at(INTERFACE::kIo), 5001);
  EXPECT_EQ(settings.separators.at(INTERFACE::kIo).inp, "\n");
  EXPECT_EQ(settings.separators.at(INTERFACE::kIo).out, ";");
  EXPECT_EQ(settings.cards.at(5), client::CARD_KIND::kDigitalOutput);
  EXPECT_EQ(settings.names.at("lamp"), "5.10");
}

TEST_F(Settings, OfTheEnvironmentStandAboveTheFileAndThoseOfTheCommandLineAboveBoth) {
  Write("host = \"file\"\ntimeout = 1\n");
  setenv("VORNCTL_HOST", "environment", 1);
  setenv("VORNCTL_TIMEOUT", "2", 1);
  EXPECT_EQ(ReadSettings({}).host, "environment");
  EXPECT_EQ(ReadSettings({}).timeout, std::chrono::seconds(2));
  SETTINGS_OPTIONS options;
  options.host = "option";
  options.timeout = 3;
  EXPECT_EQ(ReadSettings(options).host, "option");
  EXPECT_EQ(ReadSettings(options).timeout, std::chrono::seconds(3));
}

TEST_F(Settings, AHostMayNameTheFirstOfThreePorts) {
  SETTINGS_OPTIONS options;
  options.host = "rack:7000";
  options.ports = {{INTERFACE::kMon, 9000}};
  const SETTINGS settings = ReadSettings(options);
  EXPECT_EQ(settings.host, "rack");
  EXPECT_EQ(settings.ports.at(INTERFACE::kCae), 7000);
  EXPECT_EQ(settings.ports.at(INTERFACE::kIo), 7001);
  EXPECT_EQ(settings.ports.at(INTERFACE::kMon), 9000);
  for (const char* host :
       {"", ":5000", "rack:", "rack:0", "rack:65534", "rack:5x", "rack:123456"}) {
    options.host = host;
    EXPECT_THROW(ReadSettings(options), FAILURE) << host;
  }
}

TEST_F(Settings, AFileThatIsNamedMustBeThere) {
  SETTINGS_OPTIONS options;
  options.file = "/nowhere/vornctl.toml";
  EXPECT_THROW(ReadSettings(options), FAILURE);
}

TEST_F(Settings, AWrongOneIsToldWithItsLine) {
  EXPECT_EQ(Complaint("host = \"x\"\n"), "");
  const std::pair<const char*, const char*> wrong[] = {
      {"host = \n", "file:1: "},
      {"\nhost = 5\n", "file:2: host is a text in quotes"},
      {"hosts = \"x\"\n", "file:1: no setting 'hosts'"},
      {"timeout = -1\n", "file:1: timeout is in seconds"},
      {"wait = \"5\"\n", "file:1: wait is in seconds"},
      {"ports = 5000\n", "file:1: ports is a table"},
      {"[ports]\nioo = 5\n", "file:2: ports has cae, io and mon"},
      {"[ports]\nio = 70000\n", "file:2: ports: a port is a number"},
      {"[ports]\nio = \"5001\"\n", "file:2: ports: a port is a number"},
      {"[separators.io]\nin = \";\"\n", "file:2: an interface has the separators inp and out"},
      {"[cards]\n15 = \"servo\"\n", "file:2: cards: '15' is no address"},
      {"[cards]\n5 = \"lamp\"\n", "file:2: no card type 'lamp'"},
      {"[names]\nF = \"5.1\"\n", "file:2: 'F' cannot be a name"},
      {"[names]\nlamp = \"5,1\"\n", "file:2: names.lamp: '5,1' is no channel"},
  };
  for (const auto& [text, complaint] : wrong) {
    EXPECT_TRUE(Complaint(text).starts_with(complaint)) << text << Complaint(text);
  }
}

TEST_F(Settings, ATimeOutOfTheEnvironmentThatIsNoNumberIsRefused) {
  for (const char* text : {"x", "5s", "-1", "nan"}) {
    setenv("VORNCTL_TIMEOUT", text, 1);
    EXPECT_THROW(ReadSettings({}), FAILURE) << text;
  }
}

}  // namespace
}  // namespace ctl
