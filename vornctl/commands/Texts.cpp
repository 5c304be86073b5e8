#include "client/IoLine.h"
#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>

// lcd and ir: cards that take a stream.
namespace ctl {

namespace {

using client::CARD_KIND;
using client::LCD_ACTION;

struct LCD_WORDS {
  const char* words;
  LCD_ACTION action;
};
constexpr LCD_WORDS kLcdWords[] = {
    {"clear", LCD_ACTION::kClear},          {"light on", LCD_ACTION::kLightOn},
    {"light off", LCD_ACTION::kLightOff},   {"cursor on", LCD_ACTION::kCursorOn},
    {"cursor off", LCD_ACTION::kCursorOff}, {"blink on", LCD_ACTION::kBlinkOn},
    {"blink off", LCD_ACTION::kBlinkOff},
};

std::string Joined(const std::vector<std::string>& words, std::size_t first) {
  std::string text;
  for (std::size_t i = first; i < words.size(); ++i) {
    text += (i == first ? "" : " ") + words[i];
  }
  return text;
}

/// COL,ROW, counted from 0.
std::pair<int, int> ReadPosition(const std::string& text) {
  const std::size_t comma = text.find(',');
  const auto column = ReadDecimal(text.substr(0, comma));
  const auto row = comma == std::string::npos ? std::nullopt : ReadDecimal(text.substr(comma + 1));
  if (!column || !row) {
    throw FAILURE(EXIT_STATUS::kUsage,
                  "'" + text + "' is no position: COL,ROW, counted from 0, such as 3,1");
  }
  return {*column, *row};
}

std::string LcdLineOf(int address, const ARGUMENTS& arguments) {
  const std::string text = Joined(arguments.words, 1);
  if (arguments.at.empty()) {
    for (const LCD_WORDS& row : kLcdWords) {
      if (text == row.words) {
        return client::LcdLine(address, row.action);
      }
    }
  }
  const auto [column, row] = arguments.at.empty() ? std::pair(0, 0) : ReadPosition(arguments.at);
  return client::LcdTextLine(address, column, row, text);
}

std::vector<std::uint8_t> IrBytesOf(const ARGUMENTS& arguments) {
  if (!arguments.text.empty()) {
    if (arguments.words.size() > 1) {
      throw FAILURE(EXIT_STATUS::kUsage, "ir: either HEX or --text");
    }
    return {arguments.text.begin(), arguments.text.end()};
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 1; i < arguments.words.size(); ++i) {
    const std::string& word = arguments.words[i];
    if (word.size() % 2 != 0) {
      throw FAILURE(EXIT_STATUS::kUsage, "ir: '" + word + "' is no row of bytes: two digits each");
    }
    for (std::size_t at = 0; at < word.size(); at += 2) {
      bytes.push_back(ReadByte(word.substr(at, 2), "ir"));
    }
  }
  return bytes;
}

/// Checks what is to be sent before the connection is made, and then the card.
void SendTo(CONTEXT& context, const std::string& card, CARD_KIND kind, const std::string& line) {
  OpenForSending(context);
  FindCard(context, card, kind);
  SendLines(context, {line});
}

}  // namespace

void DeclareLcd(CLI::App& command, ARGUMENTS& arguments) {
  command
      .add_option("CARD", arguments.words,
                  "CARD, then TEXT, or clear, light on, light off, cursor on, ... (with --at any "
                  "word is text)")
      ->required()
      ->expected(2, -1);
  command
      .add_option("--at", arguments.at, "where the text begins, counted from 0; 0,0 if not given")
      ->type_name("COL,ROW");
}

void RunLcd(CONTEXT& context, const ARGUMENTS& arguments) {
  const int address = ReadAddress(arguments.words.front());
  const std::string line = Checked([&] { return LcdLineOf(address, arguments); });
  SendTo(context, arguments.words.front(), CARD_KIND::kLcd, line);
}

void DeclareIr(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("CARD", arguments.words, "CARD, then HEX: at most 23 bytes")->required();
  command.add_option("--text", arguments.text, "the bytes of a text in place of HEX")
      ->type_name("TEXT");
}

void RunIr(CONTEXT& context, const ARGUMENTS& arguments) {
  const int address = ReadAddress(arguments.words.front());
  const std::string line = Checked([&] { return client::IrLine(address, IrBytesOf(arguments)); });
  SendTo(context, arguments.words.front(), CARD_KIND::kIr, line);
}

}  // namespace ctl
