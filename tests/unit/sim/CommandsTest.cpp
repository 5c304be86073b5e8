#include "sim/tool/Commands.h"
#include "sim/tool/Help.h"
#include "sim/tool/Picture.h"
#include "sim/tool/RackFile.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

namespace sim {
namespace {

using LINES = std::vector<std::string>;

class RackCommands : public ::testing::Test {
 protected:
  RackCommands() : simulation({.devDir = folder.Path()}) {
    EXPECT_TRUE(LoadRack(DefaultRackText(), "built-in", simulation.Rack()));
    EXPECT_TRUE(simulation.Plug(0));
    simulation.Events().Take();
  }

  /// What comes of what is typed, or behind "> " asked on the bus; its lines with " / " between.
  std::string Response(const std::string& typed) {
    if (typed.starts_with("> ")) {
      return Ask(simulation.Rack(), typed.substr(2));
    }
    std::string text;
    for (const char c : ResponseText(Execute(simulation, typed))) {
      text += c == '\n' ? " / " : std::string(1, c);
    }
    return text.substr(0, text.size() - 3);
  }
  void Converse(const std::string& steps) {
    sim::Converse(steps, "OK", [this](const std::string& typed) { return Response(typed); });
  }
  /// What a good command said.
  std::string Said(const std::string& line) {
    const RESULT result = Execute(simulation, line);
    EXPECT_TRUE(result.ok) << line << ": " << result.text;
    return result.text;
  }
  LINES Events() { return simulation.Events().Take(); }
  std::string Link(int number) { return folder.File("ttyUSB" + std::to_string(number)); }

  vorn::unit::FOLDER folder;
  SIMULATION simulation;
};

TEST_F(RackCommands, AreListedByHelpAndRefuseTooFewAndTooManyArgumentsByTheTable) {
  const std::string help = Said("help");
  for (const COMMAND& row : Commands()) {
    EXPECT_NE(help.find(std::string(row.word) + " " + row.arguments), std::string::npos)
        << row.word;
    EXPECT_NE(help.find(row.help), std::string::npos) << row.word;
    EXPECT_NE(Said(std::string("help ") + row.word).find(row.help), std::string::npos);
    const std::string usage = std::string("usage: ") + row.word;
    std::string line = row.word;
    if (row.fewest > 0) {
      EXPECT_TRUE(Check(line).text.starts_with(usage));
    }
    for (std::size_t i = 0; i <= row.most; ++i) {
      line += " 0";
    }
    EXPECT_TRUE(Check(line).text.starts_with(usage)) << row.word;
    EXPECT_EQ(Execute(simulation, line).text, Check(line).text);
  }
  EXPECT_TRUE((Said("help plug") + " ").ends_with("\n  types: " + CardTypeWords(" ")));
}

TEST_F(RackCommands, AreCompletedByWhatTheirHelpNames) {
  const auto completes = [](const std::string& before, const std::string& word) {
    LINES words = Complete(before);
    return std::find(words.begin(), words.end(), word) != words.end();
  };
  for (const char* before : {"", "  ", "pres", "help "}) {
    EXPECT_EQ(Complete(before).size(), Commands().size()) << before;
    EXPECT_TRUE(completes(before, "press")) << before;
  }
  for (const char* word :
       {"no-answer", "short", "no-card", "poll", "on", "code", "once", "always"}) {
    EXPECT_TRUE(completes("fault ", word)) << word;
  }
  EXPECT_FALSE(completes("fault ", "KIND"));
  EXPECT_TRUE(completes("plug 3 ", "servo"));
  EXPECT_TRUE(completes("param ", "endA"));
  EXPECT_EQ(Complete("adapter 1 "), (LINES{"silent", "chatter", "off"}));
  EXPECT_EQ(Complete("show 3 "), LINES{"--json"});
  EXPECT_TRUE(Complete("bogus ").empty());
}

TEST_F(RackCommands, OperateTheCards) {
  EXPECT_EQ(Response(""), "OK");
  EXPECT_EQ(Response("   "), "OK");
  Converse(R"(
      # press 3.6 | bogus -> error: there is no command 'bogus'; 'help' lists them
      help bogus -> error: there is no command 'bogus'; 'help' lists them | press 3.6 3.10
      > 20 03 02 -> 21 03 40 04 | release 3.6 | > 20 03 02 -> 21 03 00 04
      press 3.9 3.16 -> error: card 3 has no key 16; 0 to 15 are there
      press 2.0 -> error: no card at address 2
      press 3 -> error: '3' is no place (card address, a point, channel: 3.6) | press 8.12
      release 8.12 | turn 8 -1 | > 20 08 01 -> 21 08 12 | > 20 08 01 -> 21 08 00
      > 20 08 01 -> 21 08 FF | turn 8 x -> error: 'x' is no number of steps (a decimal number)
      set F.3 20 | > 20 0F 06 -> 21 0F 00 00 00 20 00 00 | ramp F.3 80 0
      > 20 0F 06 -> 21 0F 00 00 00 80 00 00 | set 3.1 A5 | > 20 03 02 -> 21 03 00 A5
      set F.3 100 -> error: '100' is no value (00 to FF)
      ramp F.3 20 soon -> error: 'soon' is no number of seconds (0 to 1000000, a fraction allowed)
      noise 3.0 10 -> error: card 3 (digital-in) has no pots | speed 0 0
      speed 3 1 -> error: card 3 (digital-in) has no servos | param 0.position 4 20 | reboot 0
      > 50 00 40 25 -> 51 00 25 00
      param 0.mask 0 1 -> error: a servo card has no parameter 'mask'; it has endA, endB, position
      pull 3 | pull 3 -> error: no card at address 3 | show 3 -> error: no card at address 3
      > 20 03 02 -> 43 03 | plug 3 FF | > 20 03 02 -> 4E 03
      show 3 -> card 3 type 255 'unknown card' / OK | name 3 "" | > 10 05 02 00 FF -> 41 05
      reset
      show 5 -> card 5 digital-out '16 channel digital output' /   blocks: FF FF /   lit: - / OK
      version 9.9 | version -> 9.9  / OK | > 40 6F 9A -> 40 39 2E 39 20 | quit)");
  EXPECT_TRUE(Response("plug 3 00").starts_with("error: '00' is no card type"));
  EXPECT_NE(Said("show 0").find("targets: 80 80 80 80 20 80"), std::string::npos);
  EXPECT_TRUE(simulation.Quitting());
}

TEST_F(RackCommands, LetPotsTrembleAndRamp) {
  Said("noise F.3 10");
  std::set<std::string> seen;
  for (int i = 0; i < 200; ++i) {
    seen.insert(Response("> 20 0F 06"));
  }
  EXPECT_GT(seen.size(), 5U);
  Said("ramp F.0 FF 3600");
  EXPECT_TRUE(simulation.Rack().Advance());
}

TEST_F(RackCommands, ListAndShowAsTextOrJson) {
  EXPECT_TRUE(Said("list").starts_with("0 servo '6 channel RC servo controller'\n1 motor '3"));
  Said("press 3.6");
  const auto card = nlohmann::json::parse(Said("show 3 --json"));
  EXPECT_EQ(card["type"], "digital-in");
  EXPECT_EQ(card["pressed"], nlohmann::json::array({6}));
  const auto all = nlohmann::json::parse(Said("show --json"));
  EXPECT_EQ(all.size(), 8U);
  EXPECT_EQ(all[0]["stored_position"].size(), 6U);
  const std::string text = Said("show");
  for (const char* part : {"card 0 servo ", "\ncard 3 digital-in ", "\n    |SELF TEST OK        |",
                           "\n  light: on\n", "\n  positions: 128.0 128.0 "}) {
    EXPECT_NE(text.find(part), std::string::npos) << part;
  }
  Said("name 3 \xFF\xFE");
  EXPECT_TRUE(nlohmann::json::accept(Said("show 3 --json")));
  Converse("show 3 5 -> error: show takes one card address, or none for all");
  for (int address = 0; address < kSlots; ++address) {
    simulation.Rack().Remove(address);
  }
  Converse("list -> the rack is empty / OK | show -> the rack is empty / OK");
}

TEST_F(RackCommands, OrderListAndClearFaults) {
  const std::string noCode =
      "error: 'bogus' is no request code; output, poll, identify, handshake and parameter have "
      "names too (00 to FF)";
  const std::string expected = ": expected on A, code CODE, once, times N, for SECONDS or always";
  Converse(R"(
      faults -> no faults / OK
      fault cut 3 on 5 code poll times 2 -> fault 1: cut 3 on 5 code 20 times 2 / OK
      fault no-answer always -> fault 2: no-answer always / OK
      faults -> fault 1: cut 3 on 5 code 20 times 2 / fault 2: no-answer always / OK | clear 2
      clear 2 -> error: there is no fault 2; 'faults' lists them
      fault late 0.5 for 3600 -> fault 3: late 0.5 for 3600 / OK | clear
      fault no-answer times 2 once -> fault 4: no-answer once / OK | clear all
      fault bogus -> error: there is no fault 'bogus'; 'help fault' lists them
      fault no-answer maybe 3 -> error: 'maybe')" +
           expected + R"(
      fault no-answer on -> error: 'on')" +
           expected + R"(
      fault no-answer times 0 -> error: a fault happens at least once
      fault cut -1 -> error: an answer cannot be cut to fewer than 0 bytes
      fault error bogus -> error: 'bogus' is no error code; 'help fault' lists them (00 to FF)
      fault length wrong -> error: 'wrong' is no length (00 to FF)
      fault trailing 1 -> error: '1' are no bytes (pairs of hexadecimal digits: 03409A)
      fault no-answer code bogus -> )" +
           noCode + R"(
      faults -> no faults / OK)");
}

/// A fault is told as it was ordered.
TEST_F(RackCommands, OrderEachKindOfFault) {
  LINES orders{"no-answer",  "late 5",     "cut 2",    "split 5",   "trailing AA", "leading AA BB",
               "garbage AA", "address FF", "error 77", "length 55", "duplicate"};
  for (const LENGTH_WORD& row : kLengthWords) {
    orders.push_back(std::string("length ") + row.keyword);
  }
  for (const ERROR_CODE& row : kErrorCodes) {
    orders.push_back(std::string("error ") + row.keyword);
  }
  std::set<FAULT_KIND> kinds;
  for (const std::string& order : orders) {
    std::string typed = order == "leading AA BB" ? "leading \"AA BB\"" : order;
    EXPECT_TRUE(Said("fault " + typed).ends_with(": " + order + " once")) << order;
    kinds.insert(simulation.Adapter().Faults().List().back().fault.kind);
  }
  EXPECT_EQ(kinds.size(), std::size(kFaultTypes));
  for (const FAULT_TYPE& row : kFaultTypes) {
    const std::string order = std::string("fault ") + row.keyword;
    if (row.argument != FAULT_ARGUMENT::kNone) {
      EXPECT_EQ(Response(order), "error: " + order + " needs " + row.usage);
    }
  }
  for (const REQUEST_CODE& row : kRequestCodes) {
    EXPECT_TRUE(Said(std::string("fault no-answer code ") + row.keyword)
                    .ends_with("code " + ToHex(row.code) + " once"));
  }
}

TEST_F(RackCommands, UnplugReplugAndAddAdapters) {
  Converse(R"(
      unplug | unplug -> error: the adapter is not plugged in
      send 00 -> error: the adapter is not plugged in | replug 4 | unplug | replug
      replug 4 -> error: plugged in already as )" +
           Link(4) + R"( | adapter 1 silent
      adapter 4 silent -> error: cannot make )" +
           Link(4) + R"(: File exists (take another number)
      adapter 1 loud -> error: a second adapter is silent, chatter or off | adapter 1 chatter)");
  NEAR_END near(Link(1));
  const Bytes chatter = near.Read(100);
  EXPECT_GT(std::set<std::uint8_t>(chatter.begin(), chatter.end()).size(), 10U);
  Converse(R"(
      adapter 1 off | adapter 1 off -> error: there is no silent or chattering adapter 1)");
  EXPECT_TRUE(near.WaitForHangUp());
  EXPECT_EQ(Events(), (LINES{"adapter " + Link(0) + " unplugged", "adapter " + Link(4) + " ready",
                             "adapter " + Link(4) + " unplugged", "adapter " + Link(4) + " ready",
                             "adapter " + Link(1) + " ready", "adapter " + Link(1) + " opened",
                             "adapter " + Link(1) + " unplugged"}));
}

TEST_F(RackCommands, SendAndCount) {
  NEAR_END near(Link(0));
  Said("send DE AD BE EF");
  EXPECT_EQ(near.Read(4), (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
  EXPECT_EQ(near.Ask("40 6F 9A"), "40 32 2E 30 34");
  // What was written is counted once it is, when it may have been read already.
  EXPECT_TRUE(support::WaitUntil([this] {
    return Said("counters") ==
           "requests 1\nanswered 1\nunanswered 0\nbytes in 4\nbytes out 10\nbytes lost 0\n"
           "unfinished requests 0\nopened 1";
  }));
}

TEST_F(RackCommands, AnyBytesAsACommandDoNoHarm) {
  std::minstd_rand random;
  LINES words{"press", "fault", "set", "show", "help", "0.1", "F", "--json", "\"", "on", "FF"};
  for (int i = 0; i < 20000; ++i) {
    std::string line;
    for (auto n = random() % 6; n > 0; --n) {
      if (random() % 3 == 0) {
        line += static_cast<char>(random());
      } else {
        line += words[random() % words.size()];
      }
      line += random() % 4 == 0 ? "" : " ";
    }
    static_cast<void>(Execute(simulation, line));
  }
  EXPECT_FALSE(Said("list").empty());
}

/// The documents show all types of cards.
TEST_F(RackCommands, ThePictureHasAHeadAndKnowsItsEdges) {
  for (int address = 0; address < kSlots; ++address) {
    simulation.Rack().Remove(address);
  }
  for (const char* command : {"plug 1 motor", "plug 8 keys", "plug 9 ir", "plug A FF", "press 8.12",
                              "plug C analogue", "set C.0 FF"}) {
    Said(command);
  }
  Response("> 10 01 04 7F 00 81 00");
  Response("> 10 09 18 17 01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16 17 18 19 20 21 22 23");
  EXPECT_EQ(
      Picture(simulation, kAsciiGlyphs),
      (LINES{Link(0) + "   0 requests",
             "1 motor        0 ---------| +100%   1 -----|----   +0%   2 |--------- -100%",
             "8 keys         key 12   encoder 0",
             "9 ir           sent 01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16 17 18 19 ...",
             "A type 255     no picture",
             "C analogue     0 ########## FF   1 ---------- 00   2 ---------- 00",
             "               3 ---------- 00   4 ---------- 00   5 ---------- 00"}));
  Said("unplug");
  Said("fault no-answer");
  EXPECT_EQ(Picture(simulation, kUtf8Glyphs)[0],
            "adapter unplugged   0 requests   1 faults in force");
}

}  // namespace
}  // namespace sim
