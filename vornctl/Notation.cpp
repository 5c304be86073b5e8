#include "vornctl/Notation.h"

#include "client/BadValue.h"
#include "vornctl/ExitStatus.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace ctl {

namespace {

using client::CARD_TYPE;
using client::VALUE_FORM;

constexpr int kFirstEncoderCode = 0x80;

bool IsDigit(char sign) {
  return sign >= '0' && sign <= '9';
}

/// Of a channel; -1 for anything else.
int ReadNumber(std::string_view text) {
  constexpr std::size_t kMostDigits = 3;
  return text.size() > kMostDigits ? -1 : ReadDecimal(text).value_or(-1);
}

bool IsBit(const CARD_TYPE& type) {
  return type.form == VALUE_FORM::kActiveLow || type.form == VALUE_FORM::kActiveHigh;
}

std::string OfCard(const PLACE& place, const CARD_TYPE& type) {
  return std::string("card ") + client::AddressDigit(place.address) + " is " + type.word;
}

[[noreturn]] void RefuseChannel(const PLACE& place, const CARD_TYPE& type) {
  std::string has = "has no channels";
  if (type.form == VALUE_FORM::kKeys) {
    has = "has key and encoder";
  } else if (type.channels > 0) {
    has = "has channels 0 to " + std::to_string(type.channels - 1);
  }
  throw FAILURE(EXIT_STATUS::kNoSuch,
                "no channel " + TitleOf(place) + ": " + OfCard(place, type) + ", which " + has);
}

std::string Percentage(double percent) {
  std::array<char, 16> text{};
  // One digit behind the point is finer than a byte's step.
  std::snprintf(text.data(), text.size(), "%.1f", percent);
  std::string shown(text.data());
  if (shown.ends_with(".0")) {
    shown.resize(shown.size() - 2);
  }
  return (shown == "-0" ? "0" : shown) + "%";
}

}  // namespace

std::optional<int> ReadDecimal(std::string_view text) {
  constexpr std::size_t kMostDigits = 9;
  constexpr int kBase = 10;
  if (text.empty() || text.size() > kMostDigits ||
      !std::all_of(text.begin(), text.end(), IsDigit)) {
    return std::nullopt;
  }
  int number = 0;
  for (const char digit : text) {
    number = number * kBase + (digit - '0');
  }
  return number;
}

std::optional<PLACE> ReadPlace(std::string_view text) {
  if (text.empty()) {
    return std::nullopt;
  }
  const int address = client::ReadDigit(text.front());
  if (address < 0) {
    return std::nullopt;
  }
  PLACE place{address, PLACE_KIND::kCard, 0, {}};
  if (text.size() == 1) {
    return place;
  }
  if (text[1] != '.') {
    return std::nullopt;
  }
  const std::string_view rest = text.substr(2);
  if (rest == "key") {
    place.kind = PLACE_KIND::kKey;
  } else if (rest == "encoder") {
    place.kind = PLACE_KIND::kEncoder;
  } else if (rest.starts_with('b')) {
    place.kind = PLACE_KIND::kBlock;
    place.number = ReadNumber(rest.substr(1));
  } else {
    place.kind = PLACE_KIND::kChannel;
    place.number = ReadNumber(rest);
  }
  return place.number < 0 ? std::nullopt : std::optional(place);
}

std::string TextOf(const PLACE& place) {
  std::string text(1, client::AddressDigit(place.address));
  switch (place.kind) {
    case PLACE_KIND::kCard:
      return text;
    case PLACE_KIND::kChannel:
      return text + "." + std::to_string(place.number);
    case PLACE_KIND::kBlock:
      return text + ".b" + std::to_string(place.number);
    case PLACE_KIND::kKey:
      return text + ".key";
    case PLACE_KIND::kEncoder:
      return text + ".encoder";
  }
  return text;
}

std::string TitleOf(const PLACE& place) {
  return place.name.empty() ? TextOf(place) : place.name;
}

bool IsName(std::string_view text) {
  const auto isLetter = [](char sign) {
    return (sign >= 'a' && sign <= 'z') || (sign >= 'A' && sign <= 'Z');
  };
  return text.size() >= 2 && isLetter(text.front()) &&
         std::all_of(text.begin(), text.end(), [&](char sign) {
           return isLetter(sign) || IsDigit(sign) || sign == '-' || sign == '_';
         });
}

PLACE FindPlace(const std::string& text, const std::map<std::string, std::string>& names) {
  const auto named = names.find(text);
  if (named != names.end()) {
    PLACE place = ReadPlace(named->second).value_or(PLACE{});
    place.name = text;
    return place;
  }
  if (const auto place = ReadPlace(text)) {
    return *place;
  }
  if (IsName(text)) {
    throw FAILURE(EXIT_STATUS::kNoSuch,
                  "no name '" + text + "': names stand in the settings file, under [names]");
  }
  throw FAILURE(EXIT_STATUS::kUsage, "'" + text + "' is no channel: " + kPlaceForms);
}

PLACE WithName(PLACE place, const std::map<std::string, std::string>& names) {
  const std::string text = TextOf(place);
  for (const auto& [name, meaning] : names) {
    const auto named = ReadPlace(meaning);
    if (named && TextOf(*named) == text) {
      place.name = name;
      return place;
    }
  }
  return place;
}

std::vector<PLACE> ChannelsOf(int address, const CARD_TYPE& type) {
  if (type.form == VALUE_FORM::kKeys) {
    return {{address, PLACE_KIND::kKey, 0, {}}, {address, PLACE_KIND::kEncoder, 0, {}}};
  }
  std::vector<PLACE> places;
  places.reserve(static_cast<std::size_t>(type.channels));
  for (int channel = 0; channel < type.channels; ++channel) {
    places.push_back({address, PLACE_KIND::kChannel, channel, {}});
  }
  return places;
}

int BlockOf(const PLACE& place, const CARD_TYPE& type) {
  const int blocks = type.outputBlocks + type.inputBlocks;
  switch (place.kind) {
    case PLACE_KIND::kCard:
      break;
    case PLACE_KIND::kBlock:
      if (place.number >= blocks) {
        throw FAILURE(EXIT_STATUS::kNoSuch,
                      "no block " + TitleOf(place) + ": " + OfCard(place, type) + ", which has " +
                          (blocks == 0 ? "none" : "blocks b0 to b" + std::to_string(blocks - 1)));
      }
      return place.number;
    case PLACE_KIND::kKey:
    case PLACE_KIND::kEncoder:
      if (type.form != VALUE_FORM::kKeys) {
        RefuseChannel(place, type);
      }
      return 0;
    case PLACE_KIND::kChannel:
      if (type.form == VALUE_FORM::kKeys || place.number >= type.channels) {
        RefuseChannel(place, type);
      }
      return IsBit(type) ? place.number / client::kOutputsOfABlock : place.number;
  }
  throw FAILURE(EXIT_STATUS::kUsage, TitleOf(place) + " is a card: name a channel of it, such as " +
                                         TitleOf(place) + ".0");
}

std::optional<READING> Read(const PLACE& place, const CARD_TYPE& type, std::uint8_t block) {
  switch (place.kind) {
    case PLACE_KIND::kCard:
      return std::nullopt;
    case PLACE_KIND::kBlock:
      return READING{client::HexByte(block), block};
    case PLACE_KIND::kKey:
      if (block >= kFirstEncoderCode) {
        return std::nullopt;
      }
      return READING{block == 0 ? "none" : std::to_string(block), block};
    case PLACE_KIND::kEncoder:
      if (block < kFirstEncoderCode) {
        return std::nullopt;
      }
      return READING{std::to_string(block - kFirstEncoderCode), block};
    case PLACE_KIND::kChannel:
      break;
  }
  if (IsBit(type)) {
    const bool isOn = client::IsOn(type.form, block, place.number % client::kOutputsOfABlock);
    return READING{isOn ? "on" : "off", block};
  }
  return READING{Percentage(client::PercentOf(type.form, block)), block};
}

void CheckForm(const std::string& text, const std::string& title) {
  if (text.ends_with('%')) {
    ReadLevel(text, client::TypeOf(client::CARD_KIND::kMotor), title);  // it has the widest range
    return;
  }
  constexpr std::size_t kHexDigits = 2;
  if (text.starts_with("0x") || text.starts_with("0X") ||
      (text.size() == kHexDigits && client::ReadDigit(text.front()) >= 0)) {
    ReadByte(text, title);
    return;
  }
  try {
    ReadSwitch(text, title);
  } catch (const FAILURE&) {
    throw FAILURE(EXIT_STATUS::kUsage, title + ": '" + text +
                                           "' is no value: on, off, a percentage such as 50%, a "
                                           "byte such as 0x80, or FB for a block");
  }
}

bool ReadSwitch(const std::string& text, const std::string& title) {
  std::string word = text;
  std::transform(word.begin(), word.end(), word.begin(),
                 [](unsigned char sign) { return static_cast<char>(std::tolower(sign)); });
  if (word == "on" || word == "off") {
    return word == "on";
  }
  throw FAILURE(EXIT_STATUS::kUsage, title + ": '" + text + "' is neither on nor off");
}

std::uint8_t ReadLevel(const std::string& text, const CARD_TYPE& type, const std::string& title) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    return ReadByte(text, title);
  }
  char* end = nullptr;
  const double percent = std::strtod(text.c_str(), &end);
  const bool isNumber = !text.empty() && end != text.c_str() &&
                        text.find_first_not_of("+-.0123456789%") == std::string::npos;
  if (!isNumber || std::string_view(end) != "%") {
    throw FAILURE(EXIT_STATUS::kUsage, title + ": '" + text +
                                           "' is no value for it: a percentage such as 50%, or a "
                                           "byte such as 0x80");
  }
  try {
    return client::RawOf(type.form, percent);
  } catch (const client::BAD_VALUE& error) {
    throw FAILURE(EXIT_STATUS::kUsage, title + ": " + error.what());
  }
}

std::uint8_t ReadByte(const std::string& text, const std::string& title) {
  std::string_view digits = text;
  if (digits.starts_with("0x") || digits.starts_with("0X")) {
    digits.remove_prefix(2);
  }
  constexpr int kBase = 16;
  if (digits.size() == 2) {
    const int high = client::ReadDigit(digits[0]);
    const int low = client::ReadDigit(digits[1]);
    if (high >= 0 && low >= 0) {
      return static_cast<std::uint8_t>(high * kBase + low);
    }
  }
  throw FAILURE(EXIT_STATUS::kUsage,
                title + ": '" + text + "' is no byte: two hexadecimal digits, such as FB");
}

std::string TypeWords() {
  std::string words;
  for (const CARD_TYPE& type : client::kCardTypes) {
    words += (words.empty() ? "" : ", ") + std::string(type.word);
  }
  return words;
}

}  // namespace ctl
