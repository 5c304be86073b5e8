// Files that no one would write: the check ends soon, and agrees with the daemon's own reader.

#include "checkconf/Report.h"
#include "tests/unit/checkconf/Checked.h"
#include "vorn/config/ConfigReader.h"

#include <gtest/gtest.h>

namespace vorn {

namespace {

using checkconf::SEVERITY;
using unit::Checked;
using unit::FOLDER;
using unit::GoodConfig;

/// Checks, writes both reports, and compares with the daemon's reader.
checkconf::CHECK_RESULT CheckAndCompare(const FOLDER& folder, const std::string& text) {
  checkconf::CHECK_RESULT result = Checked(folder, text);
  EXPECT_NE(TextReport("file", result), "");
  EXPECT_NE(JsonReport("file", result), "");
  const CONFIG_DESCRIPTOR daemons = ReadConfigFile(folder.File("vornconf.xml"));
  EXPECT_EQ(result.config.errorText, daemons.errorText);
  EXPECT_EQ(result.config.io.port, daemons.io.port);
  EXPECT_EQ(result.config.logFileName, daemons.logFileName);
  if (daemons.errorText != kNoConfigError) {
    EXPECT_GT(result.Count(SEVERITY::kError), 0U);
  }
  return result;
}

std::string Times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

TEST(HostileFiles, CutAtAnyByteAreBadAndNeverMore) {
  const FOLDER folder;
  const std::string text = GoodConfig(folder);
  const std::size_t end = text.rfind('>');
  for (std::size_t length = 0; length <= text.size(); ++length) {
    const checkconf::CHECK_RESULT result = CheckAndCompare(folder, text.substr(0, length));
    EXPECT_EQ(result.Count(SEVERITY::kError) > 0, length <= end) << length;
  }
}

TEST(HostileFiles, WithAnyByteDamagedAgreeWithTheDaemon) {
  const FOLDER folder;
  const std::string text = GoodConfig(folder);
  for (std::size_t at = 0; at < text.size(); ++at) {
    for (const char damage : {'\0', '<', '"', '\xFF'}) {
      std::string damaged = text;
      damaged[at] = damage;
      CheckAndCompare(folder, damaged);
    }
  }
}

/// Texts of the largest size that is read at all, made only by the test that reads them: every
/// other test of this program starts with all parameters, too.
struct LARGE_FILE {
  const char* name;
  std::string (*text)();
};

void PrintTo(const LARGE_FILE& file, std::ostream* out) {
  *out << file.name;
}

class LargeFiles : public testing::TestWithParam<LARGE_FILE> {};

TEST_P(LargeFiles, AreBadAndSoonRead) {
  const FOLDER folder;  // one that took a time of the square of its size would never end
  EXPECT_GT(Checked(folder, GetParam().text()).Count(SEVERITY::kError), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    HostileFiles, LargeFiles,
    testing::Values(
        LARGE_FILE{"Empty", [] { return std::string(); }},
        LARGE_FILE{"Zeros", [] { return std::string(1000000, '\0'); }},
        LARGE_FILE{"Noise", [] { return Times(4000, "\x01\xFE<&\"'>]]>\xC3<!--?"); }},
        LARGE_FILE{"SixtyFourMegabytes", [] { return std::string(64UL * 1024 * 1024, ' '); }},
        LARGE_FILE{"NestedElements", [] { return Times(300000, "<a>"); }},
        LARGE_FILE{"NestedElementsClosed",
                   [] { return Times(140000, "<a>") + Times(140000, "</a>"); }},
        LARGE_FILE{"ManyUnknownElements",
                   [] { return "<VORNConfig>" + Times(200000, "<a/>") + "</VORNConfig>"; }},
        LARGE_FILE{
            "ManyUnknownAttributes",
            [] { return "<VORNConfig><Speed " + Times(150000, "a='' ") + "/></VORNConfig>"; }},
        LARGE_FILE{"ManyPorts",
                   [] {
                     return "<VORNConfig><Interfaces><I " + Times(90000, "Port='9' ") +
                            "/></Interfaces></VORNConfig>";
                   }},
        LARGE_FILE{"ManySeparators",
                   [] {
                     return "<VORNConfig><Interfaces><I " + Times(50000, "InpSeparator='' ") +
                            "/></Interfaces></VORNConfig>";
                   }},
        LARGE_FILE{"ManyInterfaces",
                   [] {
                     return "<VORNConfig>" +
                            Times(20000, "<Interfaces><I Name='IO' Port='9'/></Interfaces>") +
                            "</VORNConfig>";
                   }},
        LARGE_FILE{"ManyGoodInterfacesOnOneLine",
                   [] {
                     return "<VORNConfig><Interfaces>" + Times(40000, "<I Name='IO' Port='5'/>") +
                            "</Interfaces></VORNConfig>";
                   }},
        LARGE_FILE{"OneLongValue",
                   [] {
                     return "<VORNConfig><Debuglog File='" + std::string(900000, 'x') +
                            "'/></VORNConfig>";
                   }}),
    [](const testing::TestParamInfo<LargeFiles::ParamType>& file) {
      return std::string(file.param.name);
    });

}  // namespace

}  // namespace vorn
