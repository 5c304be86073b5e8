#include "vornctl/Changes.h"
#include "vornctl/Finally.h"
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
    for (const PLACE& place : ChannelsOf(address, type)) {
      places.push_back(WithName(place, context.link.Settings().names));
    }
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
      throw FAILURE(EXIT_STATUS::kNoSuch, TitleOf(place) + " cannot be read: card " +
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

/// Asks for the last state of a block and waits for the line that brings it. Nothing where no line
/// comes.
std::optional<std::uint8_t> AskBlock(CONTEXT& context, int address, int block) {
  std::optional<std::uint8_t> value;
  const LINK::LISTENER listener =
      context.link.Listen([&](const client::BLOCK_VALUE& told, const std::string& /*line*/) {
        if (told.address == address && told.block == block) {
          value = told.value;
        }
      });
  context.link.Ask(client::AskLastInput(address, block));
  context.link.RunUntil([&] { return value.has_value(); }, client::CLOCK::now() + kLineAfterAnswer);
  return value;
}

struct EXPECTATION {
  PLACE place;
  std::string value;
  enum { kIs, kAtLeast, kAtMost } relation = kIs;
};

/// WHAT=VALUE, WHAT>=VALUE or WHAT<=VALUE.
EXPECTATION ReadExpectation(const std::string& word, const SETTINGS& settings) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw FAILURE(EXIT_STATUS::kUsage,
                  "'" + word + "' is no condition: WHAT=VALUE, such as 3.6=on, or 'F.3>=50%'");
  }
  EXPECTATION expectation;
  const char before = word[equals - 1];
  expectation.relation = before == '>'   ? EXPECTATION::kAtLeast
                         : before == '<' ? EXPECTATION::kAtMost
                                         : EXPECTATION::kIs;
  const std::size_t end = expectation.relation == EXPECTATION::kIs ? equals : equals - 1;
  expectation.place = FindPlace(word.substr(0, end), settings.names);
  expectation.value = word.substr(equals + 1);
  return expectation;
}

/// What the place must say: a switch by its word, all else by the byte.
using IS_SO = std::function<bool(const READING& reading)>;

IS_SO ConditionOf(const EXPECTATION& expectation, const CARD_TYPE& type) {
  const std::string title = TitleOf(expectation.place);
  const std::string& value = expectation.value;
  const bool isSwitch = expectation.place.kind == PLACE_KIND::kChannel &&
                        type.form == client::VALUE_FORM::kActiveHigh;
  const bool isNone = expectation.place.kind == PLACE_KIND::kKey && value == "none";
  if (isSwitch || isNone) {
    if (expectation.relation != EXPECTATION::kIs) {
      throw FAILURE(EXIT_STATUS::kUsage, title + " is or is not: " + title + "=" + value);
    }
    const std::string text = isNone ? value : ReadSwitch(value, title) ? "on" : "off";
    return [text](const READING& reading) { return reading.text == text; };
  }
  int wanted = 0;
  constexpr int kLargestCode = 127;
  constexpr int kFirstEncoderCode = 128;
  switch (expectation.place.kind) {
    case PLACE_KIND::kCard:
      throw FAILURE(EXIT_STATUS::kUsage, title + " is a card: name a channel of it");
    case PLACE_KIND::kBlock:
      wanted = ReadByte(value, title);
      break;
    case PLACE_KIND::kChannel:
      wanted = ReadLevel(value, type, title);
      break;
    case PLACE_KIND::kKey:
    case PLACE_KIND::kEncoder:
      wanted = ReadDecimal(value).value_or(-1);
      if (wanted < 0 || wanted > kLargestCode) {
        throw FAILURE(EXIT_STATUS::kUsage, title + ": '" + value + "' is no number, 0 to 127");
      }
      wanted += expectation.place.kind == PLACE_KIND::kEncoder ? kFirstEncoderCode : 0;
      break;
  }
  return [wanted, relation = expectation.relation](const READING& reading) {
    const int is = reading.block;
    return relation == EXPECTATION::kAtLeast  ? is >= wanted
           : relation == EXPECTATION::kAtMost ? is <= wanted
                                              : is == wanted;
  };
}

}  // namespace

void DeclareGet(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("WHAT", arguments.words, "WHAT: channels, blocks, cards, names or 'all'")
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

void TellStates(CONTEXT& context, const std::vector<PLACE>& places) {
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
      AskBlock(context, address, block);
    }
  }
}

void DeclareWatch(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("WHAT", arguments.words,
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

namespace {

/// The lines as they come, of the named inputs or all; --count counts lines.
void WatchLines(CONTEXT& context, const std::vector<PLACE>& places, INTERFACE source,
                const std::function<bool()>& take) {
  context.link.OnAnyLine([&context, places, source, take](INTERFACE interface,
                                                          const std::string& line) {
    const auto value = client::ReadBlockLine(line);
    const bool isWanted =
        places.empty() ||
        (value && std::any_of(places.begin(), places.end(), [&](const PLACE& place) {
           return place.address == value->address && BlockOfInput(context, place) == value->block;
         }));
    if (interface == source && isWanted && take()) {
      context.output.Put(line, {{"type", "raw"},
                                {"time", TimeForPrograms(std::chrono::system_clock::now())},
                                {"interface", client::NameOf(interface)},
                                {"line", line}});
    }
  });
}

}  // namespace

void RunWatch(CONTEXT& context, const ARGUMENTS& arguments) {
  if (context.dryRun) {
    return;
  }
  const INTERFACE source = arguments.monitor ? INTERFACE::kMon : INTERFACE::kIo;
  TimeAfter(arguments.forSeconds);  // refuses it before anything is done
  const bool needsCards = !arguments.raw || !arguments.words.empty();
  if (needsCards) {
    // Where CAE pauses after a client it is worth the wait: it knows the cards. Where it is taken
    // it is not.
    context.link.Try({source, INTERFACE::kCae});
  }
  context.link.Open({source});
  const std::vector<PLACE> places =
      arguments.words.empty() ? std::vector<PLACE>{} : FindInputs(context, arguments.words);
  int shown = 0;
  const auto isEnough = [&] { return arguments.count > 0 && shown >= arguments.count; };
  const auto take = [&] { return !isEnough() && ++shown > 0; };
  const FINALLY silence([&] { context.link.OnAnyLine({}); });
  if (arguments.raw) {
    WatchLines(context, places, source, take);
  }
  // From here on no change is missed; the first line of a block that is asked for is no news.
  CHANGES changes(context.link, places);
  bool isLearning = !arguments.raw && !arguments.monitor;
  const LINK::LISTENER listener =
      context.link.Listen([&](const client::BLOCK_VALUE& value, const std::string& line) {
        if (isLearning && !changes.Knows(value)) {
          changes.Learn(value);
        } else if (!arguments.raw) {
          for (const CHANGE& change : changes.Take(value)) {
            if (take()) {
              context.output.Put(ChangeText(change), ChangeRecord(change, line));
            }
          }
        }
      });
  if (needsCards && context.link.IsReady(INTERFACE::kCae)) {
    context.link.Cards();
    if (isLearning) {
      TellStates(context, places);
    }
  }
  if (needsCards && !context.isLong) {
    // Also where it has not come yet: nobody else could have it as long as this watches.
    context.link.Leave(INTERFACE::kCae);
  }
  isLearning = false;
  context.link.LookAtReader(true);
  const FINALLY look([&] { context.link.LookAtReader(false); });
  context.link.RunUntil([&] { return isEnough() || context.output.IsReaderGone(); },
                        TimeAfter(arguments.forSeconds), {source});
}

void DeclareWait(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("WHAT", arguments.words, "WHAT=VALUE")->required()->expected(1);
  command.add_option("--for", arguments.forSeconds, "wait at most so long")
      ->check(CLI::Range(0.0, 1e8).description(""))
      ->type_name("S");
}

void RunWait(CONTEXT& context, const ARGUMENTS& arguments) {
  TimeAfter(arguments.forSeconds);  // refuses it before anything is done
  const EXPECTATION expectation = ReadExpectation(arguments.words.front(), context.link.Settings());
  const PLACE& place = expectation.place;
  if (context.dryRun) {
    return;
  }
  context.link.Open({INTERFACE::kIo}, {INTERFACE::kCae});
  FindInputs(context, {place.name.empty() ? TextOf(place) : place.name});
  const CARD_TYPE& type = FindAnyCard(context, place.address);
  const int block = BlockOf(place, type);
  const IS_SO isIt = ConditionOf(expectation, type);
  bool isSo = false;
  READING reading;
  const LINK::LISTENER listener =
      context.link.Listen([&](const client::BLOCK_VALUE& told, const std::string& /*line*/) {
        const auto now = told.address == place.address && told.block == block
                             ? Read(place, type, told.value)
                             : std::nullopt;
        if (now && !isSo) {
          reading = *now;
          isSo = isIt(reading);
        }
      });
  const client::TIME end = TimeAfter(arguments.forSeconds);
  if (type.canBeAsked && context.link.IsReady(INTERFACE::kCae)) {
    AskBlock(context, place.address, block);
  }
  if (!context.link.RunUntil([&] { return isSo; }, end, {INTERFACE::kIo})) {
    throw FAILURE(EXIT_STATUS::kTimeout,
                  arguments.words.front() + " is not so yet" +
                      (reading.text.empty() ? "" : ": " + TitleOf(place) + " is " + reading.text));
  }
  context.output.PutRecord(ReadingRecord("value", place, type, reading));
}

}  // namespace ctl
