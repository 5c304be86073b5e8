#include "tests/system/CtlTest.h"

#include <nlohmann/json.hpp>

/// What a set knows of its lines, by the interfaces that are free beside IO.

namespace {

constexpr const char* kNote =
    "vornctl: sent; CAE and MON are not free, so that it cannot be known whether vorn took it "
    "(--unchecked: do not ask)\n";

class CtlProof : public CTL_TEST {
 protected:
  /// Sets an output, and the state that it tells.
  std::string StateOf(const std::string& value) {
    const std::vector<nlohmann::json> records = Json({"set", "5.b1=" + value});
    EXPECT_TRUE(rack.WaitForValue(5, 1, std::stoi(value, nullptr, 16)));
    return records.size() == 1 ? records[0]["state"].get<std::string>() : "no record";
  }
};

TEST_F(CtlProof, IsWholeWithCaeAndMonHalfWithOneOfThemAndNoneWithout) {
  StartRack();
  EXPECT_EQ(StateOf("01"), "checked");
  TCP_CLIENT& operators = Take(config.cae);
  EXPECT_EQ(StateOf("02"), "taken");
  Take(config.mon);
  const CTL_RESULT result = Run({"--json", "set", "5.b1=04"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.error, kNote);
  EXPECT_EQ(nlohmann::json::parse(result.out)["state"], "sent");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0x04));
  EXPECT_EQ(Out({"--quiet", "set", "5.b1=05"}), "");
  Synchronise(operators);  // the client of CAE was not disturbed
  Release(config.cae);
  EXPECT_EQ(StateOf("03"), "sent");
}

TEST_F(CtlProof, IsNotAskedForWhereThatIsSaid) {
  StartRack();
  EXPECT_EQ(Out({"--unchecked", "set", "5.b1=01"}), "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0x01));
  EXPECT_EQ(Connections(config.cae), 0);
  EXPECT_EQ(Connections(config.mon), 0);
  Take(config.cae);
  TCP_CLIENT& monitor = Take(config.mon);
  EXPECT_EQ(Out({"--unchecked", "set", "5.b1=02"}), "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0x02));
  EXPECT_TRUE(monitor.Receives("a5b1d02\r\n"));
}

TEST_F(CtlProof, NeedsNoCaeWhereTheSettingsTellTheCards) {
  Settings("[cards]\n5 = \"digital-out\"\n");
  StartRack();
  Take(config.cae);
  EXPECT_EQ(Out({"set", "5.10=on", "--others", "FF"}), "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  EXPECT_TRUE(Fails(Run({"--wait", "3", "set", "0.0=50%"}), 4, "[cards] in the settings"));
}

TEST_F(CtlProof, IsNotMistakenInWhatAnEarlierClientHasLeft) {
  StartRack();
  EXPECT_EQ(Out({"--unchecked", "io", "hello"}), "");
  EXPECT_EQ(Out({"version"}), "1.20\n");
  EXPECT_EQ(Out({"--unchecked", "io", "a5b1dFB", "hello"}), "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  EXPECT_EQ(StateOf("01"), "checked");
}

TEST_F(CtlProof, ALineThatIsRefusedIsToldByTheClientThatSentIt) {
  StartRack();
  EXPECT_TRUE(Fails(Run({"io", "hello"}), 1, "hello"));
  // The report was this one's: the next operator finds none ahead of the greeting.
  TCP_CLIENT& operators = Take(config.cae);
  Synchronise(operators);
}

}  // namespace
