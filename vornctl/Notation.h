#pragma once

#include "client/Cards.h"
#include "client/IoLine.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The one notation for people: what is meant, and its value. The simulator's prompt has the same.
namespace ctl {

/// What a place names on its card.
enum class PLACE_KIND : std::uint8_t {
  kCard,     ///< "5"
  kChannel,  ///< "5.10"
  kBlock,    ///< "5.b1"
  kKey,      ///< "8.key"
  kEncoder,  ///< "8.encoder"
};

struct PLACE {
  int address = 0;
  PLACE_KIND kind = PLACE_KIND::kCard;
  int number = 0;      ///< of the channel or the block
  std::string name{};  ///< by which it was called; empty: by its place
};

constexpr const char* kPlaceForms =
    "5 (a card), 5.10 (a channel), 5.b1 (a block), 8.key, 8.encoder";

/// Nothing where the text is none of the forms. Addresses are taken in either case.
std::optional<PLACE> ReadPlace(std::string_view text);
/// The form that ReadPlace takes; without the name.
std::string TextOf(const PLACE& place);
/// What the user calls it: its name, or the form above.
std::string TitleOf(const PLACE& place);

/// Letters, digits, - and _, a letter first, at least two of them: never a place.
bool IsName(std::string_view text);
/// A place, or a name from the settings. Throws FAILURE: kNoSuch for an unknown name.
PLACE FindPlace(const std::string& text, const std::map<std::string, std::string>& names);

/// The same place, by its name where it has one.
PLACE WithName(PLACE place, const std::map<std::string, std::string>& names);

/// The places of a card that has channels, one by one: 5.0 to 5.15, or 8.key and 8.encoder.
std::vector<PLACE> ChannelsOf(int address, const client::CARD_TYPE& type);

/// The block in which a channel or a block lies. Throws FAILURE, kNoSuch, where the card has no
/// such channel or block.
int BlockOf(const PLACE& place, const client::CARD_TYPE& type);

/// A value as a person reads it: what the block says of the place.
struct READING {
  std::string text{};      ///< "on", "50.2%", "12", "none", "80"
  std::uint8_t block = 0;  ///< the byte it comes from
};
/// Nothing where the block says nothing of the place: a key's code of the encoder.
std::optional<READING> Read(const PLACE& place, const client::CARD_TYPE& type, std::uint8_t block);

/// A value that somebody typed, for a channel or a block: on and off, a percentage, a byte. Throws
/// FAILURE, kUsage, and says what is right there.
/// It is a value of some kind, as far as that can be said without knowing the card.
void CheckForm(const std::string& text, const std::string& title);
bool ReadSwitch(const std::string& text, const std::string& title);
std::uint8_t ReadLevel(const std::string& text, const client::CARD_TYPE& type,
                       const std::string& title);
/// A whole number without a sign, 0 to 999999999; nothing for anything else. Zeros in front say
/// nothing.
std::optional<int> ReadDecimal(std::string_view text);
/// Two hexadecimal digits, "0x" allowed before them.
std::uint8_t ReadByte(const std::string& text, const std::string& title);

/// "digital-out, digital-in, ...": for messages.
std::string TypeWords();

}  // namespace ctl
