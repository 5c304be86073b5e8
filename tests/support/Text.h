#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace support {

/// The whole file; empty when it cannot be read.
std::string ReadFile(const std::string& path);

/// Replaces the file's content. Throws std::runtime_error when it cannot.
void WriteFile(const std::string& path, std::string_view content);

/// The text with its control bytes and bytes above 126 readable: \r \n \x00.
std::string Visible(std::string_view text);

/// The lines of a text, without their line feeds; a last line without one counts too.
std::vector<std::string> Lines(std::string_view text);

}  // namespace support
