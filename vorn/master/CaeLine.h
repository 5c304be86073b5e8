#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vorn {

/// A line from the CAE client and the parameters in it. All commands of a line share the first ":"
/// and the first "=" of the whole text. Hex digits count by HexCharToByte, so a missing or wrong
/// one is 0; what is echoed is echoed as typed, a missing character as nothing.
class CAE_LINE {
 public:
  CAE_LINE(const std::string& text, const std::string& inpSeparator);

  /// The whole text is the keyword and the separator.
  bool Is(const std::string& keyword) const;
  bool Contains(const std::string& keyword) const;
  bool ContainsSeparator() const;

  /// The card's address: the character behind ":".
  std::uint8_t Address() const;
  std::string AddressText() const;
  /// The two digits behind "=".
  std::uint8_t Value() const;
  /// The one digit behind "=".
  std::uint8_t Block() const;
  /// The two characters behind "=".
  std::string StateText() const;
  /// From behind "=" up to the first character that belongs to the separator.
  std::string NumberText() const;
  /// The character just before ":", a channel.
  std::uint8_t Channel() const;
  std::string ChannelText() const;
  /// The character before that, "A" or "B".
  std::string EndPositionText() const;

 private:
  std::string BeforeColon(std::size_t distance) const;

  std::string m_text;
  std::string m_inpSeparator;
  std::size_t m_colon;   // npos when there is none
  std::size_t m_equals;  // likewise
};

}  // namespace vorn
