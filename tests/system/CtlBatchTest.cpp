#include "tests/support/Text.h"
#include "tests/system/CtlTest.h"

#include <nlohmann/json.hpp>

/// Many commands from a file, on one connection.

namespace {

class CtlBatch : public CTL_TEST {
 protected:
  std::string File(const std::string& text) {
    const std::string path = Folder() + "/lights.txt";
    support::WriteFile(path, text);
    return path;
  }
};

TEST_F(CtlBatch, RunsItsLinesOnOneConnection) {
  StartRack();
  const std::string out = Out({"batch"},
                              "# a comment\n"
                              "version\n"
                              "\n"
                              "  set 5.b1=FB   0.4=50%  # another\r\n"
                              "lcd E 'two  words' --at 0,1\n"
                              "sleep 0.01\n"
                              "param F mask\n"
                              "set 5.b0=\"0F\"");
  EXPECT_EQ(out, "1.20\n3F\n");
  EXPECT_TRUE(rack.WaitForValue(5, 0, 0x0F));
  EXPECT_EQ(rack.Value(5, 1), 0xFB);
  EXPECT_EQ(rack.Value(0, 4), 0x80);
  EXPECT_TRUE(rack.WaitForText(0xE, 0, 1, "two  words"));
  for (const support::INTERFACE& interface : {config.cae, config.io, config.mon}) {
    EXPECT_LE(Connections(interface), 1) << interface.name;
  }
}

TEST_F(CtlBatch, KnowsTheOutputsThatItHasSet) {
  StartRack();
  Out({"run", File("set 5.b1=FF\nset 5.10=on\nset 5.8=on\nset 5.10=off\n")});
  EXPECT_TRUE(WaitForFrame("05 10 05 02 FF FE"));
  EXPECT_EQ(Commands(), (LINES{"01 30", "05 10 05 02 FF FF", "05 10 05 02 FF FB",
                               "05 10 05 02 FF FA", "05 10 05 02 FF FE"}));
}

TEST_F(CtlBatch, StopsAtTheFirstLineThatFailsAndTellsWhich) {
  StartRack();
  const std::string file = File("set 5.b1=FB\n\nset 5.99=on\nset 5.b1=00\n");
  EXPECT_TRUE(Fails(Run({"batch", file}), 10, file + ":3: no channel 5.99"));
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  EXPECT_EQ(Commands(), (LINES{"01 30", "05 10 05 02 FF FB"}));
}

TEST_F(CtlBatch, GoesOnWhereThatIsSaidAndEndsWithTheFirstStatus) {
  StartRack();
  const std::string file = File("set 5.99=on\nfrobnicate\nio hello\nset 5.b1=FB\n");
  const CTL_RESULT result = Run({"batch", "--keep-going", file});
  EXPECT_EQ(result.status, 10);
  const LINES errors = support::Lines(result.error);
  ASSERT_EQ(errors.size(), 3U);
  EXPECT_TRUE(errors[0].starts_with("vornctl: " + file + ":1: no channel 5.99")) << errors[0];
  EXPECT_TRUE(errors[1].starts_with("vornctl: " + file + ":2: no command 'frobnicate'"))
      << errors[1];
  EXPECT_EQ(errors[2], "vornctl: " + file + ":3: vorn refused the IO line 'hello'");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
}

TEST_F(CtlBatch, TellsWhichOfManyLinesWasRefused) {
  StartRack();
  std::string lines;
  for (int i = 1; i <= 300; ++i) {
    lines +=
        i == 101 ? "io hello\n" : "set 0.b0=" + sim::ToHex(static_cast<std::uint8_t>(i)) + "\n";
  }
  EXPECT_TRUE(
      Fails(Run({"batch"}, lines), 1, "standard input:101: vorn refused the IO line 'hello'"));
}

TEST_F(CtlBatch, MoreLinesThanItLeavesUnsettledArriveInOrder) {
  config.speedPercent = "100";
  StartRack();
  constexpr int kLines = 1100;
  std::string lines;
  LINES frames = {"01 30"};
  for (int i = 1; i <= kLines; ++i) {
    const std::string value = sim::ToHex(static_cast<std::uint8_t>(i % 251));
    lines += "set 0.b0=" + value + "\n";
    frames.push_back("09 10 00 06 " + value + " 80 80 80 80 80");
  }
  lines += "set 0.b0=FF\n";  // which no other is
  frames.emplace_back("09 10 00 06 FF 80 80 80 80 80");
  EXPECT_EQ(Out({"batch"}, lines), "");
  ASSERT_TRUE(WaitForFrame(frames.back()));
  EXPECT_TRUE(Commands() == frames);
}

TEST_F(CtlBatch, IsCarriedOutToItsEndWhenItsReaderGoesAway) {
  StartRack();
  CTL_PROCESS batch(With({{"batch"}, std::nullopt}));
  batch.Write("version\n");
  ASSERT_TRUE(batch.WaitForLines(1));
  batch.CloseOutput();
  batch.Write("version\nset 5.b1=FB\n");
  batch.EndInput();
  EXPECT_EQ(batch.WaitForEnd(), 0);
  EXPECT_EQ(batch.Error(), "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
}

TEST_F(CtlBatch, ShowsTheLinesThatItWouldSend) {
  StartRack();
  EXPECT_EQ(Out({"--dry-run", "batch"}, "set 5.b1=FB\nlcd E clear\nsleep 1000\n"),
            "a5b1dFB\naElCL\n");
  EXPECT_EQ(Commands(), LINES{"01 30"});
}

}  // namespace
