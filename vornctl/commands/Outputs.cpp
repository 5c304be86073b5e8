#include "client/IoLine.h"
#include "vornctl/commands/Commands.h"

#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>

// set, pulse and stop: what moves outputs.
namespace ctl {

namespace {

using client::CARD_KIND;
using client::CARD_TYPE;
using client::VALUE_FORM;

struct ASSIGNMENT {
  PLACE place;
  std::string value;
};

/// A block that is to be set, from whatever the assignments say of it.
struct BLOCK {
  int address = 0;
  int number = 0;
  std::optional<std::uint8_t> whole{};
  std::map<int, bool> bits{};
  std::string firstBit{};  ///< for the message where the others are not known
};

ASSIGNMENT ReadAssignment(const std::string& word, const SETTINGS& settings) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw FAILURE(EXIT_STATUS::kUsage,
                  "'" + word + "' is no assignment: WHAT=VALUE, such as 5.10=on");
  }
  const ASSIGNMENT assignment = {FindPlace(word.substr(0, equals), settings.names),
                                 word.substr(equals + 1)};
  CheckForm(assignment.value, TitleOf(assignment.place));
  return assignment;
}

/// The type of the card, which must take blocks. A raw block is set without asking where nobody can
/// be asked.
const CARD_TYPE* FindOutputs(CONTEXT& context, const PLACE& place) {
  const bool isRaw = place.kind == PLACE_KIND::kBlock;
  if (isRaw && !FindKind(context, place.address)) {
    return nullptr;
  }
  const CARD_TYPE& type = FindAnyCard(context, place.address);
  if (type.kind == CARD_KIND::kUnidentified && isRaw) {
    return nullptr;
  }
  if (type.outputBlocks == 0) {
    std::string use = "it has no outputs";
    if (type.inputBlocks > 0) {
      use = "inputs are read: get, watch, wait";
    } else if (type.kind == CARD_KIND::kLcd || type.kind == CARD_KIND::kIr) {
      use = std::string("see 'vornctl ") + type.word + "'";
    }
    throw FAILURE(EXIT_STATUS::kNoSuch, TitleOf(place) + " cannot be set: card " +
                                            client::AddressDigit(place.address) + " is " +
                                            type.word + "; " + use);
  }
  return &type;
}

void CheckRawBlock(const PLACE& place) {
  constexpr int kBlocksOfALine = 8;
  if (place.number >= kBlocksOfALine) {
    throw FAILURE(EXIT_STATUS::kNoSuch,
                  "no block " + TitleOf(place) + ": a card has b0 to b7 at most");
  }
}

BLOCK& Find(std::vector<BLOCK>& blocks, int address, int number) {
  for (BLOCK& block : blocks) {
    if (block.address == address && block.number == number) {
      return block;
    }
  }
  blocks.push_back({address, number});
  return blocks.back();
}

void Assign(CONTEXT& context, std::vector<BLOCK>& blocks, const ASSIGNMENT& assignment) {
  const PLACE& place = assignment.place;
  const CARD_TYPE* type = FindOutputs(context, place);
  if (place.kind == PLACE_KIND::kBlock) {
    type == nullptr ? CheckRawBlock(place) : static_cast<void>(BlockOf(place, *type));
    Find(blocks, place.address, place.number).whole = ReadByte(assignment.value, TitleOf(place));
    return;
  }
  BLOCK& block = Find(blocks, place.address, BlockOf(place, *type));
  if (type->form == VALUE_FORM::kActiveLow) {
    block.bits[place.number % client::kOutputsOfABlock] =
        ReadSwitch(assignment.value, TitleOf(place));
    block.firstBit = block.firstBit.empty() ? TitleOf(place) : block.firstBit;
    return;
  }
  block.whole = ReadLevel(assignment.value, *type, TitleOf(place));
}

/// What --others says of a block: two digits for each, or two for block 0 and two for block 1.
std::optional<std::uint8_t> OthersOf(const std::string& others, int block) {
  if (others.empty()) {
    return std::nullopt;
  }
  constexpr std::size_t kDigits = 2;
  if (others.size() == 2 * kDigits) {
    ReadByte(others.substr(0, kDigits), "--others");
    ReadByte(others.substr(kDigits), "--others");
    return ReadByte(others.substr(static_cast<std::size_t>(block) * kDigits, kDigits), "--others");
  }
  return ReadByte(others, "--others");
}

std::uint8_t ValueOf(const CONTEXT& context, const BLOCK& block, const std::string& others) {
  std::optional<std::uint8_t> value = block.whole;
  if (!value) {
    value = OthersOf(others, block.number);
  }
  const auto known = context.blocks.find({block.address, block.number});
  if (!value && known != context.blocks.end()) {
    value = known->second;
  }
  if (!value && block.bits.size() == client::kOutputsOfABlock) {
    value = 0;  // every bit of it is given
  }
  if (!value) {
    const PLACE whole{block.address, PLACE_KIND::kBlock, block.number, {}};
    throw FAILURE(EXIT_STATUS::kUsage,
                  block.firstBit +
                      ": its eight outputs are set together, and vorn does not tell the others: "
                      "--others HEX says them (FF: all off), or set the block, such as " +
                      TextOf(whole) + "=FB");
  }
  std::uint8_t byte = *value;
  for (const auto& [bit, on] : block.bits) {
    byte = client::WithBit(VALUE_FORM::kActiveLow, byte, bit, on);
  }
  return byte;
}

/// One line for each block.
std::vector<std::string> LinesOf(const CONTEXT& context, const std::vector<BLOCK>& blocks,
                                 const std::string& others) {
  std::vector<std::string> lines;
  lines.reserve(blocks.size());
  for (const BLOCK& block : blocks) {
    lines.push_back(
        client::BlockLine(block.address, block.number, ValueOf(context, block, others)));
  }
  return lines;
}

}  // namespace

void DeclareSet(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("WHAT", arguments.words, "WHAT=VALUE")->required();
  command.add_option("--others", arguments.others, "byte of the other outputs of a block")
      ->type_name("HEX");
}

void RunSet(CONTEXT& context, const ARGUMENTS& arguments) {
  std::vector<ASSIGNMENT> assignments;
  assignments.reserve(arguments.words.size());
  for (const std::string& word : arguments.words) {
    assignments.push_back(ReadAssignment(word, context.link.Settings()));
  }
  OthersOf(arguments.others, 0);
  OpenForSending(context);
  std::vector<BLOCK> blocks;
  for (const ASSIGNMENT& assignment : assignments) {
    Assign(context, blocks, assignment);
  }
  SendLines(context, LinesOf(context, blocks, arguments.others));
}

void DeclarePulse(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("WHAT", arguments.words, "WHAT [MS]")->required()->expected(1, 2);
  command.add_option("--others", arguments.others, "byte of the other outputs of the block")
      ->type_name("HEX");
}

namespace {

/// Switches it on, waits, and switches it off whatever happens meanwhile; of both is told together
/// what became of them.
void Pulse(CONTEXT& context, const PLACE& place, const std::string& others,
           std::chrono::milliseconds length) {
  const auto send = [&](const char* state) {
    std::vector<BLOCK> blocks;
    Assign(context, blocks, {place, state});
    const std::string line = LinesOf(context, blocks, others).front();
    SendLine(context, line);
    return line;
  };
  std::vector<std::string> lines;
  std::optional<INTERRUPTED> interrupted;
  try {
    lines.push_back(send("on"));
  } catch (const INTERRUPTED& signal) {
    interrupted = signal;  // it may be on its way all the same
  }
  try {
    if (!interrupted) {
      context.link.RunUntil([] { return false; }, client::CLOCK::now() + length,
                            {client::INTERFACE::kIo});
    }
  } catch (const INTERRUPTED& signal) {
    interrupted = signal;
  } catch (const FAILURE& failure) {
    throw FAILURE(failure.Status(),
                  std::string(failure.what()) + "; " + TitleOf(place) + " is still on");
  }
  lines.push_back(send("off"));
  TellSent(context, lines);
  if (interrupted) {
    throw INTERRUPTED(*interrupted);
  }
}

}  // namespace

void RunPulse(CONTEXT& context, const ARGUMENTS& arguments) {
  constexpr int kDefaultMs = 500;
  constexpr int kLongestMs = 3'600'000;
  int lengthMs = kDefaultMs;
  if (arguments.words.size() == 2) {
    lengthMs = ReadDecimal(arguments.words[1]).value_or(0);
    if (lengthMs < 1 || lengthMs > kLongestMs) {
      throw FAILURE(EXIT_STATUS::kUsage,
                    "'" + arguments.words[1] + "' is no length: milliseconds, 1 to 3600000");
    }
  }
  const PLACE place = FindPlace(arguments.words[0], context.link.Settings().names);
  OthersOf(arguments.others, 0);
  OpenForSending(context);
  const CARD_TYPE* type = FindOutputs(context, place);
  if (type == nullptr || type->form != VALUE_FORM::kActiveLow ||
      place.kind != PLACE_KIND::kChannel) {
    throw FAILURE(EXIT_STATUS::kNoSuch,
                  TitleOf(place) + " is no digital output: only those are pulsed");
  }
  if (!context.dryRun) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      LetSignalEndCommand(signal);
    }
    Pulse(context, place, arguments.others, std::chrono::milliseconds(lengthMs));
    return;
  }
  for (const char* state : {"on", "off"}) {
    std::vector<BLOCK> blocks;
    Assign(context, blocks, {place, state});
    SendLines(context, LinesOf(context, blocks, arguments.others));
  }
}

void DeclareStop(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("CARD", arguments.words, "CARD: only the motors of that one")->expected(0, 1);
}

namespace {

/// The motor cards, or the one that is named: that is stopped, too, where nobody can be asked what
/// it is.
std::vector<int> FindMotors(CONTEXT& context, const std::vector<std::string>& words) {
  if (!words.empty()) {
    const int address = ReadAddress(words.front());
    if (FindKind(context, address)) {
      FindCard(context, words.front(), CARD_KIND::kMotor);
    }
    return {address};
  }
  std::vector<int> cards;
  try {
    for (int address = 0; address < client::kAddresses; ++address) {
      if (context.link.KindOf(address) == CARD_KIND::kMotor) {
        cards.push_back(address);
      }
    }
  } catch (const FAILURE& failure) {
    throw FAILURE(failure.Status(), std::string(failure.what()) +
                                        "; a card that is named is stopped all the same: stop 1");
  }
  if (cards.empty()) {
    throw FAILURE(EXIT_STATUS::kNoSuch, "there is no motor card: 'vornctl cards' lists the cards");
  }
  return cards;
}

}  // namespace

void RunStop(CONTEXT& context, const ARGUMENTS& arguments) {
  if (!arguments.words.empty()) {
    ReadAddress(arguments.words.front());
  }
  OpenForSending(context);
  std::vector<std::string> lines;
  for (const int address : FindMotors(context, arguments.words)) {
    for (int motor = 0; motor < client::TypeOf(CARD_KIND::kMotor).channels; ++motor) {
      lines.push_back(client::BlockLine(address, motor, 0));
    }
  }
  SendLines(context, lines);
}

}  // namespace ctl
