#include "sim/tool/Picture.h"

#include "sim/tool/Show.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <variant>

namespace sim {

namespace {

using LINES = std::vector<std::string>;

constexpr int kBar = 10;
constexpr std::size_t kChannelsPerLine = 3;

std::string Repeat(const char* text, int times) {
  std::string repeated;
  for (int i = 0; i < times; ++i) {
    repeated += text;
  }
  return repeated;
}

/// The numbers of a field: of one value, of each channel.
struct TO_NUMBERS {
  using NUMBERS = std::vector<double>;
  NUMBERS operator()(const std::string& /*text*/) const { return {}; }
  NUMBERS operator()(const std::vector<std::string>& /*texts*/) const { return {}; }
  template <class NUMBER>
  NUMBERS operator()(const std::vector<NUMBER>& values) const {
    return {values.begin(), values.end()};
  }
  template <class NUMBER>
  NUMBERS operator()(NUMBER value) const {
    return {static_cast<double>(value)};
  }
};

/// "####------": how far up.
std::string Bar(double part, const GLYPHS& glyphs) {
  const int full = std::clamp(static_cast<int>(std::lround(part * kBar)), 0, kBar);
  return Repeat(glyphs.barFull, full) + Repeat(glyphs.barEmpty, kBar - full);
}

/// "----|-----": where something stands between two ends.
std::string Marked(double part, const GLYPHS& glyphs) {
  const int at = std::clamp(static_cast<int>(std::lround(part * (kBar - 1))), 0, kBar - 1);
  return Repeat(glyphs.barEmpty, at) + glyphs.mark + Repeat(glyphs.barEmpty, kBar - 1 - at);
}

/// "2 ####------ 66": a few channels side by side, each between its number and its label.
LINES Channels(const FIELD& field, const GLYPHS& glyphs) {
  const std::vector<double> values = std::visit(TO_NUMBERS{}, field.value);
  LINES lines;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i % kChannelsPerLine == 0) {
      lines.emplace_back();
    }
    const double part = (values[i] - field.least) / (field.most - field.least);
    lines.back() += (i % kChannelsPerLine == 0 ? "" : "   ") + std::to_string(i) + " " +
                    (field.kind == FIELD_KIND::kBar ? Bar(part, glyphs) : Marked(part, glyphs)) +
                    " " + field.labels.at(i);
  }
  return lines;
}

/// "keys   0. 1* 2.": in groups of eight.
std::string Lamps(const FIELD& field, const GLYPHS& glyphs) {
  constexpr std::size_t kCaption = 6;
  constexpr int kGroup = 8;
  const std::vector<double> on = std::visit(TO_NUMBERS{}, field.value);
  std::string text = field.caption;
  text.resize(kCaption, ' ');
  for (int lamp = 0; lamp < field.lamps; ++lamp) {
    const bool isOn = std::find(on.begin(), on.end(), lamp) != on.end();
    text += (lamp > 0 && lamp % kGroup == 0 ? "   " : " ") + std::to_string(lamp) +
            (isOn ? glyphs.lampOn : glyphs.lampOff);
  }
  return text;
}

/// "sent 43 4F": of a list the last; what is too long for the picture is cut.
std::string LastText(const FIELD& field) {
  constexpr std::size_t kWidth = 60;
  std::string text = "nothing yet";
  if (const auto* list = std::get_if<std::vector<std::string>>(&field.value); list == nullptr) {
    text = ValueText(field);
  } else if (!list->empty()) {
    text = list->back();
  }
  return field.name + " " + (text.size() > kWidth ? text.substr(0, kWidth - 3) + "..." : text);
}

LINES Screen(const FIELD& field) {
  LINES lines{{}};
  std::string edge = "++";
  for (const std::string& row : std::get<std::vector<std::string>>(field.value)) {
    edge = "+" + std::string(row.size(), '-') + "+";
    lines.push_back("|" + row + "|");
  }
  lines.front() = edge;
  lines.push_back(edge);
  return lines;
}

LINES Draw(const FIELD& field, const GLYPHS& glyphs) {
  switch (field.kind) {
    case FIELD_KIND::kDetail:
      break;
    case FIELD_KIND::kNumber:
      return {field.name + " " + ValueText(field)};
    case FIELD_KIND::kLamp:
      return {field.lamps > 0 ? Lamps(field, glyphs) : field.name + " " + ValueText(field)};
    case FIELD_KIND::kBar:
    case FIELD_KIND::kMark:
      return Channels(field, glyphs);
    case FIELD_KIND::kText:
      return {LastText(field)};
    case FIELD_KIND::kScreen:
      return Screen(field);
  }
  return {};
}

/// The fields of a card, one behind the other in the first line.
LINES Draw(const CARD& card, const GLYPHS& glyphs) {
  LINES picture;
  for (const FIELD& field : card.Show()) {
    LINES lines = Draw(field, glyphs);
    if (!picture.empty() && !lines.empty()) {
      picture.front() += (field.kind == FIELD_KIND::kLamp ? "  " : "   ") + lines.front();
      lines.erase(lines.begin());
    }
    picture.insert(picture.end(), lines.begin(), lines.end());
  }
  return picture.empty() ? LINES{"no picture"} : picture;
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
