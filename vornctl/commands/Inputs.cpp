#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>

// get, watch and wait: what looks at inputs.
namespace ctl {

namespace {

using client::CARD_TYPE;
using client::INTERFACE;

constexpr std::chrono::milliseconds kLineAfterAnswer{1000};

enum class ALL : std::uint8_t { kInputs, kThatCanBeAsked };

/// The inputs that the words mean; a card stands for all of its channels, "all" for all inputs, or
/// for those that can be asked for.
std::vector<PLACE> FindInputs(CONTEXT& context, const std::vector<std::string>& words,
                              ALL all = ALL::kInputs) {
  std::vector<PLACE> places;
  const auto addCard = [&](int address, const CARD_TYPE& type) {
    const std::vector<PLACE> channels = ChannelsOf(address, type);
    places.insert(places.end(), channels.begin(), channels.end());
  };
  for (const std::string& word : words) {
    if (word == "all") {
      for (int address = 0; address < client::kAddresses; ++address) {
        const CARD_TYPE& type = client::TypeOf(context.link.KindOf(address));
        if (type.inputBlocks > 0 && (type.canBeAsked || all == ALL::kInputs)) {
          addCard(address, type);
        }
      }
      continue;
    }
    const PLACE place = FindPlace(word, context.link.Settings().names);
    const CARD_TYPE& type = FindAnyCard(context, place.address);
    if (type.inputBlocks == 0) {
      throw FAILURE(EXIT_STATUS::kUsage, TitleOf(place) + " cannot be read: card " +
                                             client::AddressDigit(place.address) + " is " +
                                             type.word +
                                             ", and vorn does not tell what its outputs are");
    }
    if (place.kind == PLACE_KIND::kCard) {
      addCard(place.address, type);
    } else {
      BlockOf(place, type);
      places.push_back(place);
    }
  }
  return places;
}

int BlockOfInput(CONTEXT& context, const PLACE& place) {
  return BlockOf(place, client::TypeOf(context.link.KindOf(place.address)));
}

/// Asks for the last state of a block and waits for the line that brings it. Nothing where the card
/// cannot be asked, or no line comes.
std::optional<std::uint8_t> AskBlock(CONTEXT& context, int address, int block) {
  std::optional<std::uint8_t> value;
  context.link.OnBlock([&](const client::BLOCK_VALUE& told, const std::string& /*line*/) {
    if (told.address == address && told.block == block) {
      value = told.value;
    }
  });
  // The handler ends with this function, however it ends.
  const std::unique_ptr<LINK, void (*)(LINK*)> guard(&context.link,
                                                     [](LINK* link) { link->OnBlock({}); });
  context.link.Ask(client::AskLastInput(address, block));
  context.link.RunUntil([&] { return value.has_value(); }, client::CLOCK::now() + kLineAfterAnswer);
  return value;
}

struct EXPECTATION {
  PLACE place;
  std::string value;
};

/// What the place must say, in the same words as it is shown; percentages by the nearest byte.
std::string Expected(const EXPECTATION& expectation, const CARD_TYPE& type) {
  const std::string& value = expectation.value;
  const std::string title = TitleOf(expectation.place);
  switch (expectation.place.kind) {
    case PLACE_KIND::kCard:
      break;
    case PLACE_KIND::kBlock:
      return client::HexByte(ReadByte(value, title));
    case PLACE_KIND::kChannel:
      if (type.form == client::VALUE_FORM::kActiveHigh) {
        return ReadSwitch(value, title) ? "on" : "off";
      }
      return Read(expectation.place, type, ReadLevel(value, type, title)).value_or(READING{}).text;
    case PLACE_KIND::kKey:
    case PLACE_KIND::kEncoder:
      constexpr int kLargestCode = 127;
      int code = 0;
      if (value == "none" && expectation.place.kind == PLACE_KIND::kKey) {
        return value;
      }
      if (!CLI::detail::lexical_cast(value, code) || code < 0 || code > kLargestCode) {
        throw FAILURE(EXIT_STATUS::kUsage, title + ": '" + value + "' is no number, 0 to 127");
      }
      return std::to_string(code);
  }
  throw FAILURE(EXIT_STATUS::kUsage, title + " is a card: name a channel of it");
}

}  // namespace

void DeclareGet(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("inputs", arguments.words, "WHAT: channels, blocks, cards, names or 'all'")
      ->required();
}

void RunGet(CONTEXT& context, const ARGUMENTS& arguments) {
  if (!context.dryRun) {
    context.link.Open({INTERFACE::kCae}, {INTERFACE::kIo, INTERFACE::kMon});
  }
  const std::vector<PLACE> places = FindInputs(context, arguments.words, ALL::kThatCanBeAsked);
  std::map<std::pair<int, int>, std::uint8_t> values;
  for (const PLACE& place : places) {
    const CARD_TYPE& type = client::TypeOf(context.link.KindOf(place.address));
    const int block = BlockOf(place, type);
    if (!type.canBeAsked) {
      throw FAILURE(EXIT_STATUS::kUsage, TitleOf(place) + " cannot be asked for: card " +
                                             client::AddressDigit(place.address) + " is " +
                                             type.word + "; watch it");
    }
    if (values.contains({place.address, block})) {
      continue;
    }
    if (context.dryRun) {
      Do(context, client::AskLastInput(place.address, block));
      values[{place.address, block}] = 0;
      continue;
    }
    std::optional<std::uint8_t> value;
    if (context.link.IsReady(INTERFACE::kIo) || context.link.IsReady(INTERFACE::kMon)) {
      value = AskBlock(context, place.address, block);
    }
    if (!value) {
      // Without a client of IO there is no line: it must be this one then.
      context.link.Open({INTERFACE::kIo});
      value = AskBlock(context, place.address, block);
    }
    if (!value) {
      throw FAILURE(EXIT_STATUS::kTimeout, TitleOf(place) + ": vorn has sent no state of it");
    }
    values[{place.address, block}] = *value;
  }
  if (context.dryRun) {
    return;
  }
  for (const PLACE& place : places) {
    const CARD_TYPE& type = client::TypeOf(context.link.KindOf(place.address));
    const std::uint8_t block = values.at({place.address, BlockOf(place, type)});
    const READING reading = Read(place, type, block).value_or(READING{});
    const std::string text =
        places.size() == 1 ? reading.text : TitleOf(place) + ": " + reading.text;
    context.output.Put(text, ReadingRecord("value", place, type, reading));
  }
}

namespace {

/// What a watch looks at: all that changes where no place is named.
std::vector<PLACE> PlacesToWatch(CONTEXT& context, const ARGUMENTS& arguments) {
  if (!arguments.words.empty()) {
    return FindInputs(context, arguments.words);
  }
  return {};
}

}  // namespace

void LearnStates(CONTEXT& context, CHANGES& changes, const std::vector<PLACE>& places) {
  std::set<std::pair<int, int>> blocks;
  for (const PLACE& place : places) {
    blocks.insert({place.address, BlockOfInput(context, place)});
  }
  if (places.empty()) {
    for (int address = 0; address < client::kAddresses; ++address) {
      const CARD_TYPE& type = client::TypeOf(context.link.KindOf(address));
      for (int block = 0; block < type.inputBlocks; ++block) {
        blocks.insert({address, block});
      }
    }
  }
  for (const auto& [address, block] : blocks) {
    if (client::TypeOf(context.link.KindOf(address)).canBeAsked) {
      if (const auto value = AskBlock(context, address, block)) {
        changes.Learn({address, block, *value});
      }
    }
  }
}

void DeclareWatch(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("inputs", arguments.words,
                     "WHAT: channels, blocks, cards, names; all inputs if none is named");
  command.add_flag("--monitor", arguments.monitor, "look on through MON, and leave IO to others");
  command.add_option("--count", arguments.count, "end after so many changes")
      ->check(CLI::Range(1, 1'000'000'000).description(""))
      ->type_name("N");
  command.add_option("--for", arguments.forSeconds, "end after so long")
      ->check(CLI::Range(0.0, 1e8).description(""))
      ->type_name("S");
  command.add_flag("--raw", arguments.raw, "the lines as they come");
}

void RunWatch(CONTEXT& context, const ARGUMENTS& arguments) {
  const INTERFACE source = arguments.monitor ? INTERFACE::kMon : INTERFACE::kIo;
  const client::TIME end = TimeAfter(arguments.forSeconds);
  const bool needsCards = !arguments.raw || !arguments.words.empty();
  if (needsCards) {
    context.link.Open({source}, {INTERFACE::kCae});
  } else {
    context.link.Open({source});
  }
  const std::vector<PLACE> places = PlacesToWatch(context, arguments);
  CHANGES changes(context.link, places);
  if (needsCards && context.link.IsReady(INTERFACE::kCae)) {
    context.link.Cards();
    if (!arguments.monitor && !arguments.raw) {
      LearnStates(context, changes, places);
    }
    if (!context.isLong) {
      context.link.Leave(INTERFACE::kCae);
    }
  }
  int shown = 0;
  const auto isEnough = [&] { return arguments.count > 0 && shown >= arguments.count; };
  context.link.OnBlock([&](const client::BLOCK_VALUE& value, const std::string& line) {
    for (const CHANGE& change : changes.Take(value)) {
      if (isEnough()) {
        return;
      }
      ++shown;
      const std::string text = arguments.raw ? line : ChangeText(change);
      context.output.Put(text, ChangeRecord(change, line));
      if (arguments.raw) {
        return;  // the line tells all of its changes
      }
    }
  });
  const std::unique_ptr<LINK, void (*)(LINK*)> guard(&context.link,
                                                     [](LINK* link) { link->OnBlock({}); });
  context.link.RunUntil(isEnough, end, {source});
}

void DeclareWait(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("condition", arguments.words, "WHAT=VALUE")->required()->expected(1);
  command.add_option("--for", arguments.forSeconds, "wait at most so long")
      ->check(CLI::Range(0.0, 1e8).description(""))
      ->type_name("S");
}

void RunWait(CONTEXT& context, const ARGUMENTS& arguments) {
  const std::string& word = arguments.words.front();
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw FAILURE(EXIT_STATUS::kUsage,
                  "'" + word + "' is no condition: WHAT=VALUE, such as 3.6=on");
  }
  const client::TIME end = TimeAfter(arguments.forSeconds);
  const EXPECTATION expectation = {FindPlace(word.substr(0, equals), context.link.Settings().names),
                                   word.substr(equals + 1)};
  const PLACE& place = expectation.place;
  context.link.Open({INTERFACE::kIo}, {INTERFACE::kCae});
  FindInputs(context, {word.substr(0, equals)});
  const CARD_TYPE& type = FindAnyCard(context, place.address);
  const int block = BlockOf(place, type);
  const std::string expected = Expected(expectation, type);
  bool isSo = false;
  READING reading;
  const auto look = [&](std::uint8_t value) {
    reading = Read(place, type, value).value_or(READING{});
    isSo = reading.text == expected;
  };
  if (type.canBeAsked && context.link.IsReady(INTERFACE::kCae)) {
    if (const auto value = AskBlock(context, place.address, block)) {
      look(*value);
    }
  }
  context.link.OnBlock([&](const client::BLOCK_VALUE& told, const std::string& /*line*/) {
    if (!isSo && told.address == place.address && told.block == block) {
      look(told.value);
    }
  });
  const std::unique_ptr<LINK, void (*)(LINK*)> guard(&context.link,
                                                     [](LINK* link) { link->OnBlock({}); });
  if (!context.link.RunUntil([&] { return isSo; }, end, {INTERFACE::kIo})) {
    throw FAILURE(EXIT_STATUS::kTimeout, TitleOf(place) + " is not " + expectation.value + " yet");
  }
  context.output.PutRecord(ReadingRecord("value", place, type, reading));
}

}  // namespace ctl
