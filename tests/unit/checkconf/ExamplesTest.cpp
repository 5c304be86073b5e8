// One damaged file per kind of finding: each is told, at its place, and nothing else is.

#include "checkconf/FindingKinds.h"
#include "tests/unit/checkconf/Checked.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <set>

namespace vorn {

namespace {

using checkconf::KIND;
using unit::Checked;
using unit::FOLDER;
using unit::GoodConfig;
using unit::Ids;
using unit::Replaced;

/// A change to the good file.
struct EXAMPLE {
  KIND kind;
  const char* from;
  const char* to;
  std::vector<std::string> findings;
  const char* detail;  ///< part of the finding's text
};

constexpr const char* kAll = "";  // in the place of `from`: the whole text

const EXAMPLE kExamples[] = {
    // --- the file
    {KIND::kBadXml, "50\"/>", "50/>", {"5:26 bad-xml"}, "error parsing element attribute"},
    {KIND::kZeroByte, "</VORNConfig>", "</VORNConfig>@0", {"12:14 zero-byte"}, "nothing after"},
    {KIND::kOtherEncoding,
     "encoding=\"UTF-8\"?>",
     "encoding=\"ISO-8859-1\"?><!-- \xE4 -->",
     {"0:0 other-encoding"},
     "ISO 8859-1"},
    // --- its structure
    {KIND::kMissingRoot, kAll, "<vornconfig/>", {"1:2 unknown-root", "0:0 missing-root"}, "VORN"},
    {KIND::kUnknownRoot, "<VORNConfig>", "<Other/><VORNConfig>", {"2:2 unknown-root"}, "\"Other\""},
    {KIND::kSecondRoot, "</VORNConfig>", "</VORNConfig><VORNConfig/>", {"12:15 second-root"}, ""},
    {KIND::kUnknownElement, "<Speed", "<speed", {"4:4 unknown-element"}, "\"speed\""},
    {KIND::kNestedElement,
     "\"50\"/>",
     "\"50\"><Deep/></Speed>",
     {"4:24 nested-element"},
     "\"Deep\" inside Speed"},
    {KIND::kUnknownAttribute,
     "Loglevel=\"0\"",
     "LogLevel=\"0\"",
     {"3:13 unknown-attribute"},
     "\"LogLevel\" of Debuglog"},
    {KIND::kDuplicateElement,
     "<Interfaces>",
     "<Speed Percent=\"50\"/><Interfaces>",
     {"7:4 duplicate-element"},
     "second Speed"},
    {KIND::kDuplicateAttribute,
     "Percent=\"50\"",
     "Percent=\"50\" Percent=\"60\"",
     {"4:23 duplicate-attribute"},
     "Percent"},
    {KIND::kMissingAttribute,
     " Percent=\"50\"",
     "",
     {"4:4 missing-attribute"},
     "Speed without Percent"},
    {KIND::kStrayText, "<Speed", "words\n<Speed", {"4:3 stray-text"}, "\"words\""},
    // --- values
    {KIND::kNotANumber, "\"50\"", "\"50%\"", {"4:10 not-a-number"}, "\"50%\" is no plain"},
    {KIND::kBadSpeed, "\"50\"", "\"101\"", {"4:10 bad-speed"}, "would be 0 micro"},
    {KIND::kBadLogLevel, "Loglevel=\"0\"", "Loglevel=\"2\"", {"3:13 bad-log-level"}, "level 2"},
    {KIND::kNegativeLogLevel,
     "Loglevel=\"0\"",
     "Loglevel=\"-1\"",
     {"3:13 negative-log-level"},
     "-1"},
    {KIND::kNoLogFile,
     " File=",
     " Fill=",
     {"3:26 unknown-attribute", "0:0 no-log-file"},
     "nothing is logged"},
    {KIND::kRelativeLogFile, "File=\"/", "File=\"", {"3:26 relative-log-file"}, "vorn.log\""},
    {KIND::kLooksTrue, "\"TRUE\"", "\"yes\"", {"5:18 looks-true"}, "\"yes\" is read as FALSE"},
    {KIND::kUnknownWord, "\"TRUE\"", "\"off\"", {"5:18 unknown-word"}, "\"off\" is read as FALSE"},
    {KIND::kSpeedAfterInterfaces,
     "</Interfaces>",
     "</Interfaces><Speed Percent=\"70\"/>",
     {"11:17 duplicate-element", "11:17 speed-after-interfaces"},
     "2525"},
    // --- interfaces
    {KIND::kNoInterfaces,
     kAll,
     "<VORNConfig><Debuglog File=\"/vorn.log\"/></VORNConfig>",
     {"0:0 no-interfaces"},
     "IO, CAE, MON"},
    {KIND::kMissingInterface,
     "<Interface Name=\"MON\" Port=\"5002\" InpSeparator=\"\\r\\n\" OutSeparator=\"\\r\\n\"/>",
     "",
     {"0:0 missing-interface"},
     "MON"},
    {KIND::kUnknownInterface,
     "\"MON\"",
     "\"Mon\"",
     {"10:16 unknown-interface", "0:0 missing-interface"},
     "\"Mon\""},
    {KIND::kNamelessInterface,
     " Name=\"MON\"",
     "",
     {"10:6 nameless-interface", "0:0 missing-interface"},
     "no Name"},
    {KIND::kDuplicateInterface,
     "</Interfaces>",
     "<I Name=\"IO\" Port=\"5009\"/></Interfaces>",
     {"11:4 duplicate-interface"},
     "IO"},
    {KIND::kFifthInterface,
     "</Interfaces>",
     "<I Name=\"IO\" Port=\"5008\"/><I/><I/></Interfaces>",
     {"11:4 duplicate-interface", "11:30 fifth-interface"},
     "first 4"},
    {KIND::kMissingPort, " Port=\"5001\"", "", {"9:6 missing-port"}, "IO has no Port"},
    {KIND::kPortTooLow, "\"5001\"", "\"1024\"", {"9:26 port-too-low"}, "port 1024"},
    {KIND::kPortTooHigh, "\"5001\"", "\"70537\"", {"9:26 port-too-high"}, "on port 5001"},
    {KIND::kPortBeforeName,
     "Name=\"IO\" Port=\"5001\"",
     "Port=\"5001\" Name=\"IO\"",
     {"9:16 port-before-name"},
     "before Name"},
    {KIND::kEqualPorts, "\"5001\"", "\"5000\"", {"9:26 equal-ports"}, "CAE and IO"},
    {KIND::kEmptySeparator,
     "InpSeparator=\"\\r\\n\"",
     "InpSeparator=\"\"",
     {"8:39 empty-separator"},
     "InpSeparator of interface CAE"},
    {KIND::kUnusualSeparator,
     "InpSeparator=\"\\r\\n\"",
     "InpSeparator=\"|\"",
     {"8:39 unusual-separator"},
     "\"|\""},
    {KIND::kSeparatorInCommands,
     "InpSeparator=\"\\r\\n\"",
     "InpSeparator=\"END\"",
     {"8:39 separator-in-commands"},
     "\"END\""},
    {KIND::kUnknownEscape,
     "InpSeparator=\"\\r\\n\"",
     "InpSeparator=\"\\|\"",
     {"8:39 unknown-escape", "8:39 unusual-separator"},
     "\"\\|\""},
};

/// Kinds that take more than a changed text; each has a test of its own in
/// MachineChecksTest.cpp.
const std::set<KIND> kTestedElsewhere = {
    KIND::kNotFound,
    KIND::kNotRegular,
    KIND::kNotReadable,
    KIND::kNotReadableByUser,
    KIND::kTooLarge,
    KIND::kLogFolderMissing,
    KIND::kLogFolderNotWritable,
    KIND::kLogFileNotWritable,
    KIND::kLogFileIsFolder,
    KIND::kPortTaken,
    KIND::kTooManyFindings,
};

std::string TextOf(const EXAMPLE& example, const FOLDER& folder) {
  std::string text = example.from == kAll ? std::string(example.to)
                                          : Replaced(GoodConfig(folder), example.from, example.to);
  if (const std::size_t zero = text.find("@0"); zero != std::string::npos) {
    text.replace(zero, 2, 1, '\0');
  }
  return text;
}

TEST(CheckConfig, FindsNothingInAGoodFile) {
  const FOLDER folder;
  EXPECT_EQ(Ids(Checked(folder, GoodConfig(folder))), std::vector<std::string>());
}

class Examples : public testing::TestWithParam<EXAMPLE> {};

TEST_P(Examples, AreToldAtTheirPlaceAndNothingElseIs) {
  const EXAMPLE& example = GetParam();
  const FOLDER folder;
  const checkconf::CHECK_RESULT result = Checked(folder, TextOf(example, folder));
  EXPECT_EQ(Ids(result), example.findings);
  const auto found =
      std::find_if(result.findings.begin(), result.findings.end(),
                   [&](const checkconf::FINDING& finding) { return finding.kind == example.kind; });
  ASSERT_NE(found, result.findings.end());
  EXPECT_NE(found->text.find(example.detail), std::string::npos) << found->text;
  EXPECT_EQ((found->text + found->advice).find("{}"), std::string::npos) << found->text;
}

INSTANTIATE_TEST_SUITE_P(CheckConfig, Examples, testing::ValuesIn(kExamples),
                         [](const testing::TestParamInfo<EXAMPLE>& example) {
                           std::string name = checkconf::FindKind(example.param.kind).id;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(FindingKinds, HaveEachAnExample) {
  std::set<KIND> tested = kTestedElsewhere;
  for (const EXAMPLE& example : kExamples) {
    tested.insert(example.kind);
  }
  for (const checkconf::FINDING_KIND& row : checkconf::FindingKinds()) {
    EXPECT_TRUE(tested.contains(row.kind)) << row.id;
  }
}

TEST(FindingKinds, HaveOneRowAndOneIdEach) {
  std::set<std::string> ids;
  int next = 0;
  for (const checkconf::FINDING_KIND& row : checkconf::FindingKinds()) {
    EXPECT_EQ(static_cast<int>(row.kind), next++) << row.id;
    EXPECT_TRUE(ids.insert(row.id).second) << row.id;
    EXPECT_NE(std::string(row.text), "");
    EXPECT_NE(std::string(row.advice), "");
  }
  EXPECT_EQ(next, static_cast<int>(KIND::kTooManyFindings) + 1);
}

TEST(CheckConfig, CallsAFalseThatIsWrittenOutGood) {
  const FOLDER folder;
  for (const char* word : {"FALSE", "False", "false", "TRUE", "True", "true"}) {
    const std::string text =
        Replaced(GoodConfig(folder), "\"TRUE\"", '"' + std::string(word) + '"');
    EXPECT_TRUE(Checked(folder, text).findings.empty()) << word;
  }
}

TEST(CheckConfig, TellsEveryWordThatOnlyLooksTrue) {
  const FOLDER folder;
  for (const char* word : {"yes", "YES", "1", "on", "tRUE", " TRUE", "TRUE ", "enabled"}) {
    const std::string text =
        Replaced(GoodConfig(folder), "\"TRUE\"", '"' + std::string(word) + '"');
    EXPECT_EQ(Ids(Checked(folder, text)), std::vector<std::string>{"5:18 looks-true"}) << word;
  }
}

TEST(CheckConfig, AcceptsTheLimitsOfPortAndSpeed) {
  const FOLDER folder;
  for (const char* port : {"1025", "65535"}) {
    EXPECT_TRUE(Checked(folder, Replaced(GoodConfig(folder), "5000", port)).findings.empty());
  }
  for (const char* percent : {"\"1\"", "\"100\""}) {
    EXPECT_TRUE(Checked(folder, Replaced(GoodConfig(folder), "\"50\"", percent)).findings.empty());
  }
}

TEST(CheckConfig, FindsPortsEqualThatAreOnlyEqualIn16Bits) {
  const FOLDER folder;
  const std::string text = Replaced(GoodConfig(folder), "\"5001\"", "\"70536\"");  // 65536 + 5000
  EXPECT_EQ(Ids(Checked(folder, text)),
            (std::vector<std::string>{"9:26 port-too-high", "9:26 equal-ports"}));
}

TEST(CheckConfig, GoesOnBehindThePortAtWhichTheDaemonStops) {
  const FOLDER folder;
  const std::string text =
      Replaced(Replaced(GoodConfig(folder), "5000", "80"), "Port=\"5002\"", "Port=\"99999\"");
  const checkconf::CHECK_RESULT result = Checked(folder, text);
  EXPECT_EQ(Ids(result), (std::vector<std::string>{"8:27 port-too-low", "10:27 port-too-high"}));
  EXPECT_EQ(result.config.errorText, "CAE interface port number is less than 1025");
}

TEST(CheckConfig, GivesWhatTheDaemonsReaderMakesOfTheFile) {
  const FOLDER folder;
  const checkconf::CHECK_RESULT result = Checked(folder, GoodConfig(folder));
  EXPECT_EQ(result.config.errorText, kNoConfigError);
  EXPECT_EQ(result.config.threadDelayUs, 2525);
  EXPECT_EQ(result.config.io.port, 5001);
}

TEST(CheckConfig, FindsNothingInTheExampleThatIsInstalled) {
  const checkconf::CHECK_RESULT result =
      checkconf::CheckConfig(VORN_EXAMPLE_CONFIG, {checkconf::CurrentUser(), false});
  EXPECT_EQ(Ids(result), std::vector<std::string>());
}

}  // namespace

}  // namespace vorn
