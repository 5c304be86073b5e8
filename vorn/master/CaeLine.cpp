#include "vorn/master/CaeLine.h"

#include "vorn/base/QList.h"
#include "vorn/master/TextParts.h"

namespace vorn {

CAE_LINE::CAE_LINE(const std::string& text, const std::string& inpSeparator)
    : m_text(text),
      m_inpSeparator(inpSeparator),
      m_colon(text.find(':')),
      m_equals(text.find('=')) {
}

bool CAE_LINE::Is(const std::string& keyword) const {
  return m_text == keyword + m_inpSeparator;
}

bool CAE_LINE::Contains(const std::string& keyword) const {
  return m_text.find(keyword) != std::string::npos;
}

bool CAE_LINE::ContainsSeparator() const {
  return Contains(m_inpSeparator);
}

std::string CAE_LINE::AddressText() const {
  return m_colon == std::string::npos ? std::string() : PartOf(m_text, m_colon + 1, 1);
}

std::uint8_t CAE_LINE::Address() const {
  return HexCharToByte(CharacterAt(AddressText(), 0));
}

std::string CAE_LINE::StateText() const {
  return m_equals == std::string::npos ? std::string() : PartOf(m_text, m_equals + 1, 2);
}

std::uint8_t CAE_LINE::Value() const {
  return HexNum2Byte(CharacterAt(StateText(), 0), CharacterAt(StateText(), 1));
}

std::uint8_t CAE_LINE::Block() const {
  return HexCharToByte(CharacterAt(StateText(), 0));
}

std::string CAE_LINE::NumberText() const {
  if (m_equals == std::string::npos) {
    return {};
  }
  const std::size_t end = m_text.find_first_of(m_inpSeparator, m_equals + 1);
  return m_text.substr(m_equals + 1, end - (m_equals + 1));
}

std::string CAE_LINE::BeforeColon(std::size_t distance) const {
  return m_colon == std::string::npos || m_colon < distance ? std::string()
                                                            : PartOf(m_text, m_colon - distance, 1);
}

std::uint8_t CAE_LINE::Channel() const {
  return HexCharToByte(CharacterAt(ChannelText(), 0));
}

std::string CAE_LINE::ChannelText() const {
  return BeforeColon(1);
}

std::string CAE_LINE::EndPositionText() const {
  return BeforeColon(2);
}

}  // namespace vorn
