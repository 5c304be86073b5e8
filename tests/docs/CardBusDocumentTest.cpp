// docs/card-bus.md: its card types and its words are those of the tables, the daemon's and the
// simulated rack's, which know nothing of each other.

#include "sim/rack/Protocol.h"
#include "tests/docs/Markdown.h"
#include "tests/support/unit/Bytes.h"
#include "vorn/bus/CardBus.h"
#include "vorn/bus/CardTypes.h"
#include "vorn/master/CaeCommands.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <map>
#include <set>

namespace vorn {

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
          NumberOrNothing(type.pollCount),    NumberOrNothing(type.outputValues),
          NumberOrNothing(type.reportBlocks)};
}

TEST(CardBusDocument, ListsTheCardTypesOfTheTable) {
  std::map<std::string, ROW> documented;  // by code
  for (const ROW& row : Tables(Section(ReadFile("docs/card-bus.md"), "## Card types"))) {
    if (row.size() == 8) {  // the other tables of the section have fewer columns
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

// --- words --------------------------------------------------------------------------------------

const char* const kDocument = "docs/card-bus.md";

/// The requests that a section's tables show, in its first code span of a cell: "50 A 01 C0+c V".
std::map<std::string, std::string> Requests(const std::string& section, std::size_t column,
                                            std::size_t name) {
  std::map<std::string, std::string> requests;
  for (const ROW& row : Tables(Section(ReadFile(kDocument), section))) {
    const LINES spans = CodeSpans(row.at(column));
    const LINES names = CodeSpans(row.at(name));
    requests[names.empty() ? row.at(name) : names.front()] = spans.at(0);
  }
  return requests;
}

/// A body with the letters of the document in the places of address and value: its bytes A and V.
constexpr std::uint8_t kAddress = 0x0A;
constexpr std::uint8_t kValue = 0x5B;

std::string Lettered(const QList& body, const std::string& channel = "") {
  std::string text;
  std::size_t at = 0;
  for (const char byte : body) {
    std::string word = unit::ToHex(QList{byte});
    word = at == 1 && body.size() > 1 ? "A" : word;
    word = at == 3 ? word + channel : word;
    word = at == 4 ? "V" : word;
    text += (text.empty() ? "" : " ") + word;
    ++at;
  }
  return text;
}

/// What CAE's set-up commands put on the bus, by the command as the document writes it: SETSCAc:,
/// with the letter of the channel.
std::map<std::string, std::string> DaemonsParameters() {
  std::map<std::string, std::string> requests;
  for (const CAE_COMMAND& command : CaeCommands()) {
    const CAE_STEP& step = command.step;
    const bool hasEnds = step.parameterOfB.write != 0;
    const std::string keyword = command.keyword;
    const auto add = [&](const bus::PARAMETER& parameter, const char* end) {
      const std::string channel = !parameter.perChannel ? "" : hasEnds ? "c" : "p";
      const QList body = step.kind == CAE_STEP::kTell ? bus::ActionRequest(kAddress, step.action)
                         : step.kind == CAE_STEP::kRead
                             ? bus::ReadRequest(kAddress, parameter, 0)
                             : bus::WriteRequest(kAddress, parameter, 0, kValue);
      requests[keyword + end + channel + (keyword.back() == ':' ? "" : ":")] =
          Lettered(body, channel.empty() ? "" : "+" + channel);
    };
    if (step.kind > CAE_STEP::kRun) {
      add(step.parameter, hasEnds ? "A" : "");
    }
    if (hasEnds) {
      add(step.parameterOfB, "B");
    }
  }
  return requests;
}

TEST(CardBusDocument, HasTheParametersAndActionsOfTheDaemon) {
  std::map<std::string, std::string> documented = Requests("### Parameters and actions", 1, 2);
  for (auto& [command, request] : documented) {
    // The letter of the value says what it is: S, M or V.
    if (request.ends_with(" S") || request.ends_with(" M")) {
      request.back() = 'V';
    }
  }
  EXPECT_EQ(documented, DaemonsParameters());
}

TEST(CardBusDocument, HasTheParametersAndActionsOfTheSimulatedRack) {
  const auto hex = [](std::uint8_t code) { return unit::ToHex(unit::BYTES{code}); };
  std::set<std::string> known;
  for (const sim::PARAMETER& parameter : sim::kParameters) {
    if (parameter.writeCode != 0) {
      known.insert("50 A 01 " + hex(parameter.writeCode));
    }
    if (parameter.readCode != 0) {
      known.insert("50 A 40 " + hex(parameter.readCode));
    }
  }
  for (const sim::ACTION& action : sim::kActions) {
    known.insert("50 A 01 " + hex(action.code));
  }
  std::set<std::string> documented;
  for (const auto& [command, request] : Requests("### Parameters and actions", 1, 2)) {
    documented.insert(request.substr(0, std::string("50 A 01 C0").size()));
  }
  EXPECT_EQ(documented, known);
}

/// First bytes of the requests and replies, as the document's tables have them.
std::set<std::string> FirstBytes(const std::string& section) {
  std::set<std::string> codes;
  for (const ROW& row : Tables(Section(ReadFile(kDocument), section))) {
    for (const std::string& span : CodeSpans(row.at(0))) {
      codes.insert(span.substr(0, 2));
    }
  }
  return codes;
}

TEST(CardBusDocument, HasTheCodesOfRequestsAndReplies) {
  const auto hexes = [](std::initializer_list<int> codes) {
    std::set<std::string> texts;
    for (const int code : codes) {
      texts.insert(unit::ToHex(unit::BYTES{static_cast<std::uint8_t>(code)}));
    }
    return texts;
  };
  const std::set<std::string> requests = FirstBytes("## Requests");
  EXPECT_EQ(requests,
            hexes({bus::request::kHandshake, bus::request::kIdentification, bus::request::kPoll,
                   bus::request::kOutput, bus::request::kParameter}));
  EXPECT_EQ(requests, hexes({sim::request::kHandshake, sim::request::kIdentify, sim::request::kPoll,
                             sim::request::kOutput, sim::request::kParameter}));
  std::set<std::string> replies =
      hexes({bus::reply::kIdentification, bus::reply::kInputData, bus::reply::kQueryData});
  EXPECT_EQ(replies, hexes({sim::reply::kIdentified, sim::reply::kInput, sim::reply::kQuery}));
  for (int code = 0; code < 256; ++code) {
    if (GetQListError({static_cast<char>(code)}) != kNoError) {
      replies.merge(hexes({code}));
    }
  }
  EXPECT_EQ(FirstBytes("## Replies"), replies);
  for (const sim::ERROR_CODE& error : sim::kErrorCodes) {
    EXPECT_NE(GetQListError({static_cast<char>(error.code)}), kNoError) << error.keyword;
  }
}

TEST(CardBusDocument, HasTheRequestsAsTheyAreMade) {
  const std::string document = ReadFile(kDocument);
  std::set<std::string> bodies;
  for (const ROW& row : Tables(Section(document, "## Requests"))) {
    bodies.insert(CodeSpans(row.at(0)).at(0));
  }
  EXPECT_TRUE(bodies.contains(unit::ToHex(bus::HandshakeRequest())));
  EXPECT_TRUE(bodies.contains(unit::ToHex(bus::IdentificationRequest())));
  EXPECT_EQ(unit::ToHex(bus::PollRequest(kAddress, 2)), "20 0A 02");
  EXPECT_TRUE(bodies.contains("20 A C"));
  EXPECT_EQ(unit::ToHex(bus::HandshakeRequest()),
            unit::ToHex(unit::BYTES(sim::kHandshakeBody.begin(), sim::kHandshakeBody.end())));
}

}  // namespace
}  // namespace docs

}  // namespace vorn
