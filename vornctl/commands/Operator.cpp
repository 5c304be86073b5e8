#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

// cards, poll, speed, version and status: vorn itself.
namespace ctl {

namespace {

using client::CARD_KIND;
using client::CARD_TYPE;
using client::INTERFACE;

std::string ChannelsText(int address, const CARD_TYPE& type) {
  const std::vector<PLACE> channels = ChannelsOf(address, type);
  if (channels.empty()) {
    return "-";
  }
  return TextOf(channels.front()) + (channels.size() > 1 ? " .. " + TextOf(channels.back()) : "");
}

std::string Padded(const std::string& text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

std::string CardLine(const std::string& card, const std::string& type, const std::string& channels,
                     const std::string& polled, const std::string& name) {
  constexpr std::size_t kCard = 6;
  constexpr std::size_t kType = 14;
  constexpr std::size_t kChannels = 20;
  constexpr std::size_t kPolled = 8;
  return Padded(card, kCard) + Padded(type, kType) + Padded(channels, kChannels) +
         Padded(polled, kPolled) + name;
}

void PutCard(CONTEXT& context, int address, const CARD_TYPE& type,
             const client::POLL_STATE& polling) {
  const auto polled = polling.cards.find(address);
  const bool isInput = polled != polling.cards.end();
  const bool isPolled = isInput && polling.enabled && polled->second;
  RECORD channels = RECORD::array();
  for (const PLACE& place : ChannelsOf(address, type)) {
    channels.push_back(TextOf(place));
  }
  const std::string digit(1, client::AddressDigit(address));
  context.output.Put(CardLine(digit, type.word, ChannelsText(address, type),
                              isInput ? (isPolled ? "yes" : "no") : "-", type.listedName),
                     {{"type", "card"},
                      {"card", digit},
                      {"kind", type.word},
                      {"description", type.listedName},
                      {"channels", channels},
                      {"polled", isInput ? RECORD(isPolled) : RECORD(nullptr)}});
}

client::POLL_STATE PollStateOf(const client::CAE_RESULT& result) {
  const auto* state = std::get_if<client::POLL_STATE>(&result.value);
  return state == nullptr ? client::POLL_STATE{} : *state;
}

}  // namespace

void DeclareCards(CLI::App& command, ARGUMENTS& arguments) {
  command.add_flag("--rescan", arguments.rescan,
                   "ask the bus first, for 2 seconds; outputs then count as at the start");
}

void RunCards(CONTEXT& context, const ARGUMENTS& arguments) {
  const client::CAE_REQUEST request =
      arguments.rescan ? client::IdentifyCards() : client::ListCards();
  if (arguments.rescan) {
    context.blocks.clear();
    context.link.ForgetCards();
  }
  const auto result = Do(context, request);
  const auto state = Do(context, client::AskPollState());
  if (!result || !state) {
    return;
  }
  const auto* cards = std::get_if<client::CARD_LIST>(&result->value);
  const client::POLL_STATE polling = PollStateOf(*state);
  context.output.PutText(CardLine("CARD", "TYPE", "CHANNELS", "POLLED", "NAME"));
  for (int address = 0; cards != nullptr && address < client::kAddresses; ++address) {
    const CARD_KIND kind = cards->at(static_cast<std::size_t>(address));
    if (kind != CARD_KIND::kEmpty) {
      PutCard(context, address, client::TypeOf(kind), polling);
    }
  }
}

void DeclarePoll(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("STATE", arguments.words, "on or off, and a CARD for that one alone")
      ->expected(0, 2);
}

void RunPoll(CONTEXT& context, const ARGUMENTS& arguments) {
  if (arguments.words.empty()) {
    const auto result = Do(context, client::AskPollState());
    if (!result) {
      return;
    }
    const client::POLL_STATE state = PollStateOf(*result);
    RECORD cards = RECORD::object();
    std::string text = std::string("polling: ") + (state.enabled ? "on" : "off");
    for (const auto& [address, on] : state.cards) {
      const std::string digit(1, client::AddressDigit(address));
      cards[digit] = on;
      text += "\n" + digit + ": " + (on ? "on" : "off");
    }
    context.output.Put(text, {{"type", "polling"}, {"enabled", state.enabled}, {"cards", cards}});
    return;
  }
  const bool on = ReadSwitch(arguments.words.front(), "poll");
  if (arguments.words.size() == 1) {
    DoAndTell(context, client::EnablePolling(on));
    return;
  }
  const int address = ReadAddress(arguments.words[1]);
  const CARD_TYPE& type = FindAnyCard(context, address);
  if (type.inputBlocks == 0) {
    throw FAILURE(EXIT_STATUS::kNoSuch, std::string("card ") + client::AddressDigit(address) +
                                            " is " + type.word + ": only input cards are polled");
  }
  DoAndTell(context, client::PollCard(address, on));
}

void DeclareSpeed(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("N", arguments.words, "1 to 100")->expected(0, 1);
}

void RunSpeed(CONTEXT& context, const ARGUMENTS& arguments) {
  if (arguments.words.empty()) {
    throw FAILURE(EXIT_STATUS::kUsage,
                  "vorn does not tell its speed; 'vornctl speed N' sets it, 1 to 100");
  }
  const auto percent = ReadDecimal(arguments.words.front());
  if (!percent) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + arguments.words.front() + "' is no speed: 1 to 100");
  }
  DoAndTell(context, Checked([&] { return client::SetSpeed(*percent); }));
}

void DeclareVersion(CLI::App& /*command*/, ARGUMENTS& /*arguments*/) {
}

void RunVersion(CONTEXT& context, const ARGUMENTS& /*arguments*/) {
  if (const auto result = Do(context, client::AskVersion())) {
    const auto* version = std::get_if<std::string>(&result->value);
    const std::string text = version == nullptr ? std::string() : *version;
    context.output.Put(text, {{"type", "version"}, {"version", text}});
  }
}

void DeclareStatus(CLI::App& command, ARGUMENTS& arguments) {
  command
      .add_option("--only", arguments.only,
                  "look at these interfaces only: cae, io, mon; the others stay untouched")
      ->delimiter(',')
      ->check(CLI::IsMember({"cae", "io", "mon"}).description(""))
      ->type_name("NAME,...");
}

void RunStatus(CONTEXT& context, const ARGUMENTS& arguments) {
  struct ROW {
    const char* word;
    INTERFACE interface;
  };
  constexpr ROW kRows[] = {
      {"cae", INTERFACE::kCae}, {"io", INTERFACE::kIo}, {"mon", INTERFACE::kMon}};
  std::vector<INTERFACE> looked;
  for (const ROW& row : kRows) {
    if (arguments.only.empty() ||
        std::find(arguments.only.begin(), arguments.only.end(), row.word) != arguments.only.end()) {
      looked.push_back(row.interface);
    }
  }
  context.link.Try(looked);
  RECORD interfaces = RECORD::object();
  std::string text;
  std::optional<FAILURE> failure;
  for (const ROW& row : kRows) {
    if (std::find(looked.begin(), looked.end(), row.interface) == looked.end()) {
      continue;
    }
    const bool isReady = context.link.IsReady(row.interface);
    const bool isTaken = context.link.Trouble(row.interface) == client::TROUBLE::kTaken;
    interfaces[row.word] = isReady ? "free" : isTaken ? "taken" : "not reached";
    text += std::string(client::NameOf(row.interface)) + ": " +
            (isReady   ? "free"
             : isTaken ? "taken by another client"
                       : "not reached") +
            "\n";
    if (!isReady && !isTaken && !failure) {
      failure = context.link.FailureOf(row.interface);
    }
  }
  RECORD record = {{"type", "status"}, {"interfaces", interfaces}};
  if (context.link.IsReady(INTERFACE::kCae)) {
    const client::CAE_RESULT version = context.link.Ask(client::AskVersion());
    const client::POLL_STATE polling = PollStateOf(context.link.Ask(client::AskPollState()));
    const client::CARD_LIST& cards = context.link.Cards();
    const auto present = std::count_if(cards.begin(), cards.end(),
                                       [](CARD_KIND kind) { return kind != CARD_KIND::kEmpty; });
    if (const auto* number = std::get_if<std::string>(&version.value)) {
      record["version"] = *number;
      text += "version: " + *number + "\n";
    }
    record["polling"] = polling.enabled;
    record["cardCount"] = present;
    text += std::string("polling: ") + (polling.enabled ? "on" : "off") +
            "\ncards: " + std::to_string(present) + "\n";
  }
  text.pop_back();
  context.output.Put(text, record);
  if (failure) {
    throw FAILURE(*failure);
  }
}

}  // namespace ctl
