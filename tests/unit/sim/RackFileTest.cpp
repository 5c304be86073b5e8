#include "sim/tool/RackFile.h"
#include "sim/tool/Scenario.h"
#include "sim/tool/Show.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>

#include <fstream>

namespace sim {
namespace {

using namespace std::chrono_literals;

TEST(RackFile, TheBuiltInOneIsTheDefaultRack) {
  RACK fromText;
  support::RACK built;
  built.PopulateDefault();
  const RESULT result = LoadRack(DefaultRackText(), "built-in", fromText);
  ASSERT_TRUE(result.ok) << result.text;
  EXPECT_EQ(fromText.Version(), built.Version());
  EXPECT_EQ(ShowJson(fromText), ShowJson(built));
}

TEST(RackFile, SetsNamesInputsParametersSpeedAndDisplay) {
  support::RACK rack;
  const RESULT result = LoadRack(R"(<Rack version="1.23">
      <Card address="2" type="servo" name="arm" speed="0">
        <Parameter name="position" channel="5" value="20"/>
        <Parameter name="endB" channel="1" value="C0"/>
      </Card>
      <Card address="4" type="digital-in"><Input channel="1" value="81"/></Card>
      <Card address="7" type="lcd"><Display columns="16" rows="2"/>
        <Parameter name="selftest" value="00"/></Card>
      <Card address="A" type="analogue"><Input channel="2" value="33" noise="04"/>
        <Parameter name="mask" value="0F"/></Card>
      <Card address="C" type="2A"/>
    </Rack>)",
                                 "my.xml", rack);
  ASSERT_TRUE(result.ok) << result.text;
  EXPECT_EQ(rack.Answer({0x40, 0x6F, 0x9A}), (Bytes{0x40, '1', '.', '2', '3'}));
  EXPECT_EQ(rack.Answer({0x30}), (Bytes{0x31, 0, 0, 5, 0, 4, 0, 0, 9, 0, 0, 7, 0, 0x2A, 0, 0, 0}));
  EXPECT_EQ(rack.Value(2, 5), 0x20);
  EXPECT_EQ(rack.Answer({0x50, 2, 0x40, 0x28}), (Bytes{0x51, 2, 0x28, 0xC0}));
  EXPECT_EQ(rack.Answer({0x20, 4, 2}), (Bytes{0x21, 4, 0x00, 0x81}));
  EXPECT_EQ(rack.Answer({0x50, 0xA, 0x40, 0x01}), (Bytes{0x51, 0xA, 0x01, 0x0F}));
  EXPECT_EQ(rack.Value(0xA, 2), 0x33);
  EXPECT_EQ(rack.Field<std::vector<std::string>>(7, "text"),
            std::vector<std::string>(2, std::string(16, ' ')));
  EXPECT_EQ(rack.Field<std::string>(2, "name"), "arm");
}

TEST(RackFile, NamesLineColumnAndWhatWasExpected) {
  const struct {
    std::string text;
    std::string error;
  } kWrong[] = {
      {"<Rack>\n  <Card address='0' type='servo'>\n</Rack>", "3:3: Start-end tags mismatch"},
      {"<Shelf/>", "1:1: expected the element Rack, found 'Shelf'"},
      {"<Rack>\n  <Kard/>\n</Rack>", "2:3: expected an element Card, found 'Kard'"},
      {"<Rack>text</Rack>", "1:7: expected an element Card, found text"},
      {"<Rack>\n  <Card type='servo'/>\n</Rack>", "2:3: Card needs the attribute address"},
      {"<Rack>\n <Card address='0' type='servo' colour='red'/></Rack>",
       "2:2: Card has no attribute 'colour'; expected address, type, name, speed"},
      {"<Rack><Card address='G' type='servo'/></Rack>",
       "1:7: address: 'G' is no card address (0 to F)"},
      {"<Rack><Card address='0' type='robot'/></Rack>",
       "1:7: type: 'robot' is no card type (" + CardTypeWords(", ") + "or a type code 01 to FF)"},
      {"<Rack><Card address='0' type='ir'/>\n<Card address='0' type='ir'/></Rack>",
       "2:1: there is a card at address 0 already"},
      {"<Rack><Card address='0' type='ir' speed='1'/></Rack>", "1:7: card 0 (ir) has no servos"},
      {"<Rack><Card address='0' type='ir'>\n<Display columns='1' rows='1'/></Card></Rack>",
       "2:1: only an lcd card has a Display"},
      {"<Rack><Card address='0' type='servo'>\n <Parameter name='endA' value='1FF'/></Card></Rack>",
       "2:2: value: '1FF' is no value (00 to FF)"},
      {"<Rack><Card address='0' type='motor'>\n <Parameter name='silent' "
       "value='21'/></Card></Rack>",
       "2:2: silent is 00 to 20"},
      {"<Rack><Card address='0' type='servo'><Knob/></Card></Rack>",
       "1:38: expected an element Parameter, Input or Display, found 'Knob'"},
      {"<Rack><Card address='0' type='ir'>text</Card></Rack>",
       "1:35: expected an element Parameter, Input or Display, found text"},
      {"", "1:1: No document element found"},
  };
  for (const auto& wrong : kWrong) {
    RACK rack;
    EXPECT_EQ(LoadRack(wrong.text, "my.xml", rack).text, "my.xml:" + wrong.error);
    EXPECT_EQ(ShowJson(rack), "[]");
  }
}

TEST(RackFile, ThatCannotBeReadIsNamed) {
  const vorn::unit::FOLDER folder;
  support::RACK rack;
  EXPECT_EQ(LoadRackFile(folder.File("none.xml"), rack).text,
            "cannot read " + folder.File("none.xml") + ": No such file or directory");
  EXPECT_FALSE(LoadRackFile(folder.Path(), rack));
}

TEST(Scenario, RunsItsStepsAtTheirTimes) {
  SCENARIO scenario;
  const RESULT result =
      scenario.Parse("# keys\n\nat 2.0 press 3.6\nafter 0.5 release 3.6\nat 1 turn 8 1\n", "s.txt");
  ASSERT_TRUE(result.ok) << result.text;
  EXPECT_EQ(scenario.Next(), 1000ms);
  EXPECT_TRUE(scenario.Take(999ms).empty());
  const auto first = scenario.Take(2000ms);
  ASSERT_EQ(first.size(), 2U);
  EXPECT_EQ(first[0].command, "turn 8 1");
  EXPECT_EQ(first[1].command, "press 3.6");
  EXPECT_EQ(scenario.Next(), 2500ms);
  EXPECT_EQ(scenario.Take(1h).size(), 1U);
  EXPECT_EQ(scenario.Next(), std::nullopt);
}

TEST(Scenario, HasAnErrorForEachLineThatIsWrongAndThenNoStep) {
  SCENARIO scenario;
  const RESULT result = scenario.Parse(
      "# six of eight\nat 1 list\npress 3.6\n\nat noon press 3.6\nafter 1 list\nafter 1\n"
      "at 2 bogus\nat 1 press\nlater list",
      "s.txt");
  EXPECT_EQ(result.text,
            "s.txt:3: expected at SECONDS or after SECONDS, found 'press'\n"
            "s.txt:5: 'noon' is no number of seconds (0 to 1000000, a fraction allowed)\n"
            "s.txt:7: expected a command\n"
            "s.txt:8: there is no command 'bogus'; 'help' lists them\n"
            "s.txt:9: usage: press A.K ...\n"
            "s.txt:10: expected at SECONDS or after SECONDS, found 'later'");
  EXPECT_EQ(scenario.Next(), std::nullopt);
}

}  // namespace
}  // namespace sim
