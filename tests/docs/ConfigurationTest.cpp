// The configurations that the documents show can be used as they stand.

#include "tests/docs/Markdown.h"
#include "tests/support/unit/Folder.h"
#include "vorn/config/ConfigReader.h"

#include <gtest/gtest.h>

namespace vorn {

namespace docs {
namespace {

CONFIG_DESCRIPTOR Read(const LINES& block) {
  const unit::FOLDER folder;
  const std::string path = folder.File("vornconf.xml");
  std::string text;
  for (const std::string& line : block) {
    text += line + "\n";
  }
  unit::WriteFile(path, text);
  return ReadConfigFile(path);
}

TEST(DocumentedConfiguration, IsGood) {
  std::size_t count = 0;
  for (const std::filesystem::path& document : Documents()) {
    for (const LINES& block : Blocks(SplitLines(ReadFile(document)), "xml")) {
      EXPECT_EQ(Read(block).errorText, kNoConfigError) << document;
      ++count;
    }
  }
  EXPECT_GT(count, 0U);
}

TEST(DocumentedConfiguration, OfTheReadmeIsWhatTheReadmeSays) {
  const std::vector<LINES> blocks = Blocks(SplitLines(ReadFile("README.md")), "xml");
  ASSERT_EQ(blocks.size(), 1U);
  const CONFIG_DESCRIPTOR config = Read(blocks[0]);
  EXPECT_EQ(config.cae.port, 5000);
  EXPECT_EQ(config.io.port, 5001);
  EXPECT_EQ(config.mon.port, 5002);
  EXPECT_EQ(config.cae.inpSeparator, "\r\n");
  EXPECT_EQ(config.io.threadDelayUs, 2525);
  EXPECT_EQ(config.logFileName, "/var/log/vorn.log");
  EXPECT_TRUE(config.polling);
  EXPECT_TRUE(config.autoDiscover);
}

}  // namespace
}  // namespace docs

}  // namespace vorn
