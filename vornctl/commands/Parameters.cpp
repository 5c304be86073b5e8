#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

// param, store, recall and reboot: what a card keeps.
namespace ctl {

namespace {

using client::CARD_KIND;
using client::CARD_PARAMETER;
using client::CARD_TYPE;
using client::PARAMETER;

/// A parameter of one channel, or of the card.
struct CHOSEN {
  const CARD_PARAMETER* row;
  int channel;
};

std::string NameOf(const CHOSEN& chosen) {
  return chosen.row->channels > 1 ? chosen.row->name + std::to_string(chosen.channel)
                                  : std::string(chosen.row->name);
}

/// All parameters of a type, or those that the name means: endA3, or endA for all of its channels.
std::vector<CHOSEN> Choose(const CARD_TYPE& type, const std::string& name) {
  std::vector<CHOSEN> chosen;
  std::string known;
  for (const CARD_PARAMETER& row : client::kCardParameters) {
    if (row.kind != type.kind) {
      continue;
    }
    known += (known.empty() ? "" : ", ") + NameOf({&row, 0}) +
             (row.channels > 1 ? " to " + NameOf({&row, row.channels - 1}) : "");
    for (int channel = 0; channel < row.channels; ++channel) {
      const CHOSEN one = {&row, channel};
      if (name.empty() || name == row.name || name == NameOf(one)) {
        chosen.push_back(one);
      }
    }
  }
  if (chosen.empty()) {
    throw FAILURE(EXIT_STATUS::kNoSuch,
                  (name.empty() ? "no parameters" : "no parameter '" + name + "'") +
                      std::string(": a card of type ") + type.word + " has " +
                      (known.empty() ? "none" : known));
  }
  return chosen;
}

/// What the byte means, in words; empty where it is just a number.
std::string InWords(PARAMETER parameter, std::uint8_t value) {
  if (parameter == PARAMETER::kSilentRange) {
    return value == 0 ? "manual mode" : "";
  }
  if (parameter != PARAMETER::kMask) {
    return {};
  }
  std::string channels;
  for (int channel = 0; channel < client::TypeOf(CARD_KIND::kAnalogue).channels; ++channel) {
    if (((value >> channel) & 1) != 0) {
      channels += (channels.empty() ? "channels " : ", ") + std::to_string(channel);
    }
  }
  return channels.empty() ? "no channel" : channels;
}

void ShowOne(CONTEXT& context, int address, const CHOSEN& chosen, bool isOnly) {
  const std::string name = NameOf(chosen);
  if (!chosen.row->canBeRead) {
    if (isOnly) {
      throw FAILURE(EXIT_STATUS::kUsage,
                    name + " can only be set: " + name + "=on, " + name + "=off");
    }
    context.output.Put(name + ": can only be set (" + chosen.row->about + ")",
                       {{"type", "parameter"},
                        {"card", std::string(1, client::AddressDigit(address))},
                        {"parameter", name},
                        {"value", nullptr},
                        {"about", chosen.row->about}});
    return;
  }
  const auto result =
      Do(context, client::AskParameter(address, chosen.row->parameter, chosen.channel));
  if (!result) {
    return;
  }
  const auto* value = std::get_if<std::uint8_t>(&result->value);
  const std::uint8_t byte = value == nullptr ? std::uint8_t{0} : *value;
  const std::string words = InWords(chosen.row->parameter, byte);
  const std::string shown = client::HexByte(byte) + (words.empty() ? "" : " (" + words + ")");
  context.output.Put(
      isOnly ? client::HexByte(byte) : name + ": " + shown + "  " + chosen.row->about,
      {{"type", "parameter"},
       {"card", std::string(1, client::AddressDigit(address))},
       {"parameter", name},
       {"value", client::HexByte(byte)},
       {"raw", byte},
       {"about", chosen.row->about}});
}

std::uint8_t ReadParameter(const CHOSEN& chosen, const std::string& text) {
  constexpr std::uint8_t kOn = 0xFF;
  if (chosen.row->isSwitch) {
    return ReadSwitch(text, NameOf(chosen)) ? kOn : std::uint8_t{0};
  }
  return ReadByte(text, NameOf(chosen));
}

/// The request of a card's type; a type without one is no card for this command.
struct CARD_ACTION {
  CARD_KIND kind;
  client::CAE_REQUEST (*make)(int address);
};

void DoWithCard(CONTEXT& context, const std::string& word, const char* what,
                const std::vector<CARD_ACTION>& actions) {
  const int address = ReadAddress(word);
  const CARD_TYPE& type = FindAnyCard(context, address);
  std::string kinds;
  for (const CARD_ACTION& action : actions) {
    if (action.kind == type.kind) {
      DoAndTell(context, action.make(address));
      return;
    }
    kinds += (kinds.empty() ? "" : ", ") + std::string(client::TypeOf(action.kind).word);
  }
  throw FAILURE(EXIT_STATUS::kNoSuch, std::string("card ") + client::AddressDigit(address) +
                                          " is " + type.word + ", which has nothing to " + what +
                                          ": " + kinds + " have");
}

}  // namespace

void DeclareParam(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("CARD", arguments.words, "CARD [NAME[=VALUE]]...")->required();
}

void RunParam(CONTEXT& context, const ARGUMENTS& arguments) {
  const int address = ReadAddress(arguments.words.front());
  const CARD_TYPE& type = FindAnyCard(context, address);
  if (arguments.words.size() == 1) {
    for (const CHOSEN& chosen : Choose(type, {})) {
      ShowOne(context, address, chosen, false);
    }
    return;
  }
  // All is checked before the first is sent.
  std::vector<client::CAE_REQUEST> requests;
  std::vector<CHOSEN> shown;
  for (std::size_t i = 1; i < arguments.words.size(); ++i) {
    const std::string& word = arguments.words[i];
    const std::size_t equals = word.find('=');
    for (const CHOSEN& chosen : Choose(type, word.substr(0, equals))) {
      if (equals == std::string::npos) {
        shown.push_back(chosen);
        continue;
      }
      const std::uint8_t value = ReadParameter(chosen, word.substr(equals + 1));
      requests.push_back(Checked([&] {
        return client::SetParameter(address, chosen.row->parameter, chosen.channel, value);
      }));
    }
  }
  for (const client::CAE_REQUEST& request : requests) {
    DoAndTell(context, request);
  }
  for (const CHOSEN& chosen : shown) {
    ShowOne(context, address, chosen, shown.size() == 1);
  }
}

void DeclareCard(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("CARD", arguments.words, "CARD: its address, 0 to F")->required()->expected(1);
}

void RunStore(CONTEXT& context, const ARGUMENTS& arguments) {
  DoWithCard(context, arguments.words.front(), "store",
             {{CARD_KIND::kAnalogue, client::StoreMask},
              {CARD_KIND::kServo, client::StorePositions},
              {CARD_KIND::kMotor, client::StoreSilentRanges}});
}

void RunRecall(CONTEXT& context, const ARGUMENTS& arguments) {
  DoWithCard(context, arguments.words.front(), "recall",
             {{CARD_KIND::kServo, client::RecallPositions}});
}

void RunReboot(CONTEXT& context, const ARGUMENTS& arguments) {
  const int address = ReadAddress(arguments.words.front());
  if (!context.dryRun) {
    FindAnyCard(context, address);
  }
  // Its outputs go back to their start.
  std::erase_if(context.blocks, [&](const auto& block) { return block.first.first == address; });
  DoAndTell(context, client::Reboot(address));
}

}  // namespace ctl
