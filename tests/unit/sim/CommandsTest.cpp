#include "sim/tool/Commands.h"
#include "sim/tool/Help.h"
#include "sim/tool/Picture.h"
#include "sim/tool/RackFile.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

namespace sim {
namespace {

using Lines = std::vector<std::string>;

class RackCommands : public ::testing::Test {
 protected:
  RackCommands() : simulation({.devDir = folder.Path()}) {
    EXPECT_TRUE(LoadRack(DefaultRackText(), "built-in", simulation.Rack()));
    EXPECT_TRUE(simulation.Plug(0));
    simulation.Events().Take();
  }

  /// A good command: what it said.
  std::string Good(const std::string& line) {
    const RESULT result = Execute(simulation, line);
    EXPECT_TRUE(result.ok) << line << ": " << result.text;
    return result.text;
  }
  /// One that is refused: why.
  std::string Refused(const std::string& line) {
    const RESULT result = Execute(simulation, line);
    EXPECT_FALSE(result.ok) << line;
    return result.text;
  }
  Lines Events() { return simulation.Events().Take(); }
  Bytes Ask(const Bytes& request) { return simulation.Rack().Answer(request).value_or(Bytes{}); }
  std::string Link(int number) { return folder.File("ttyUSB" + std::to_string(number)); }

  TEMPORARY_FOLDER folder;
  SIMULATION simulation;
};

TEST_F(RackCommands, AreAllListedByHelp) {
  const std::string help = Good("help");
  for (const COMMAND& row : Commands()) {
    EXPECT_NE(help.find(std::string(row.word) + " " + row.arguments), std::string::npos)
        << row.word;
    EXPECT_NE(help.find(row.help), std::string::npos) << row.word;
    EXPECT_NE(Good(std::string("help ") + row.word).find(row.help), std::string::npos);
  }
  EXPECT_EQ(Refused("help bogus"), "there is no command 'bogus'; 'help' lists them");
}

TEST_F(RackCommands, RefuseTooFewAndTooManyArgumentsByTheTable) {
  for (const COMMAND& row : Commands()) {
    std::string line = row.word;
    if (row.fewest > 0) {
      EXPECT_EQ(Refused(line).rfind(std::string("usage: ") + row.word, 0), 0U);
    }
    for (std::size_t i = 0; i <= row.most; ++i)
      line += " 0";
    EXPECT_EQ(Refused(line).rfind(std::string("usage: ") + row.word, 0), 0U) << row.word;
    EXPECT_EQ(Check(line).text, Refused(line));
  }
}

TEST_F(RackCommands, HelpOfFaultsAndPlugsListsWhatTheTablesHold) {
  const std::string faults = Good("help fault");
  for (const FAULT_TYPE& row : kFaultTypes)
    EXPECT_NE(faults.find(row.meaning), std::string::npos) << row.keyword;
  for (const ERROR_CODE& row : kErrorCodes)
    EXPECT_NE(faults.find(row.keyword), std::string::npos) << row.keyword;
  const std::string plug = Good("help plug");
  for (const CARD_TYPE& row : kCardTypes)
    EXPECT_NE(plug.find(row.keyword), std::string::npos) << row.keyword;
}

TEST_F(RackCommands, AreCompletedByWhatTheirHelpNames) {
  const auto completes = [](const std::string& before, const std::string& word) {
    const Lines words = Complete(before);
    return std::find(words.begin(), words.end(), word) != words.end();
  };
  for (const char* before : {"", "  ", "pres", "help "}) {
    EXPECT_EQ(Complete(before).size(), Commands().size()) << before;
    EXPECT_TRUE(completes(before, "press")) << before;
  }
  for (const char* word : {"no-answer", "short", "no-card", "poll", "on", "code", "once", "always"})
    EXPECT_TRUE(completes("fault ", word)) << word;
  EXPECT_FALSE(completes("fault ", "KIND"));
  EXPECT_TRUE(completes("plug 3 ", "servo"));
  EXPECT_TRUE(completes("param ", "endA"));
  EXPECT_EQ(Complete("adapter 1 "), (Lines{"silent", "chatter", "off"}));
  EXPECT_EQ(Complete("show 3 "), Lines{"--json"});
  EXPECT_TRUE(Complete("bogus ").empty());
}

TEST_F(RackCommands, AnEmptyLineAndACommentDoNothing) {
  EXPECT_EQ(Good(""), "");
  EXPECT_EQ(Good("   "), "");
  EXPECT_EQ(Good("# press 3.6"), "");
  EXPECT_EQ(Refused("bogus"), "there is no command 'bogus'; 'help' lists them");
}

TEST_F(RackCommands, ResponsesEndWithOkOrAreOneErrorLine) {
  EXPECT_EQ(ResponseText(RESULT::Good()), "OK\n");
  EXPECT_EQ(ResponseText(RESULT::Good("a\nb")), "a\nb\nOK\n");
  EXPECT_EQ(ResponseText(RESULT::Error("no")), "error: no\n");
}

TEST_F(RackCommands, List) {
  EXPECT_EQ(Good("list").substr(0, 50), "0 servo '6 channel RC servo controller'\n1 motor '3");
  Good("pull 0");
  EXPECT_EQ(Good("list").substr(0, 7), "1 motor");
}

TEST_F(RackCommands, PressReleaseAndSeveralAtOnce) {
  Good("press 3.6 3.10");
  EXPECT_EQ(Ask({0x20, 3, 2}), (Bytes{0x21, 3, 0x40, 0x04}));
  Good("release 3.6");
  EXPECT_EQ(Ask({0x20, 3, 2}), (Bytes{0x21, 3, 0x00, 0x04}));
  EXPECT_EQ(Events(), (Lines{"card 3 input block 0 = 40", "card 3 input block 1 = 04",
                             "card 3 input block 0 = 00"}));
  EXPECT_EQ(Refused("press 3.16"), "card 3 has no key 16; 0 to 15 are there");
  EXPECT_EQ(Refused("press 2.0"), "no card at address 2");
  EXPECT_EQ(Refused("press 3"), "'3' is no place (card address, a point, channel: 3.6)");
}

TEST_F(RackCommands, KeysOfAMatrixAreNamedByTheirHexadecimalCode) {
  Good("press 8.12");
  EXPECT_EQ(Ask({0x20, 8, 1}), (Bytes{0x21, 8, 0x12}));
  Good("release 8.12");
  EXPECT_EQ(Ask({0x20, 8, 1}), (Bytes{0x21, 8, 0x00}));
}

TEST_F(RackCommands, Turn) {
  Good("turn 8 -1");
  EXPECT_EQ(Ask({0x20, 8, 1}), (Bytes{0x21, 8, 0xFF}));
  EXPECT_EQ(Refused("turn 8 x"), "'x' is no number of steps (a decimal number)");
}

TEST_F(RackCommands, SetRampAndNoise) {
  Good("set F.3 20");
  EXPECT_EQ(Ask({0x20, 0xF, 6})[5], 0x20);
  Good("set 3.1 A5");
  EXPECT_EQ(Ask({0x20, 3, 2})[3], 0xA5);
  Good("ramp F.3 80 0");
  EXPECT_EQ(Ask({0x20, 0xF, 6})[5], 0x80);
  Good("ramp F.0 FF 3600");
  EXPECT_LT(Ask({0x20, 0xF, 6})[2], 0x80);
  Good("noise F.3 10");
  std::set<int> seen;
  for (int i = 0; i < 200; ++i)
    seen.insert(Ask({0x20, 0xF, 6})[5]);
  EXPECT_GT(seen.size(), 10U);
  EXPECT_EQ(Refused("set F.3 100"), "'100' is no value (00 to FF)");
  EXPECT_EQ(Refused("ramp F.3 20 soon"),
            "'soon' is no number of seconds (0 to 1000000, a fraction allowed)");
  EXPECT_EQ(Refused("noise 3.0 10"), "card 3 (digital-in) has no pots");
}

TEST_F(RackCommands, SpeedParamNameAndReboot) {
  Good("speed 0 0");
  Good("param 0.position 4 20");
  Good("name 0 \"robot arm\"");
  Good("reboot 0");
  EXPECT_NE(Good("show 0").find("targets: 80 80 80 80 20 80"), std::string::npos);
  EXPECT_NE(Good("show 0").find("card 0 servo 'robot arm'"), std::string::npos);
  EXPECT_EQ(Refused("speed 3 1"), "card 3 (digital-in) has no servos");
  EXPECT_EQ(Refused("param 0.mask 0 1"),
            "a servo card has no parameter 'mask'; it has endA, endB, position");
}

TEST_F(RackCommands, PullAndPlug) {
  Good("pull 3");
  EXPECT_EQ(Refused("pull 3"), "no card at address 3");
  Good("plug 3 analogue");
  EXPECT_EQ(simulation.Rack().TypeAt(3), type::kAnalogue);
  Good("plug 3 FF");
  EXPECT_EQ(simulation.Rack().TypeAt(3), 0xFF);
  EXPECT_EQ(Events(),
            (Lines{"card 3 pulled", "card 3 plugged in: analogue", "card 3 plugged in: type 255"}));
  EXPECT_NE(Refused("plug 3 00").find("is no card type"), std::string::npos);
}

TEST_F(RackCommands, ShowIsTextOrJson) {
  Good("press 3.6");
  EXPECT_EQ(Good("show 3"),
            "card 3 digital-in '16 channel digital input'\n  blocks: 40 00\n  pressed: 6");
  const auto card = nlohmann::json::parse(Good("show 3 --json"));
  EXPECT_EQ(card["type"], "digital-in");
  EXPECT_EQ(card["pressed"], nlohmann::json::array({6}));
  const auto all = nlohmann::json::parse(Good("show --json"));
  EXPECT_EQ(all.size(), 8U);
  EXPECT_EQ(all[0]["stored_position"].size(), 6U);
  const std::string text = Good("show");
  for (const char* part : {"card 0 servo ", "\ncard 3 digital-in ", "\ncard F analogue "})
    EXPECT_NE(text.find(part), std::string::npos) << part;
  EXPECT_EQ(Refused("show 2"), "no card at address 2");
  EXPECT_EQ(Refused("show 3 5"), "show takes one card address, or none for all");
  Good("name 3 \xFF\xFE");
  EXPECT_TRUE(nlohmann::json::accept(Good("show 3 --json")));
}

TEST_F(RackCommands, FaultsAreOrderedListedAndCleared) {
  EXPECT_EQ(Good("faults"), "no faults");
  EXPECT_EQ(Good("fault cut 3 on 5 code poll times 2"), "fault 1: cut 3 on 5 code 20 times 2");
  EXPECT_EQ(Good("fault no-answer always"), "fault 2: no-answer always");
  EXPECT_EQ(Good("fault late 5 for 3600"), "fault 3: late 5 for 3600");
  // What is left of the time, which a slow machine shows to be less.
  const std::string listed = Good("faults");
  EXPECT_TRUE(
      listed.starts_with("fault 1: cut 3 on 5 code 20 times 2\nfault 2: no-answer always\n"
                         "fault 3: late 5 for 3"))
      << listed;
  Good("clear 2");
  EXPECT_EQ(Refused("clear 2"), "there is no fault 2; 'faults' lists them");
  Good("clear");
  EXPECT_EQ(Good("faults"), "no faults");
  Good("fault no-answer always");
  Good("clear all");
  EXPECT_EQ(Good("faults"), "no faults");
}

TEST_F(RackCommands, EachFaultKindCanBeOrdered) {
  const std::map<FAULT_ARGUMENT, std::string> arguments{
      {FAULT_ARGUMENT::kNone, ""},        {FAULT_ARGUMENT::kMilliseconds, " 5"},
      {FAULT_ARGUMENT::kCount, " 2"},     {FAULT_ARGUMENT::kBytes, " AABB"},
      {FAULT_ARGUMENT::kLength, " over"}, {FAULT_ARGUMENT::kAddress, " FF"},
      {FAULT_ARGUMENT::kError, " busy"}};
  for (const FAULT_TYPE& row : kFaultTypes) {
    Good(std::string("fault ") + row.keyword + arguments.at(row.argument));
    EXPECT_EQ(simulation.Adapter().Faults().List().back().fault.kind, row.kind);
    if (row.argument != FAULT_ARGUMENT::kNone) {
      EXPECT_EQ(Refused(std::string("fault ") + row.keyword),
                std::string("fault ") + row.keyword + " needs " + row.usage);
    }
  }
  for (const ERROR_CODE& row : kErrorCodes) {
    Good(std::string("fault error ") + row.keyword);
    EXPECT_EQ(simulation.Adapter().Faults().List().back().fault.value, row.code);
  }
  for (const char* word : {"output", "poll", "identify", "handshake", "parameter", "77"})
    Good(std::string("fault no-answer code ") + word);
}

TEST_F(RackCommands, WrongFaultsAreRefusedWithAReason) {
  EXPECT_EQ(Refused("fault bogus"), "there is no fault 'bogus'; 'help fault' lists them");
  const std::string expected = ": expected on A, code CODE, once, times N, for SECONDS or always";
  EXPECT_EQ(Refused("fault no-answer maybe 3"), "'maybe'" + expected);
  EXPECT_EQ(Refused("fault no-answer on"), "'on'" + expected);
  EXPECT_EQ(Refused("fault no-answer times 0"), "a fault happens at least once");
  EXPECT_EQ(Refused("fault cut -1"), "an answer cannot be cut to fewer than 0 bytes");
  Refused("fault error bogus");
  Refused("fault length wrong");
  Refused("fault trailing 1");
  EXPECT_TRUE(simulation.Adapter().Faults().List().empty());
}

TEST_F(RackCommands, AFaultThatHitsIsAnEvent) {
  Good("fault cut 2 on 3");
  NEAR_END near(Link(0));
  ASSERT_TRUE(near.Write({0x03, 0x20, 0x03, 0x02}));
  EXPECT_EQ(near.Read(2), (Bytes{0x04, 0x21}));
  EXPECT_EQ(Events(), (Lines{"adapter " + Link(0) + " opened", "fault cut 2 hit 03 20 03 02"}));
}

TEST_F(RackCommands, UnplugAndReplugUnderTheSameOrAnotherNumber) {
  Good("unplug");
  EXPECT_EQ(Refused("unplug"), "the adapter is not plugged in");
  EXPECT_EQ(Refused("send 00"), "the adapter is not plugged in");
  Good("replug 4");
  Good("unplug");
  Good("replug");
  EXPECT_EQ(simulation.Adapter().LinkPath(), Link(4));
  EXPECT_EQ(Refused("replug 4"), "plugged in already as " + Link(4));
}

TEST_F(RackCommands, ASecondAdapterIsSilentOrChatters) {
  Good("adapter 1 silent");
  EXPECT_TRUE(std::filesystem::is_symlink(Link(1)));
  Good("adapter 1 chatter");
  NEAR_END near(Link(1));
  EXPECT_EQ(near.Read(20).size(), 20U);
  Good("adapter 1 off");
  EXPECT_TRUE(near.WaitForHangUp());
  EXPECT_FALSE(std::filesystem::is_symlink(Link(1)));
  EXPECT_EQ(Refused("adapter 1 off"), "there is no silent or chattering adapter 1");
  EXPECT_EQ(Refused("adapter 0 silent"),
            "cannot make " + Link(0) + ": File exists (take another number)");
  EXPECT_EQ(Refused("adapter 1 loud"), "a second adapter is silent, chatter or off");
}

TEST_F(RackCommands, ResetRebootsAllCards) {
  Ask({0x10, 5, 2, 0x00, 0xFF});
  Good("reset 0");
  EXPECT_NE(Good("show 5").find("blocks: FF FF"), std::string::npos);
  EXPECT_EQ(Events()[1], "controller reset");
  Good("reset");
}

TEST_F(RackCommands, SendVersionCountersAndQuit) {
  NEAR_END near(Link(0));
  Good("send DE AD BE EF");
  EXPECT_EQ(near.Read(4), (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
  Good("version 9.99");
  EXPECT_EQ(near.Exchange({0x40, 0x6F, 0x9A}), (Bytes{0x40, '9', '.', '9', '9'}));
  EXPECT_EQ(Good("version"), "9.99");
  // What was written is counted once it is, when it may have been read already.
  const std::string expected =
      "requests 1\nanswered 1\nunanswered 0\nbytes in 4\nbytes out 10\nbytes lost 0\n"
      "unfinished requests 0\nopened 1";
  const auto end = std::chrono::steady_clock::now() + kLimit;
  while (Good("counters") != expected && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  EXPECT_EQ(Good("counters"), expected);
  EXPECT_FALSE(simulation.Quitting());
  Good("quit");
  EXPECT_TRUE(simulation.Quitting());
}

TEST_F(RackCommands, AnyBytesAsACommandDoNoHarm) {
  std::minstd_rand random;
  const Lines words{"press", "fault",  "set", "show", "help", "0.1",
                    "F",     "--json", "\"",  "on",   "FF"};
  for (int i = 0; i < 20000; ++i) {
    std::string line;
    for (auto n = random() % 6; n > 0; --n) {
      if (random() % 3 == 0)
        line += static_cast<char>(random());
      else
        line += words[random() % words.size()];
      line += random() % 4 == 0 ? "" : " ";
    }
    static_cast<void>(Execute(simulation, line));
  }
  EXPECT_EQ(Good("list").empty(), false);
}

TEST_F(RackCommands, ThePictureShowsEachCard) {
  Good("speed 0 0");
  Ask({0x10, 5, 2, 0xFF, 0xFB});
  Ask({0x10, 1, 4, 0x7F, 0x00, 0x81, 0x00});
  Ask({0x10, 0, 6, 0x00, 0xFF, 0x80, 0x80, 0x80, 0x80});
  Ask({0x10, 0xE, 1, 0});
  Ask({0x10, 0xE, 0x13, 9,   3,   1,   'T', 'a', 'i', 'l', ' ',
       'o',  'f', ' ',  't', 'h', 'e', ' ', 'c', 'a', 't', 0});
  Ask({0x10, 9, 3, 2, 0x43, 0x4F});
  Good("press 3.6 8.12");
  Good("turn 8 3");
  Good("set F.0 FF");
  Good("set F.4 40");
  EXPECT_EQ(Picture(simulation, kAsciiGlyphs),
            (Lines{Link(0) + "   0 requests",
                   "0 servo        0 |--------- 00   1 ---------| FF   2 -----|---- 80",
                   "               3 -----|---- 80   4 -----|---- 80   5 -----|---- 80",
                   "1 motor        0 ---------| +100%   1 -----|----   +0%   2 |--------- -100%",
                   "3 digital-in   keys   0. 1. 2. 3. 4. 5. 6* 7.   8. 9. 10. 11. 12. 13. 14. 15.",
                   "5 digital-out  lamps  0. 1. 2. 3. 4. 5. 6. 7.   8. 9. 10* 11. 12. 13. 14. 15.",
                   "8 keys         key 12   encoder 3", "9 ir           sent 43 4F",
                   "E lcd          +--------------------+  light on",
                   "               |                    |", "               |   Tail of the cat  |",
                   "               |                    |", "               |                    |",
                   "               +--------------------+",
                   "F analogue     0 ########## FF   1 ---------- 00   2 ---------- 00",
                   "               3 ---------- 00   4 ###------- 40   5 ---------- 00"}));
  Good("unplug");
  Good("fault no-answer");
  EXPECT_EQ(Picture(simulation, kUtf8Glyphs)[0],
            "adapter unplugged   0 requests   1 faults in force");
}

}  // namespace
}  // namespace sim
