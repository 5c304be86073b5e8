// docs/simulator.md, the manual page and the shipped scenarios, against the program that they tell
// of.

#include "sim/tool/Commands.h"
#include "sim/tool/Picture.h"
#include "sim/tool/RackFile.h"
#include "sim/tool/Scenario.h"
#include "tests/docs/Markdown.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace sim {
namespace {

using vorn::docs::ReadFile;
using LINES = vorn::docs::LINES;

/// A fenced block of a document: what stands behind the opening fence, and the lines.
struct BLOCK {
  std::string kind;
  LINES lines;
};

std::vector<BLOCK> Blocks(const std::string& document) {
  std::vector<BLOCK> blocks;
  bool inside = false;
  for (const std::string& line : vorn::docs::SplitLines(document)) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside) {
        blocks.push_back({line.substr(3), {}});
      }
    } else if (inside) {
      blocks.back().lines.push_back(line);
    }
  }
  return blocks;
}

/// What is typed behind a prompt, and what comes of it.
struct EXAMPLE {
  std::string typed;
  std::string output;
};

std::vector<EXAMPLE> Examples(const BLOCK& block, const std::string& prompt) {
  std::vector<EXAMPLE> examples;
  for (const std::string& line : block.lines) {
    if (line.starts_with(prompt)) {
      examples.push_back({line.substr(prompt.size()), {}});
    } else if (!examples.empty() && line.starts_with("> ")) {
      examples.back().typed += "\n" + line.substr(2);
    } else if (!examples.empty()) {
      examples.back().output += line + "\n";
    }
  }
  return examples;
}

/// The built-in rack, ready.
class Documents : public ::testing::Test {
 protected:
  Documents() {
    EXPECT_TRUE(LoadRack(DefaultRackText(), "built-in", simulation.Rack()));
    EXPECT_TRUE(simulation.Plug(0));
    simulation.Events().Take();
  }

  vorn::unit::FOLDER folder;
  SIMULATION simulation{{.devDir = folder.Path()}};
};

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

TEST_F(Documents, SimulatorsRackExamplesAndPicturesAreTrue) {
  int examples = 0;
  int pictures = 0;
  for (const BLOCK& block : Blocks(ReadFile("docs/simulator.md"))) {
    for (const EXAMPLE& example :
         block.kind == "rack" ? Examples(block, "rack> ") : std::vector<EXAMPLE>{}) {
      const std::string response = ResponseText(Execute(simulation, example.typed));
      std::string output;
      for (const std::string& line : simulation.Events().Take()) {
        output += line + "\n";
      }
      output += response;
      ReplaceAll(output, folder.Path(), ".");
      EXPECT_EQ(output, example.output) << example.typed;
      ++examples;
    }
    if (block.kind == "picture") {
      LINES picture = Picture(simulation, kUtf8Glyphs);
      ReplaceAll(picture[0], folder.Path(), ".");
      EXPECT_EQ(picture, block.lines);
      ++pictures;
    }
  }
  EXPECT_GE(examples, 20);
  EXPECT_GE(pictures, 1);
}

/// What the README's picture shows: the frames that vorn makes of the IO commands above it, and
/// what was typed.
TEST_F(Documents, ReadmeShowsThePictureAsTheRackDrawsIt) {
  for (const char* command : {"speed 0 0", "press 3.6", "set F.3 80", "turn 8 5"}) {
    ASSERT_TRUE(Execute(simulation, command)) << command;
  }
  for (const char* body : {"10 05 02 FF FB", "10 00 06 80 80 80 80 C0 80", "10 01 04 40 00 00 00",
                           "10 0E 13 09 03 01 54 61 69 6C 20 6F 66 20 74 68 65 20 63 61 74 00",
                           "10 09 0A 09 43 4F 43 4B 52 4F 41 43 48"}) {
    const auto answer = simulation.Rack().Answer(FromHex(body).value());
    ASSERT_TRUE(answer && answer->front() == reply::kDone) << body;
  }
  int pictures = 0;
  for (const BLOCK& block : Blocks(ReadFile("README.md"))) {
    if (block.kind != "picture") {
      continue;
    }
    LINES shown = block.lines;
    const auto rule = std::find(shown.begin(), shown.end(), std::string(78, '-'));
    ASSERT_NE(rule, shown.end());
    shown.erase(rule, shown.end());  // below it are the lines and the prompt
    LINES drawn = Picture(simulation, kUtf8Glyphs);
    EXPECT_TRUE(shown[0].starts_with("/dev/ttyUSB0   ") && shown[0].ends_with(" requests"));
    EXPECT_EQ(LINES(shown.begin() + 1, shown.end()), LINES(drawn.begin() + 1, drawn.end()));
    ++pictures;
  }
  EXPECT_EQ(pictures, 1);
}

TEST_F(Documents, SimulatorsShellExamplesAreTrue) {
  ASSERT_TRUE(simulation.Adapter().Unplug());  // the examples plug in their own
  std::vector<EXAMPLE> examples;
  for (const BLOCK& block : Blocks(ReadFile("docs/simulator.md"))) {
    if (block.kind == "console") {
      const std::vector<EXAMPLE> more = Examples(block, "$ ");
      examples.insert(examples.end(), more.begin(), more.end());
    }
  }
  ASSERT_GE(examples.size(), 10U);
  // One shell runs them all, as a reader's would; a line of its own ends the output of each.
  const std::string mark = "-----end of an example-----";
  std::ofstream script(folder.File("script"));
  for (const EXAMPLE& example : examples) {
    script << example.typed << "\n";
    if (example.typed.ends_with("&")) {  // a person is slower than the start of the program
      script << "until grep -q ready events.txt; do sleep 0.01; done 2>/dev/null\n";
    }
    script << "echo '" << mark << "'\n";
  }
  script.close();
  const std::filesystem::path program(VORNSIM_PROGRAM);
  const std::string command = "cd '" + folder.Path() + "' && PATH='" +
                              program.parent_path().string() +
                              "':$PATH timeout 60 bash script > output 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(concurrency-mt-unsafe)
  std::string output;
  ASSERT_TRUE(ReadTextFile(folder.File("output"), output));
  for (const EXAMPLE& example : examples) {
    const std::size_t end = output.find(mark + "\n");
    ASSERT_NE(end, std::string::npos) << example.typed;
    EXPECT_EQ(output.substr(0, end), example.output) << example.typed;
    output.erase(0, end + mark.size() + 1);
  }
}

TEST_F(Documents, ManualKnowsEachCommandAndEachOption) {
  std::string manual = ReadFile("docs/man/vornsim.1");
  ReplaceAll(manual, "\\-", "-");
  for (const COMMAND& row : Commands()) {
    const std::string heading =
        *row.arguments == '\0' ? std::string(".B ") + row.word + "\n"
                               : std::string(".BI ") + row.word + " \" " + row.arguments + "\"\n";
    EXPECT_NE(manual.find(heading), std::string::npos) << heading;
  }
  const std::string command = std::string(VORNSIM_PROGRAM) + " --help > " + folder.File("help");
  ASSERT_EQ(std::system(command.c_str()), 0);  // NOLINT(concurrency-mt-unsafe)
  std::string help;
  ASSERT_TRUE(ReadTextFile(folder.File("help"), help));
  int options = 0;
  for (std::size_t at = 0; (at = help.find("--", at)) != std::string::npos; ++at) {
    const std::size_t end = help.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at);
    EXPECT_NE(manual.find(help.substr(at, end - at)), std::string::npos)
        << help.substr(at, end - at);
    at = end;
    ++options;
  }
  EXPECT_GE(options, 14);
}

class Scenarios : public Documents, public ::testing::WithParamInterface<const char*> {};

TEST_P(Scenarios, AreRightFromTheFirstCommandToTheLast) {
  SCENARIO scenario;
  const RESULT parsed =
      scenario.Parse(ReadFile(std::string("sim/scenarios/") + GetParam()), GetParam());
  ASSERT_TRUE(parsed.ok) << parsed.text;
  const auto steps = scenario.Take(std::chrono::hours(1));
  EXPECT_GE(steps.size(), 10U);
  for (const SCENARIO::STEP& step : steps) {
    const RESULT result = Execute(simulation, step.command);
    EXPECT_TRUE(result.ok) << step.command << ": " << result.text;
  }
  EXPECT_TRUE(simulation.Quitting());
}

INSTANTIATE_TEST_SUITE_P(Shipped, Scenarios,
                         ::testing::Values("tour.txt", "noisy-hall.txt", "comes-and-goes.txt"));

}  // namespace
}  // namespace sim
