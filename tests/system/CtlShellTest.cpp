#include "tests/system/CtlTest.h"

#include <signal.h>

#include <algorithm>

/// The prompt, as a person at a terminal has it.

namespace {

constexpr const char* kPrompt = "vorn>";
constexpr const char* kInterrupt = "\003";
constexpr const char* kEnd = "\004";
constexpr const char* kTab = "\t";

class CtlShell : public CTL_TEST {
 protected:
  void StartShell() {
    StartRack();
    WaitUntilFree();
    OpenShell();
    ASSERT_TRUE(LastRowIs(kPrompt)) << Rows();
  }
  void OpenShell() { m_shell.emplace(With({{}, std::nullopt, {}, true})); }
  void Type(const std::string& keys) { m_shell->Write(keys); }

  std::string Rows() const {
    std::string all;
    for (const std::string& row : m_shell->Screen().Rows()) {
      all += row + "\n";
    }
    return all;
  }
  bool LastRowIs(const std::string& row) {
    return m_shell->WaitUntil([&] {
      const LINES rows = m_shell->Screen().Rows();
      return !rows.empty() && rows.back() == row;
    });
  }
  /// The rows at the end of the screen.
  bool EndsWith(const LINES& expected) {
    return m_shell->WaitUntil([&] {
      const LINES rows = m_shell->Screen().Rows();
      return rows.size() >= expected.size() &&
             std::equal(expected.rbegin(), expected.rend(), rows.rbegin());
    });
  }
  /// A row with the text, and the last row.
  bool Shows(const std::string& text, const std::string& last) {
    return m_shell->WaitUntil([&] {
      const LINES rows = m_shell->Screen().Rows();
      return !rows.empty() && rows.back() == last && Rows().find(text) != std::string::npos;
    });
  }

  std::optional<CTL_PROCESS> m_shell;
};

TEST_F(CtlShell, CarriesOutWhatIsTypedAndEndsAtTheEndOfItsInput) {
  StartShell();
  Type("version\r");
  EXPECT_TRUE(EndsWith({"vorn> version", "1.20", kPrompt})) << Rows();
  Type("set 5.b1=FB\r");
  EXPECT_TRUE(EndsWith({"vorn> set 5.b1=FB", kPrompt})) << Rows();
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  Type("set 5.99=on\r");
  EXPECT_TRUE(Shows("vornctl: no channel 5.99", kPrompt)) << Rows();
  Type(kEnd);
  EXPECT_EQ(m_shell->WaitForEnd(), 10);
  EXPECT_EQ(m_shell->Screen().Unknown(), "");
  EXPECT_EQ(Connections(config.io), 1);
}

TEST_F(CtlShell, CompletesCommandsCardsThatAreThereAndNames) {
  Settings("[names]\nkitchen-lamp = \"5.10\"\n");
  StartShell();
  Type(std::string("vers") + kTab);
  EXPECT_TRUE(LastRowIs("vorn> version")) << Rows();
  Type(std::string(kInterrupt) + "lcd " + kTab + "cl" + kTab);
  EXPECT_TRUE(LastRowIs("vorn> lcd E clear")) << Rows();
  Type(std::string(kInterrupt) + "set kit" + kTab + "on");
  EXPECT_TRUE(LastRowIs("vorn> set kitchen-lamp=on")) << Rows();
}

TEST_F(CtlShell, ShowsAChangeAboveTheLineThatIsTyped) {
  StartShell();
  Type("set 5.b1=");
  ASSERT_TRUE(LastRowIs("vorn> set 5.b1=")) << Rows();
  ASSERT_TRUE(rack.Press(3, 6));
  EXPECT_TRUE(Shows("  3.6: on\n", "vorn> set 5.b1=")) << Rows();
  Type("FB\r");
  EXPECT_TRUE(EndsWith({"vorn> set 5.b1=FB", kPrompt})) << Rows();
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
}

TEST_F(CtlShell, AnInterruptEndsAWatchAndNotTheShell) {
  StartShell();
  Type("watch 3.6\r");
  ASSERT_TRUE(LastRowIs("vorn> watch 3.6")) << Rows();
  ASSERT_TRUE(m_shell->WaitUntil([&] {
    const std::uint64_t before = adapter.Requests().Last();
    EXPECT_TRUE(rack.Press(3, 6));
    WaitForFrame("03 20 03 02", before);
    EXPECT_TRUE(rack.Release(3, 6));
    WaitForFrame("03 20 03 02", adapter.Requests().Last());
    return Rows().find("  3.6: on\n") != std::string::npos;
  })) << Rows();
  Type(kInterrupt);
  EXPECT_TRUE(LastRowIs(kPrompt)) << Rows();
  Type("version\r");
  EXPECT_TRUE(EndsWith({"vorn> version", "1.20", kPrompt})) << Rows();
  Type(kEnd);
  EXPECT_EQ(m_shell->WaitForEnd(), 0);
}

TEST_F(CtlShell, EndsBySignalsAfterACommandThatHasMindedThem) {
  StartShell();
  Type("pulse 5.10 10 --others FF\r");
  ASSERT_TRUE(EndsWith({"vorn> pulse 5.10 10 --others FF", kPrompt})) << Rows();
  m_shell->Signal(SIGTERM);
  EXPECT_EQ(m_shell->WaitForEnd(), 128 + SIGTERM);
}

TEST_F(CtlShell, FindsTheDaemonAgainAfterItWasAway) {
  StartShell();
  isEndExpected = false;
  daemon.Signal(SIGKILL);
  ASSERT_TRUE(daemon.WaitForEnd());
  Type("version\r");
  EXPECT_TRUE(Shows("vornctl: 127.0.0.1: nothing listens on the port of CAE", kPrompt)) << Rows();
  Start();
  ASSERT_TRUE(log.WaitForLine(Waiting("CAE"), 2));
  Type("version\r");
  EXPECT_TRUE(Shows("vorn> version\n1.20\n", kPrompt)) << Rows();
}

}  // namespace
