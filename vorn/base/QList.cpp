#include "vorn/base/QList.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace vorn {

namespace {

void PrintByte(std::uint8_t byte) {
  constexpr std::uint8_t kLastControl = 31;
  std::putchar(byte > kLastControl ? byte : '.');
  std::printf(":%d|", byte);
}

template <class ITERATOR>
void PrintBytes(ITERATOR begin, ITERATOR end) {
  for (; begin != end; ++begin) {
    PrintByte(static_cast<std::uint8_t>(*begin));
  }
  std::putchar('\n');
}

}  // namespace

std::uint8_t HexCharToByte(char digit) {
  if (digit >= '0' && digit <= '9') {
    return static_cast<std::uint8_t>(digit - '0');
  }
  if (digit >= 'A' && digit <= 'F') {
    return static_cast<std::uint8_t>(digit - 'A' + 10);
  }
  return 0;
}

std::uint8_t HexNum2Byte(char high, char low) {
  return static_cast<std::uint8_t>(HexCharToByte(high) * 16 + HexCharToByte(low));
}

std::uint8_t Convert_HexStr2Byte(const std::string& text) {
  if (text.empty()) {
    return 0;
  }
  return text.size() == 1 ? HexNum2Byte('0', text[0]) : HexNum2Byte(text[0], text[1]);
}

QList Convert_BinBuff2QList(const std::uint8_t* buffer) {
  return {buffer + 1, buffer + 1 + buffer[0]};
}

QList Convert_CharBuff2QList(const char* buffer) {
  return {buffer, buffer + std::strlen(buffer)};
}

QList Convert_String2QList(const std::string& text) {
  const std::size_t length = std::min({text.find('\0'), text.size(), kTextLimit});
  if (length == 0) {
    return QList{'\0'};
  }
  return {text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length)};
}

std::string Convert_CharBuff2String(const char* buffer) {
  return {buffer, strnlen(buffer, kTextLimit)};
}

void Convert_QList2BinBuff(const QList& message, std::uint8_t* destination) {
  std::transform(message.begin(), message.end(), destination,
                 [](char byte) { return static_cast<std::uint8_t>(byte); });
}

std::string Convert_QList2String(const QList& message) {
  std::string text;
  for (const char byte : message) {
    if (byte == '\0' || text.size() == kTextLimit) {
      break;
    }
    text += byte;
  }
  return text;
}

void PrintBuffer(const std::uint8_t* buffer, std::size_t length) {
  std::fputs("Buffer content: ", stdout);
  PrintBytes(buffer, buffer + length);
}

void PrintBufferID(const std::uint8_t* buffer, std::size_t length, const std::string& caption) {
  std::printf("%s Buffer content: ", caption.c_str());
  PrintBytes(buffer, buffer + length);
}

void PrintQList(const QList& message) {
  std::printf("List size: %zu\nContent: ", message.size());
  PrintBytes(message.begin(), message.end());
}

}  // namespace vorn
