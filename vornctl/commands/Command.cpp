#include "vornctl/commands/Command.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace ctl {

namespace {

using client::INTERFACE;

const char* WordOf(LINK::PROOF proof) {
  switch (proof) {
    case LINK::PROOF::kChecked:
      return "checked";
    case LINK::PROOF::kTaken:
      return "taken";
    case LINK::PROOF::kSent:
      break;
  }
  return "sent";
}

FAILURE RefusalOf(const std::string& line) {
  return {EXIT_STATUS::kRefused, "vorn refused the IO line '" + line + "'"};
}

/// What is known of lines: to programs, and to a user where it is less than he may think.
void TellProof(CONTEXT& context, RECORD record, LINK::PROOF proof) {
  if (proof == LINK::PROOF::kSent && !context.unchecked && !context.link.IsReady(INTERFACE::kCae)) {
    context.output.Note(
        "sent; CAE and MON are not free, so that it cannot be known whether vorn took it "
        "(--unchecked: do not ask)");
  }
  record["state"] = WordOf(proof);
  context.output.PutRecord(record);
}

}  // namespace

std::optional<client::CAE_RESULT> Do(CONTEXT& context, const client::CAE_REQUEST& request) {
  if (context.dryRun) {
    context.output.Put(request.line,
                       {{"type", "line"}, {"interface", "CAE"}, {"line", request.line}});
    return std::nullopt;
  }
  return context.link.Ask(request);
}

void DoAndTell(CONTEXT& context, const client::CAE_REQUEST& request) {
  if (const auto result = Do(context, request)) {
    context.output.PutRecord({{"type", "done"}, {"line", request.line}, {"text", result->Text()}});
  }
}

client::DELIVERY::NUMBER SendLine(CONTEXT& context, const std::string& line) {
  const client::DELIVERY::NUMBER number = context.dryRun ? 0 : context.link.Send(line);
  // A typed line may set a block, too.
  if (const auto value = client::ReadBlockLine(line)) {
    context.blocks[{value->address, value->block}] = value->value;
  }
  return number;
}

void OpenForSending(CONTEXT& context) {
  if (context.dryRun) {
    return;
  }
  if (context.series.isOn && context.link.Unsettled() > 0) {
    if (!context.link.IsReady(INTERFACE::kIo)) {
      throw context.link.FailureOf(INTERFACE::kIo);  // what was sent may be lost with it
    }
    return;
  }
  if (context.unchecked) {
    context.link.Open({INTERFACE::kIo});
  } else {
    context.link.Open({INTERFACE::kIo}, {INTERFACE::kCae, INTERFACE::kMon});
  }
}

void SendLines(CONTEXT& context, const std::vector<std::string>& lines) {
  if (context.dryRun) {
    for (const std::string& line : lines) {
      context.output.Put(line, {{"type", "line"}, {"interface", "IO"}, {"line", line}});
      SendLine(context, line);
    }
    return;
  }
  OpenForSending(context);
  client::DELIVERY::NUMBER first = 0;
  for (const std::string& line : lines) {
    const client::DELIVERY::NUMBER number = SendLine(context, line);
    first = first == 0 ? number : first;
  }
  if (context.series.isOn) {
    context.series.origins.push_back({first, context.series.line});
    if (context.output.IsJson()) {
      context.output.PutRecord({{"type", "sent"}, {"lines", lines}, {"state", "sent"}});
    }
    return;
  }
  TellSent(context, lines);
}

void TellSent(CONTEXT& context, const std::vector<std::string>& lines) {
  const LINK::PROOF proof = context.link.Settle();
  const auto refused = std::exchange(context.refused, {});
  if (!refused.empty()) {
    throw RefusalOf(refused.front().second);
  }
  TellProof(context, {{"type", "sent"}, {"lines", lines}}, proof);
}

std::vector<REFUSED_LINE> SettleSeries(CONTEXT& context) {
  std::vector<REFUSED_LINE> lines;
  const std::size_t unsettled = context.link.Unsettled();
  if (unsettled == 0) {
    return lines;
  }
  const auto origins = std::exchange(context.series.origins, {});
  try {
    const LINK::PROOF proof = context.link.Settle();
    TellProof(context, {{"type", "settled"}, {"count", unsettled}}, proof);
  } catch (const FAILURE& failure) {
    context.link.ForgetUnsettled();
    const std::string since = origins.empty() ? "" : std::to_string(origins.front().line);
    throw FAILURE(failure.Status(), std::string(failure.what()) + "; what was sent since line " +
                                        since + " may not have been carried out");
  }
  for (const auto& [number, line] : std::exchange(context.refused, {})) {
    int origin = 0;
    for (const SERIES::ORIGIN& one : origins) {
      origin = one.first <= number ? one.line : origin;
    }
    lines.push_back({origin, RefusalOf(line)});
  }
  return lines;
}

int ReadAddress(const std::string& word) {
  const auto place = ReadPlace(word);
  if (!place || place->kind != PLACE_KIND::kCard) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + word + "' is no address of a card: 0 to F");
  }
  return place->address;
}

std::optional<client::CARD_KIND> FindKind(CONTEXT& context, int address) {
  const bool canAsk = context.link.IsReady(INTERFACE::kCae);
  if (!canAsk && !context.link.KnownKindOf(address)) {
    return std::nullopt;
  }
  return context.link.KindOf(address);
}

const client::CARD_TYPE& FindAnyCard(CONTEXT& context, int address) {
  const client::CARD_TYPE& type = client::TypeOf(context.link.KindOf(address));
  if (type.kind == client::CARD_KIND::kEmpty) {
    throw FAILURE(EXIT_STATUS::kNoSuch, std::string("no card at ") + client::AddressDigit(address) +
                                            ": 'vornctl cards' lists them, with --rescan it asks "
                                            "the bus");
  }
  return type;
}

int FindCard(CONTEXT& context, const std::string& word, client::CARD_KIND kind) {
  const int address = ReadAddress(word);
  if (context.dryRun && !context.link.KnownKindOf(address)) {
    return address;  // the line is the same; nothing is sent
  }
  const client::CARD_TYPE& type = FindAnyCard(context, address);
  if (type.kind != kind) {
    throw FAILURE(EXIT_STATUS::kNoSuch, std::string("card ") + client::AddressDigit(address) +
                                            " is " + type.word + ", not " +
                                            client::TypeOf(kind).word);
  }
  return address;
}

client::TIME TimeAfter(double seconds) {
  constexpr double kLongest = 1e8;  // three years
  if (std::isnan(seconds)) {
    throw FAILURE(EXIT_STATUS::kUsage, "'nan' is no time: seconds");
  }
  if (seconds < 0 || seconds > kLongest) {
    return client::TIME::max();
  }
  constexpr double kPerSecond = 1000;
  return client::CLOCK::now() + std::chrono::milliseconds(std::llround(seconds * kPerSecond));
}

}  // namespace ctl
