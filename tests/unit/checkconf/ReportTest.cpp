#include "checkconf/Report.h"
#include "tests/unit/checkconf/Checked.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace vorn {

namespace {

using unit::Checked;
using unit::FOLDER;
using unit::GoodConfig;
using unit::Replaced;

TEST(TextReport, SaysWhatTheDaemonWillDo) {
  const FOLDER folder;
  EXPECT_EQ(TextReport("f.xml", Checked(folder, GoodConfig(folder))),
            "f.xml: the daemon starts with a pause of 2525 microseconds, polling on, discovery "
            "off, log \"" +
                folder.File("vorn.log") +
                "\", IO on port 5001, CAE on port 5000, MON on port 5002\n"
                "f.xml: good\n");
}

TEST(TextReport, GivesPlaceSeverityTextAndAdvice) {
  const FOLDER folder;
  const std::string text = Replaced(Replaced(GoodConfig(folder), "5001", "80"), "<Speed", "<speed");
  EXPECT_EQ(TextReport("f.xml", Checked(folder, text)),
            "f.xml:4:4: warning: unknown element \"speed\" is ignored [unknown-element]\n"
            "    Known here, and case counts: Debuglog, Speed, InitPollState, AutoDiscover, "
            "Interfaces.\n"
            "f.xml:9:26: error: port 80 is below 1025: the daemon would not start [port-too-low]\n"
            "    Choose a port from 1025 to 65535.\n"
            "f.xml: the daemon does not start: IO interface port number is less than 1025\n"
            "f.xml: bad, 1 error, 1 warning\n");
}

TEST(TextReport, ShowsNoControlCharacterOfTheFile) {
  const FOLDER folder;
  const std::string report =
      TextReport("f\x1B.xml", Checked(folder, Replaced(GoodConfig(folder), "TRUE", "\x1B[2J")));
  EXPECT_EQ(report.find('\x1B'), std::string::npos) << report;
}

TEST(JsonReport, HoldsFindingsAndWhatTheDaemonWillDo) {
  const FOLDER folder;
  const auto report = nlohmann::json::parse(JsonReport(
      "f.xml", Checked(folder, Replaced(GoodConfig(folder), "Percent=\"50\"", "Percent=\"0\""))));
  EXPECT_EQ(report["file"], "f.xml");
  EXPECT_EQ(report["good"], false);
  EXPECT_EQ(report["errors"], 1);
  EXPECT_EQ(report["warnings"], 0);
  ASSERT_EQ(report["findings"].size(), 1U);
  EXPECT_EQ(report["findings"][0]["id"], "bad-speed");
  EXPECT_EQ(report["findings"][0]["severity"], "error");
  EXPECT_EQ(report["findings"][0]["line"], 4);
  EXPECT_EQ(report["findings"][0]["column"], 10);
  EXPECT_EQ(report["daemon"]["starts"], true);
  EXPECT_EQ(report["daemon"]["delay_us"], 5050);
  EXPECT_EQ(report["daemon"]["interfaces"]["CAE"]["port"], 5000);
  EXPECT_EQ(report["daemon"]["interfaces"]["CAE"]["inp_separator"], "\r\n");
}

TEST(JsonReport, StaysJsonWhateverBytesTheFileHolds) {
  const FOLDER folder;
  const std::string text = Replaced(GoodConfig(folder), "TRUE", "\xFF\xC0\x80");
  const auto report = nlohmann::json::parse(JsonReport("f\xFF", Checked(folder, text)));
  EXPECT_EQ(report["findings"].size(), 1U);
}

TEST(JsonReport, NamesTheReasonWhyTheDaemonDoesNotStart) {
  const FOLDER folder;
  const auto report = nlohmann::json::parse(JsonReport("f.xml", Checked(folder, "<a>")));
  EXPECT_EQ(report["daemon"]["starts"], false);
  EXPECT_EQ(report["daemon"]["error"], "Unable to load config, or unable to parse XML file!");
}

}  // namespace

}  // namespace vorn
