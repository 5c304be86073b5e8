#include "tests/support/Text.h"
#include "tests/system/CtlTest.h"

#include <signal.h>

#include <nlohmann/json.hpp>

/// Each command alone, once, and what the rack shows of it: outputs, displays, what cards keep, and
/// the daemon itself. Inputs have tests of their own.

namespace {

using nlohmann::json;

class CtlCommands : public CTL_TEST {
 protected:
  /// What a line on IO says of itself with --json.
  static json Sent(const std::vector<std::string>& lines) {
    return {{"type", "sent"}, {"lines", lines}, {"state", "checked"}};
  }
  static json Done(const std::string& line, const std::string& text) {
    return {{"type", "done"}, {"line", line}, {"text", text}};
  }
};

TEST_F(CtlCommands, SetMovesOutputsOfEachKind) {
  StartRack();
  EXPECT_EQ(Out({"set", "5.10=on", "5.15=ON", "--others", "FF", "0.4=50%", "1.1=-100%", "1.b3=01",
                 "5.b0=0f"}),
            "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0x7B));
  EXPECT_TRUE(rack.WaitForValue(5, 0, 0x0F));
  EXPECT_TRUE(rack.WaitForValue(0, 4, 0x80));
  EXPECT_TRUE(rack.WaitForValue(1, 1, 0x81));
  EXPECT_TRUE(rack.WaitForValue(1, 3, 0x01));
  EXPECT_EQ(Json({"set", "0.4=0x20", "0.5=100%"}), std::vector<json>{Sent({"a0b4d20", "a0b5dFF"})});
  EXPECT_TRUE(rack.WaitForValue(0, 4, 0x20));
  EXPECT_TRUE(rack.WaitForValue(0, 5, 0xFF));
}

TEST_F(CtlCommands, PulseSwitchesOnAndOffAgain) {
  StartRack();
  EXPECT_EQ(Json({"pulse", "5.10", "20", "--others", "FE"}),
            std::vector<json>{Sent({"a5b1dFA", "a5b1dFE"})});
  EXPECT_TRUE(WaitForFrame("05 10 05 02 FF FE"));
  EXPECT_EQ(Commands(), (LINES{"01 30", "05 10 05 02 FF FA", "05 10 05 02 FF FE"}));
}

TEST_F(CtlCommands, PulseThatIsBrokenOffSwitchesOff) {
  StartRack();
  std::uint64_t before = adapter.Requests().Last();
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    WaitUntilFree();
    CTL_PROCESS pulse(With({{"pulse", "5.10", "3600000", "--others", "FF"}}));
    ASSERT_TRUE(WaitForFrame("05 10 05 02 FF FB", before));
    pulse.Signal(number);
    EXPECT_TRUE(WaitForFrame("05 10 05 02 FF FF", before));
    EXPECT_EQ(pulse.WaitForEnd(), 128 + number);
    before = adapter.Requests().Last();
  }
  WaitUntilFree();
  CTL_PROCESS batch(With({{"batch"}, "pulse 5.10 3600000 --others FF\n"}));
  ASSERT_TRUE(WaitForFrame("05 10 05 02 FF FB", before));
  batch.Signal(SIGTERM);
  EXPECT_TRUE(WaitForFrame("05 10 05 02 FF FF", before));
  EXPECT_EQ(batch.WaitForEnd(), 128 + SIGTERM);
  before = adapter.Requests().Last();
  WaitUntilFree();
  CTL_START untold = With({{"--json", "pulse", "5.10", "10", "--others", "FF"}});
  untold.outputPath = "/dev/full";
  CTL_PROCESS pulse(untold);
  EXPECT_EQ(pulse.WaitForEnd(), 2);
  EXPECT_TRUE(WaitForFrame("05 10 05 02 FF FF", before));
}

TEST_F(CtlCommands, StopBringsTheMotorsToRest) {
  StartRack();
  rack.Insert(0x2, sim::type::kMotor);
  EXPECT_EQ(Out({"cards", "--rescan"}).substr(0, 4), "CARD");
  Out({"set", "1.0=10%", "1.1=20%", "1.2=30%", "2.2=40%"});
  ASSERT_TRUE(rack.WaitForValue(2, 2, 0x33));
  Out({"stop", "1"});
  for (std::size_t motor : {0U, 1U, 2U}) {
    EXPECT_TRUE(rack.WaitForValue(1, motor, 0));
  }
  EXPECT_TRUE(rack.WaitForValue(2, 2, 0x33));
  Out({"stop"});
  EXPECT_TRUE(rack.WaitForValue(2, 2, 0));
}

TEST_F(CtlCommands, LcdShowsTextAndSwitchesLightAndCursor) {
  StartRack();
  EXPECT_EQ(Out({"lcd", "E", "Tail", "of  the cat", "--at", "3,1"}), "");
  EXPECT_TRUE(rack.WaitForText(0xE, 3, 1, "Tail of  the cat"));
  Out({"lcd", "E", "light", "on"});
  EXPECT_TRUE(support::WaitUntil([&] { return rack.Field<bool>(0xE, "light"); }));
  Out({"lcd", "E", "cursor on"});
  EXPECT_TRUE(support::WaitUntil([&] { return rack.Field<bool>(0xE, "cursor"); }));
  EXPECT_EQ(Json({"lcd", "E", "clear"}), std::vector<json>{Sent({"aElCL"})});
  EXPECT_TRUE(rack.WaitForText(0xE, 3, 1, "                "));
  Out({"lcd", "E", "clear", "--at", "0,0"});
  EXPECT_TRUE(rack.WaitForText(0xE, 0, 0, "clear "));
}

TEST_F(CtlCommands, IrSendsBytesAndTexts) {
  StartRack();
  EXPECT_EQ(Out({"ir", "9", "434F", "43", "4b"}), "");
  EXPECT_EQ(Json({"ir", "9", "--text", "HEY"}), std::vector<json>{Sent({"a9sHS484559"})});
  EXPECT_TRUE(WaitForFrame("07 10 09 04 03 48 45 59"));
  EXPECT_EQ(Commands(), (LINES{"01 30", "08 10 09 05 04 43 4F 43 4B", "07 10 09 04 03 48 45 59"}));
}

TEST_F(CtlCommands, ParamShowsAndSetsWhatAnAnalogueAndAServoCardKeep) {
  StartRack();
  EXPECT_EQ(Out({"param", "F", "mask=0x05"}), "");
  EXPECT_EQ(Out({"param", "F"}),
            "mask: 05 (channels 0, 2)  channels that are measured, a bit each\n");
  EXPECT_EQ(Json({"param", "0", "endA3=12"}),
            std::vector<json>{Done("SETSCA3:0=12", "SERVO PARAM of the card is SET")});
  EXPECT_EQ(Json({"param", "0", "endA3"}), std::vector<json>{(json{{"type", "parameter"},
                                                                   {"card", "0"},
                                                                   {"parameter", "endA3"},
                                                                   {"value", "12"},
                                                                   {"raw", 0x12},
                                                                   {"about", "end position A"}})});
}

TEST_F(CtlCommands, ParamShowsAndSetsWhatAMotorCardAndADisplayKeep) {
  StartRack();
  Out({"param", "1", "silent0=00", "silent2=20"});
  const LINES shown = support::Lines(Out({"param", "1"}));
  ASSERT_EQ(shown.size(), 3U);
  EXPECT_EQ(shown[0], "silent0: 00 (manual mode)  silent range; 00 is manual mode");
  EXPECT_EQ(shown[2], "silent2: 20  silent range; 00 is manual mode");
  const std::uint64_t before = adapter.Requests().Last();
  Out({"param", "E", "selftest=off", "initlight=on"});
  EXPECT_EQ(Commands(before).size(), 2U);
  EXPECT_EQ(Out({"param", "E"}),
            "selftest: can only be set (self test message at the card's start)\n"
            "initlight: can only be set (backlight at the card's start)\n");
}

TEST_F(CtlCommands, StoreRecallAndRebootReachTheCard) {
  StartRack();
  Out({"set", "0.0=0x33"});
  Out({"store", "0"});
  Out({"set", "0.0=0x44"});
  EXPECT_TRUE(rack.WaitForValue(0, 0, 0x44));
  Out({"recall", "0"});
  EXPECT_TRUE(rack.WaitForValue(0, 0, 0x33));
  Out({"set", "5.b0=00"});
  ASSERT_TRUE(rack.WaitForValue(5, 0, 0));
  Out({"reboot", "5"});
  EXPECT_TRUE(rack.WaitForValue(5, 0, 0xFF));
}

TEST_F(CtlCommands, CardsListsWhatIsThereAndWithRescanWhatIsNew) {
  StartRack();
  const LINES table = support::Lines(Out({"cards"}));
  ASSERT_EQ(table.size(), 9U);
  EXPECT_EQ(table[0], "CARD  TYPE          CHANNELS            POLLED  NAME");
  EXPECT_EQ(table[1],
            "0     servo         0.0 .. 0.5          -       6 channel RC SERVO CONTROLLER");
  EXPECT_EQ(table[5], "8     keys          8.key .. 8.encoder  yes     KEYMX and ROTE CONTROLLER");
  rack.Insert(7, sim::type::kIr);
  EXPECT_EQ(Out({"cards"}).find("\n7 "), std::string::npos);
  EXPECT_NE(Out({"cards", "--rescan"}).find("\n7     ir            -                   -       "),
            std::string::npos);
  const std::vector<json> cards = Json({"cards"});
  ASSERT_EQ(cards.size(), 9U);
  EXPECT_EQ(cards[4], (json{{"type", "card"},
                            {"card", "7"},
                            {"kind", "ir"},
                            {"description", "IR REMOTE CONTROLLER"},
                            {"channels", json::array()},
                            {"polled", nullptr}}));
  EXPECT_EQ(cards[5]["channels"], (json{"8.key", "8.encoder"}));
}

TEST_F(CtlCommands, PollIsShownAndSwitchedForAllAndForOneCard) {
  StartRack();
  EXPECT_EQ(Out({"poll"}), "polling: on\n3: on\n8: on\nF: on\n");
  Out({"poll", "off", "3"});
  EXPECT_EQ(Out({"poll"}), "polling: on\n3: off\n8: on\nF: on\n");
  Out({"poll", "off"});
  EXPECT_EQ(Json({"poll"}),
            std::vector<json>{(json{{"type", "polling"},
                                    {"enabled", false},
                                    {"cards", {{"3", false}, {"8", true}, {"F", true}}}})});
  Out({"poll", "on", "3"});
  EXPECT_EQ(Out({"poll", "on"}), "");
  EXPECT_EQ(Out({"poll"}), "polling: on\n3: on\n8: on\nF: on\n");
}

TEST_F(CtlCommands, VersionAndSpeedAreTheDaemons) {
  StartRack();
  EXPECT_EQ(Out({"version"}), "1.20\n");
  EXPECT_EQ(Json({"version"}), std::vector<json>{(json{{"type", "version"}, {"version", "1.20"}})});
  EXPECT_EQ(Out({"speed", "70"}), "");
  EXPECT_EQ(Json({"speed", "75"}).front()["line"], "SPEED=75");
}

TEST_F(CtlCommands, CaeAndIoSendLinesAsTypedAndShowTheAnswersAsTheyCame) {
  StartRack();
  EXPECT_EQ(Out({"cae", "DRVVER"}), "CIA: DRIVER VERSION 1.20\n");
  const std::vector<json> answers = Json({"cae", "DRVVER", "GETSCA0:0"});
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(
      answers[0],
      (json{{"type", "answer"}, {"line", "DRVVER"}, {"lines", {"CIA: DRIVER VERSION 1.20"}}}));
  EXPECT_EQ(answers[1]["line"], "GETSCA0:0");
  EXPECT_EQ(Out({"io", "a5b1dFB", "a0b4d20"}), "");
  EXPECT_TRUE(rack.WaitForValue(5, 1, 0xFB));
  EXPECT_TRUE(rack.WaitForValue(0, 4, 0x20));
  EXPECT_EQ(Out({"io", "EXIT"}), "VORN: Bye Bye...\n");
}

TEST_F(CtlCommands, StatusTellsWhichInterfacesAreFreeAndWhichTaken) {
  StartRack();
  EXPECT_EQ(Out({"status"}),
            "CAE: free\nIO: free\nMON: free\nversion: 1.20\npolling: on\ncards: 8\n");
  Take(config.mon);
  EXPECT_EQ(
      Json({"status"}),
      std::vector<json>{(json{{"type", "status"},
                              {"interfaces", {{"cae", "free"}, {"io", "free"}, {"mon", "taken"}}},
                              {"version", "1.20"},
                              {"polling", true},
                              {"cardCount", 8}})});
  const int before = Connections(config.io);
  EXPECT_EQ(Out({"status", "--only", "mon"}), "MON: taken by another client\n");
  EXPECT_EQ(Connections(config.io), before);
}

TEST_F(CtlCommands, StatusThatWaitsEndsWhenTheDaemonServes) {
  CTL_PROCESS waiting(With({{"status", "--wait", "300"}}));
  StartRack();
  EXPECT_EQ(waiting.WaitForEnd(), 0);
  EXPECT_TRUE(waiting.Out().starts_with("CAE: free\nIO: free\nMON: free\nversion: 1.20\n"))
      << waiting.Out();
}

TEST_F(CtlCommands, NothingIsSentWhereTheLinesAreOnlyShown) {
  StartRack();
  const std::uint64_t before = adapter.Requests().Last();
  EXPECT_EQ(Out({"--dry-run", "set", "5.b1=FB"}), "a5b1dFB\n");
  EXPECT_EQ(Out({"--dry-run", "lcd", "E", "light", "on"}), "aElLO\n");
  EXPECT_EQ(Out({"--dry-run", "speed", "70"}), "SPEED=70\n");
  EXPECT_EQ(Json({"--dry-run", "io", "a5b1d00", "hello"}),
            (std::vector<json>{{{"type", "line"}, {"interface", "IO"}, {"line", "a5b1d00"}},
                               {{"type", "line"}, {"interface", "IO"}, {"line", "hello"}}}));
  EXPECT_EQ(Commands(before), LINES{});
  EXPECT_EQ(Connections(config.io), 0);
}

}  // namespace
