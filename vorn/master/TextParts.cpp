#include "vorn/master/TextParts.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace vorn {

std::string PartOf(const std::string& text, std::size_t position, std::size_t length) {
  return position < text.size() ? text.substr(position, length) : std::string();
}

char CharacterAt(const std::string& text, std::size_t position) {
  return position < text.size() ? text[position] : '\0';
}

std::string FormatText(const char* format, ...) {
  std::array<char, 256> text{};
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is the line above
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

}  // namespace vorn
