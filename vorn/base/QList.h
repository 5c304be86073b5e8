#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

namespace vorn {

/// A byte list: the message that every queue carries. Its element count is its length; it may hold
/// any byte value. Every hand-over to a queue is a copy, so that a producer keeps no reference
/// into a queued message.
using QList = std::list<char>;

/// The working buffers of the string conversions hold 1000 bytes: texts of at most 999. Longer ones
/// are cut.
constexpr std::size_t kTextLimit = 999;

/// The value of an upper-case hex digit, 0 for every other character (lower case included).
std::uint8_t HexCharToByte(char digit);

/// The byte of a high and a low digit, each by HexCharToByte.
std::uint8_t HexNum2Byte(char high, char low);

/// One character is the low digit; of more, the first two are the high and the low digit. An empty
/// text gives 0.
std::uint8_t Convert_HexStr2Byte(const std::string& text);

/// The buffer's first byte is a length n (0 to 255); the n bytes after it are the message, zeros
/// included. The caller vouches for n + 1 readable bytes.
QList Convert_BinBuff2QList(const std::uint8_t* buffer);

/// All bytes before the first zero byte.
QList Convert_CharBuff2QList(const char* buffer);

/// The bytes of the text up to its first zero byte. The first byte goes in unconditionally: an
/// empty text gives a list of one zero byte, deliberately unlike Convert_CharBuff2QList.
QList Convert_String2QList(const std::string& text);

/// The text up to the first zero byte.
std::string Convert_CharBuff2String(const char* buffer);

/// Writes the message's bytes, without length or terminator; the caller sizes the destination.
void Convert_QList2BinBuff(const QList& message, std::uint8_t* destination);

/// The text up to the message's first zero byte.
std::string Convert_QList2String(const QList& message);

/// Debug printers, to standard output: each byte as itself and ":" (".:" up to 31), its decimal
/// value and "|".
void PrintBuffer(const std::uint8_t* buffer, std::size_t length);
void PrintBufferID(const std::uint8_t* buffer, std::size_t length, const std::string& caption);
void PrintQList(const QList& message);

}  // namespace vorn
