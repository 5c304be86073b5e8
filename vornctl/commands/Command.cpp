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

[[noreturn]] void RefuseLine(const std::string& line) {
  throw FAILURE(EXIT_STATUS::kRefused, "vorn refused the IO line '" + line + "'");
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

void OpenForSending(CONTEXT& context) {
  if (context.dryRun) {
    return;
  }
  if (context.unchecked) {
    context.link.Open({INTERFACE::kIo});
  } else if (!context.link.IsReady(INTERFACE::kIo) || !context.series.isOn) {
    context.link.Open({INTERFACE::kIo}, {INTERFACE::kCae, INTERFACE::kMon});
  }
}

void SendLines(CONTEXT& context, const std::vector<std::string>& lines) {
  if (context.dryRun) {
    for (const std::string& line : lines) {
      context.output.Put(line, {{"type", "line"}, {"interface", "IO"}, {"line", line}});
    }
    return;
  }
  OpenForSending(context);
  client::DELIVERY::NUMBER first = 0;
  for (const std::string& line : lines) {
    const client::DELIVERY::NUMBER number = context.link.Send(line);
    first = first == 0 ? number : first;
  }
  if (context.series.isOn) {
    context.series.origins.push_back({first, context.series.line});
    if (context.output.IsJson()) {
      context.output.PutRecord({{"type", "sent"}, {"lines", lines}, {"state", "sent"}});
    }
    return;
  }
  const LINK::PROOF proof = context.link.Settle();
  if (!context.refused.empty()) {
    RefuseLine(context.refused.front().second);
  }
  if (proof == LINK::PROOF::kSent && !context.unchecked && !context.link.IsReady(INTERFACE::kCae)) {
    context.output.Note(
        "sent; CAE and MON are not free, so that it cannot be known whether vorn took it "
        "(--unchecked: do not ask)");
  }
  if (context.output.IsJson()) {
    context.output.PutRecord({{"type", "sent"}, {"lines", lines}, {"state", WordOf(proof)}});
  }
}

void SettleSeries(CONTEXT& context) {
  if (context.series.origins.empty() && context.refused.empty()) {
    return;
  }
  context.link.Settle();
  const auto origins = std::exchange(context.series.origins, {});
  const auto refused = std::exchange(context.refused, {});
  if (refused.empty()) {
    return;
  }
  const auto& [number, line] = refused.front();
  for (const SERIES::ORIGIN& origin : origins) {
    if (origin.first <= number) {
      context.series.line = origin.line;
    }
  }
  RefuseLine(line);
}

int ReadAddress(const std::string& word) {
  const auto place = ReadPlace(word);
  if (!place || place->kind != PLACE_KIND::kCard) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + word + "' is no address of a card: 0 to F");
  }
  return place->address;
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
  if (seconds < 0 || seconds > kLongest) {
    return client::TIME::max();
  }
  constexpr double kPerSecond = 1000;
  return client::CLOCK::now() + std::chrono::milliseconds(std::llround(seconds * kPerSecond));
}

}  // namespace ctl
