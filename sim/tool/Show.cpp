#include "sim/tool/Show.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace sim {

namespace {

using JSON = nlohmann::ordered_json;

template <class RANGE, class TEXT>
std::string Join(const RANGE& values, TEXT text) {
  std::string joined;
  for (const auto& value : values) {
    if (!joined.empty()) {
      joined += ' ';
    }
    joined += text(value);
  }
  return joined.empty() ? "-" : joined;
}

std::string OneDecimal(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

struct TO_TEXT {
  std::string operator()(int value) const { return std::to_string(value); }
  std::string operator()(bool value) const { return value ? "on" : "off"; }
  std::string operator()(std::uint8_t value) const { return ToHex(value); }
  std::string operator()(const std::string& value) const { return value; }
  std::string operator()(const Bytes& value) const { return value.empty() ? "-" : ToHex(value); }
  std::string operator()(const std::vector<int>& values) const {
    return Join(values, [](int value) { return std::to_string(value); });
  }
  std::string operator()(const std::vector<double>& values) const {
    return Join(values, OneDecimal);
  }
  std::string operator()(const std::vector<std::string>& values) const {
    return Join(values, [](const std::string& value) { return "\n    |" + value + "|"; });
  }
};

JSON ToJson(const std::vector<FIELD>& fields) {
  JSON object = JSON::object();
  for (const FIELD& field : fields) {
    std::string key = field.name;
    std::replace(key.begin(), key.end(), ' ', '_');
    std::visit([&](const auto& value) { object[key] = value; }, field.value);
  }
  return object;
}

std::vector<FIELD> Fields(RACK& rack, int address) {
  std::vector<FIELD> fields;
  rack.WithCard(address, [&fields](const CARD& card) { fields = card.Show(); });
  return fields;
}

/// Names come from people and files; bytes that are no UTF-8 are replaced, not thrown at the user.
std::string Dump(const JSON& json) {
  return json.dump(-1, ' ', false, JSON::error_handler_t::replace);
}

}  // namespace

std::string ValueText(const FIELD& field) {
  return std::visit(TO_TEXT{}, field.value);
}

std::string ShowText(const std::vector<FIELD>& fields) {
  std::string text = "card";
  for (const FIELD& field : fields) {
    const std::string value = ValueText(field);
    if (field.name == "address" || field.name == "type") {
      text += " " + value;
    } else if (field.name == "name") {
      text += " '" + value + "'";
    } else {
      text += "\n  " + field.name + ": " + value;
    }
  }
  return text;
}

std::string ShowJson(RACK& rack, int address) {
  return Dump(ToJson(Fields(rack, address)));
}

std::string ShowJson(RACK& rack) {
  JSON cards = JSON::array();
  for (int address = 0; address < kSlots; ++address) {
    const std::vector<FIELD> fields = Fields(rack, address);
    if (!fields.empty()) {
      cards.push_back(ToJson(fields));
    }
  }
  return Dump(cards);
}

std::string ListText(RACK& rack) {
  std::string text;
  for (int address = 0; address < kSlots; ++address) {
    rack.WithCard(address, [&](const CARD& card) {
      text += (text.empty() ? "" : "\n") + AddressText(address) + " " + card.Keyword() + " '" +
              card.Name() + "'";
    });
  }
  return text.empty() ? "the rack is empty" : text;
}

}  // namespace sim
