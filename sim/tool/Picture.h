#pragma once

#include "sim/tool/Simulation.h"

#include <string>
#include <vector>

namespace sim {

/// The signs of the picture: for a terminal that knows UTF-8, and for any other.
struct GLYPHS {
  const char* lampOn;
  const char* lampOff;
  const char* barFull;
  const char* barEmpty;
  const char* mark;
};
inline constexpr GLYPHS kUtf8Glyphs{"\u25CF", "\u25CB", "\u2588", "\u2591", "\u25C6"};
inline constexpr GLYPHS kAsciiGlyphs{"*", ".", "#", "-", "|"};

/// The rack as lines of text, at most 78 columns wide: lamps, keys, servos, motors, pots as bars,
/// the text of the displays. Below the head one or more lines for each card.
std::vector<std::string> Picture(SIMULATION& simulation, const GLYPHS& glyphs);

}  // namespace sim
