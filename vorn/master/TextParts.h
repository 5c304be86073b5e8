#pragma once

#include <cstddef>
#include <string>

namespace vorn {

/// Parts of what a client typed. A position outside the text gives an empty part, never a failure.

/// At most `length` characters from `position`.
std::string PartOf(const std::string& text, std::size_t position, std::size_t length);

/// The character at `position`; a zero byte, which no text holds and which counts as 0 by the hex
/// rule, outside it.
char CharacterAt(const std::string& text, std::size_t position);

/// printf into a string, for the short result lines; at most 255 characters.
__attribute__((format(printf, 1, 2))) std::string FormatText(const char* format, ...);

}  // namespace vorn
