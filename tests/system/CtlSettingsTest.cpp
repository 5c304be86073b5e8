#include "tests/support/Text.h"
#include "tests/system/CtlTest.h"

#include <nlohmann/json.hpp>

/// Where the daemon is, how it is configured, and what the user calls his channels.

namespace {

class CtlSettings : public CTL_TEST {};

TEST_F(CtlSettings, SeparatorsAreThoseOfTheDaemon) {
  config.cae.inpSeparator = ";";
  config.cae.outSeparator = "|";
  config.io.inpSeparator = "\n";
  config.io.outSeparator = "%";
  config.mon.inpSeparator = "#";
  config.mon.outSeparator = "$";
  Settings(
      "[separators]\n"
      "cae = { inp = \";\", out = \"|\" }\n"
      "io = { inp = \"\\n\", out = \"%\" }\n"
      "mon = { inp = \"#\", out = \"$\" }\n");
  StartRack();
  EXPECT_EQ(Out({"version"}), "1.20\n");
  EXPECT_EQ(Json({"set", "5.10=on", "--others", "FF"})[0]["state"], "checked");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  EXPECT_TRUE(Fails(Run({"io", "hello"}), 1, "'hello'"));
  EXPECT_EQ(Out({"get", "3.6"}), "off\n");
}

TEST_F(CtlSettings, NamesAreOfUseEverywhere) {
  Settings(
      "[names]\n"
      "lamp = \"5.10\"\ndoor = \"3.6\"\ndial = \"8.encoder\"\narm = \"0.4\"\n"
      "motors = \"1\"\nrow = \"5.b0\"\n");
  StartRack();
  Out({"set", "lamp=on", "arm=50%", "row=0F", "--others", "FF"});
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  EXPECT_TRUE(rack.WaitForValue(5, 0, 0x0F));
  EXPECT_TRUE(rack.WaitForValue(0, 4, 0x80));
  Out({"pulse", "lamp", "10", "--others", "FF"});
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFF));
  EXPECT_EQ(Out({"get", "door", "3.7"}), "door: off\n3.7: off\n");
  EXPECT_EQ(Json({"get", "door"})[0]["name"], "door");
  EXPECT_EQ(Out({"wait", "door=off"}), "");
  EXPECT_EQ(Out({"batch"}, "set lamp=on --others FF\nget door\n"), "off\n");
}

TEST_F(CtlSettings, ComeFromTheSystemsFileTheUsersAndTheEnvironmentInThatOrder) {
  StartRack();
  support::WriteFile("/etc/vorn/vornctl.toml", "[names]\nlamp = \"5.b0\"\nrow = \"5.b0\"\n");
  Settings("[names]\nlamp = \"5.b1\"\n");
  EXPECT_EQ(Out({"--dry-run", "set", "lamp=FB", "row=0F"}), "a5b1dFB\na5b0d0F\n");
  WaitUntilFree();
  CTL_START start = With({{"version"}});
  start.environment["VORNCTL_HOST"] = "127.0.0.1:1";
  start.environment["VORNCTL_TIMEOUT"] = "600";
  start.arguments.insert(start.arguments.begin(), {"--wait", "0.2"});
  CTL_PROCESS elsewhere(start);
  EXPECT_EQ(elsewhere.WaitForEnd(), 8);
  start.arguments.insert(start.arguments.begin(),
                         {"--cae-port", std::to_string(config.cae.port), "--wait", "60"});
  start.arguments.erase(start.arguments.end() - 3, start.arguments.end() - 1);
  CTL_PROCESS here(start);
  EXPECT_EQ(here.WaitForEnd(), 0);
  EXPECT_EQ(here.Out(), "1.20\n");
}

TEST_F(CtlSettings, AreThoseOfAFileThatIsNamed) {
  StartRack();
  const std::string ports = support::ReadFile(SettingsPath());
  support::WriteFile(Folder() + "/other.toml", ports + "[names]\nlamp = \"5.b0\"\n");
  Settings("this is no settings file\n");
  EXPECT_EQ(Out({"--settings", Folder() + "/other.toml", "set", "lamp=0F"}), "");
  EXPECT_TRUE(rack.WaitForValue(5, 0, 0x0F));
  EXPECT_TRUE(Fails(Run({"--settings", Folder() + "/none.toml", "version"}), 2, "none.toml"));
}

}  // namespace
