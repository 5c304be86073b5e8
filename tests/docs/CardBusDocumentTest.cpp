// docs/card-bus.md: its card types are those of the table.

#include "tests/docs/Markdown.h"
#include "vorn/bus/CardTypes.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>

namespace docs {
namespace {

std::string NumberOrNothing(std::size_t number) {
  return number == 0 ? "" : std::to_string(number);
}

const char* KindOf(CARD_STATE state) {
  switch (state) {
    case kOutputCard:
      return "output";
    case kInputCard:
      return "input";
    case kNoUsableCard:
      break;
  }
  return "none";
}

/// The row of a card type as the document has it, without the code.
ROW RowOf(const CARD_TYPE& type) {
  std::string preset;
  if (type.presetValues > 0) {
    char value[3];
    std::snprintf(value, sizeof value, "%02X", static_cast<unsigned int>(type.preset));
    preset = std::to_string(type.presetValues) + " × " + value;
  }
  return {std::string("`") + type.name + "`", KindOf(type.state),
          std::to_string(type.channels),      preset,
          NumberOrNothing(type.pollCount),    NumberOrNothing(type.outputValues)};
}

TEST(CardBusDocument, ListsTheCardTypesOfTheTable) {
  std::map<std::string, ROW> documented;  // by code
  for (const ROW& row : Tables(Section(ReadFile("docs/card-bus.md"), "## Card types"))) {
    if (row.size() == 7) {  // the other tables of the section have fewer columns
      documented[row[0]] = ROW(row.begin() + 1, row.end());
    }
  }
  std::map<std::string, ROW> known;
  for (int code = 0; code < 256; ++code) {
    const CARD_TYPE& type = FindCardType(static_cast<std::uint8_t>(code));
    const bool listed = type.code == code && std::string(type.name) != "UNIDENTIFIED";
    known[listed ? std::to_string(code) : "any other"] = RowOf(type);
  }
  EXPECT_EQ(documented, known);
}

}  // namespace
}  // namespace docs
