#include "sim/tool/Picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <string>

namespace sim {

namespace {

using LINES = std::vector<std::string>;

constexpr int kBar = 10;
constexpr int kChannelsPerLine = 3;

std::string Repeat(const char* text, int times) {
  std::string repeated;
  for (int i = 0; i < times; ++i)
    repeated += text;
  return repeated;
}

std::string Hex(int value) {
  return ToHex(static_cast<std::uint8_t>(value));
}

/// "####------" for a value of 0 to 255.
std::string Bar(int value, const GLYPHS& glyphs) {
  const int full = (value * kBar + 127) / 255;
  return Repeat(glyphs.barFull, full) + Repeat(glyphs.barEmpty, kBar - full);
}

/// "----|-----": where something stands between two ends.
std::string Marked(double value, const GLYPHS& glyphs) {
  const int at = std::clamp(static_cast<int>(std::lround(value * (kBar - 1) / 255)), 0, kBar - 1);
  return Repeat(glyphs.barEmpty, at) + glyphs.mark + Repeat(glyphs.barEmpty, kBar - 1 - at);
}

/// Lamps or keys, each behind its number; of each block, whose bits they are, a 1 is on.
std::string Lamps(std::initializer_list<int> blocks, const GLYPHS& glyphs) {
  constexpr int kBits = 8;
  std::string lamps;
  int number = 0;
  for (const int bits : blocks) {
    lamps += lamps.empty() ? "" : "  ";
    for (int bit = 0; bit < kBits; ++bit, ++number) {
      lamps += (lamps.empty() ? "" : " ") + std::to_string(number) +
               ((bits >> bit & 1) != 0 ? glyphs.lampOn : glyphs.lampOff);
    }
  }
  return lamps;
}

/// A few channels side by side.
template <class TEXT>
LINES Channels(int count, TEXT text) {
  LINES lines;
  for (int i = 0; i < count; ++i) {
    if (i % kChannelsPerLine == 0)
      lines.emplace_back();
    lines.back() += (i % kChannelsPerLine == 0 ? "" : "   ") + std::to_string(i) + " " + text(i);
  }
  return lines;
}

LINES Draw(const CARD& card, const GLYPHS& glyphs) {
  if (const auto* out = dynamic_cast<const DIGITAL_OUTPUT_CARD*>(&card)) {
    return {"lamps  " + Lamps({~out->Value(0), ~out->Value(1)}, glyphs)};
  }
  if (const auto* in = dynamic_cast<const DIGITAL_INPUT_CARD*>(&card))
    return {"keys   " + Lamps({in->Value(0), in->Value(1)}, glyphs)};
  if (const auto* servo = dynamic_cast<const SERVO_CARD*>(&card)) {
    return Channels(SERVO_CARD::kServos, [&](int i) {
      return Marked(servo->Position(i), glyphs) + " " + Hex(servo->Value(i));
    });
  }
  if (const auto* motor = dynamic_cast<const MOTOR_CARD*>(&card)) {
    return Channels(MOTOR_CARD::kMotors, [&](int i) {
      char text[32];
      std::snprintf(text, sizeof text, " %+4d%%", motor->Percent(i));
      return Marked(127.5 + motor->Percent(i) * 1.275, glyphs) + text;
    });
  }
  if (const auto* pots = dynamic_cast<const ANALOGUE_CARD*>(&card)) {
    return Channels(ANALOGUE_CARD::kPots,
                    [&](int i) { return Bar(pots->Value(i), glyphs) + " " + Hex(pots->Value(i)); });
  }
  if (const auto* lcd = dynamic_cast<const LCD_CARD*>(&card)) {
    const std::string edge = "+" + std::string(static_cast<std::size_t>(lcd->Columns()), '-') + "+";
    LINES lines{edge + "  light " + (lcd->Light() ? "on" : "off")};
    for (const std::string& row : lcd->Rows())
      lines.push_back("|" + row + "|");
    lines.push_back(edge);
    return lines;
  }
  if (const auto* ir = dynamic_cast<const IR_CARD*>(&card)) {
    constexpr std::size_t kWidth = 60;
    const std::string last = ir->Sent().empty() ? "nothing yet" : ToHex(ir->Sent().back());
    return {"sent " + (last.size() > kWidth ? last.substr(0, kWidth - 3) + "..." : last)};
  }
  if (const auto* keys = dynamic_cast<const KEYS_CARD*>(&card))
    return {"key " + Hex(keys->Down()) + "   encoder " + std::to_string(keys->Encoder())};
  return {"no picture"};
}

}  // namespace

std::vector<std::string> Picture(SIMULATION& simulation, const GLYPHS& glyphs) {
  constexpr std::size_t kIndent = 15;
  ADAPTER& adapter = simulation.Adapter();
  const std::string link = adapter.LinkPath();
  const std::size_t faults = adapter.Faults().List().size();
  LINES picture{(link.empty() ? "adapter unplugged" : link) + "   " +
                std::to_string(adapter.Counters().requests) + " requests" +
                (faults == 0 ? "" : "   " + std::to_string(faults) + " faults in force")};
  for (int address = 0; address < kSlots; ++address) {
    simulation.Rack().WithCard(address, [&](const CARD& card) {
      std::string head = AddressText(address) + " " + card.Keyword();
      for (const std::string& line : Draw(card, glyphs)) {
        head.resize(kIndent, ' ');
        picture.push_back(head + line);
        head.clear();
      }
    });
  }
  return picture;
}

}  // namespace sim
