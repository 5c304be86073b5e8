#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vorn {

/// What the tests read out of the documents, and out of the sources that they describe.
namespace docs {

using LINES = std::vector<std::string>;
using ROW = std::vector<std::string>;  // the cells of a table's row, as written

/// A file of the tree, by its path from the root. Fails the test when it cannot be read.
std::string ReadFile(const std::filesystem::path& path);

/// All documents: the root's and those of docs/, by their paths from the root.
std::vector<std::filesystem::path> Documents();

/// The lines under a heading ("## Commands"), up to the next of the same or a higher level. Fails
/// the test when the document has no such heading.
LINES Section(const std::string& document, const std::string& heading);

/// The rows of all tables in the lines, without their headers.
std::vector<ROW> Tables(const LINES& lines);

/// The code spans of a text: what stands between backquotes.
std::vector<std::string> CodeSpans(const std::string& text);

/// The content of each fenced block with that info string ("xml").
std::vector<LINES> Blocks(const LINES& lines, const std::string& info);

LINES SplitLines(const std::string& text);

/// The sources under a folder, by their paths from the root.
std::vector<std::filesystem::path> Sources(const std::string& folder);

/// The string literals of a source, as they are written in it, adjoining ones apart; those of
/// #include lines and comments left out.
std::vector<std::string> Literals(const std::string& source);

/// The source's calls of a function: the text from its "(" to the matching ")".
std::vector<std::string> Calls(const std::string& source, const std::string& function);

}  // namespace docs

}  // namespace vorn
