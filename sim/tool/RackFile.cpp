#include "sim/tool/RackFile.h"

#include "sim/tool/Arguments.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <iterator>
#include <pugixml.hpp>
#include <sstream>
#include <system_error>
#include <vector>

namespace sim {

namespace {

constexpr char kDefaultRack[] = R"(<?xml version="1.0"?>
<!-- The rack that vornsim has built in. Copy it, change it, and name the copy in the rack option.
     Addresses are 0 to F; values are two hexadecimal digits, as on the IO interface; channels and
     speeds are decimal. All but address and type of a card may be left out. A type may also be
     given as a type code of two hexadecimal digits. -->
<Rack version="2.04">
  <!-- speed: steps of the 256 per second, 0 is at once. Parameters: endA, endB, position. -->
  <Card address="0" type="servo" name="6 channel RC servo controller" speed="512">
    <Parameter name="endA" channel="0" value="00"/>
    <Parameter name="endB" channel="0" value="FF"/>
    <Parameter name="position" channel="0" value="80"/>
  </Card>
  <!-- Parameter: silent, 00 is manual mode. -->
  <Card address="1" type="motor" name="3 channel DC motor controller">
    <Parameter name="silent" channel="0" value="01"/>
  </Card>
  <!-- Input: the keys of a block that are down at the start. -->
  <Card address="3" type="digital-in" name="16 channel digital input">
    <Input channel="0" value="00"/>
  </Card>
  <Card address="5" type="digital-out" name="16 channel digital output"/>
  <Card address="8" type="keys" name="key matrix and rotary encoder"/>
  <Card address="9" type="ir" name="IR remote controller"/>
  <!-- Parameters: selftest and initlight, 00 is off. -->
  <Card address="E" type="lcd" name="alphanumeric LCD controller">
    <Display columns="20" rows="4"/>
    <Parameter name="selftest" value="FF"/>
    <Parameter name="initlight" value="FF"/>
  </Card>
  <!-- Input: where a pot stands at the start, and by how much it trembles. Parameter: mask. -->
  <Card address="F" type="analogue" name="6 channel analogue input">
    <Input channel="0" value="00" noise="00"/>
    <Parameter name="mask" value="3F"/>
  </Card>
</Rack>
)";

/// What an element may have.
struct ATTRIBUTE {
  const char* name;
  bool needed;
};
struct ELEMENT {
  const char* name;
  std::vector<ATTRIBUTE> attributes;
};

/// Reads one file; throws ARGUMENT_ERROR with place and reason.
class RACK_READER {
 public:
  RACK_READER(const std::string& text, const std::string& name) : m_text(text), m_name(name) {}

  void Read();
  void Apply(RACK& rack) const;

 private:
  using STEP = std::function<RESULT(CARD&)>;
  struct PLACED_CARD {
    int address = 0;
    std::uint8_t typeCode = 0;
    std::vector<STEP> steps;
  };

  [[noreturn]] void Fail(std::ptrdiff_t offset, const std::string& why) const;
  [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& why) const {
    const std::ptrdiff_t before = node.type() == pugi::node_element ? 1 : 0;  // its bracket
    Fail(std::max<std::ptrdiff_t>(0, node.offset_debug() - before), why);
  }
  void CheckAttributes(const pugi::xml_node& node, const ELEMENT& element) const;
  void ReadCard(const pugi::xml_node& node);
  STEP ReadDetail(const pugi::xml_node& node) const;
  /// What read makes of the attribute; its complaint gets the place of the element.
  template <class READ>
  auto Get(const pugi::xml_node& node, const char* name, const char* missing, READ read) const {
    try {
      return read(std::string(node.attribute(name).as_string(missing)));
    } catch (const ARGUMENT_ERROR& error) {
      Fail(node, std::string(name) + ": " + error.what());
    }
  }

  const std::string& m_text;
  const std::string& m_name;
  std::string m_version;
  std::vector<PLACED_CARD> m_cards;
};

void RACK_READER::Fail(std::ptrdiff_t offset, const std::string& why) const {
  const auto at = m_text.begin() + std::min<std::ptrdiff_t>(offset, std::ssize(m_text));
  const auto line = std::count(m_text.begin(), at, '\n') + 1;
  const auto lineBegin = std::find(std::make_reverse_iterator(at), m_text.rend(), '\n').base();
  throw ARGUMENT_ERROR(m_name + ":" + std::to_string(line) + ":" +
                       std::to_string(at - lineBegin + 1) + ": " + why);
}

void RACK_READER::CheckAttributes(const pugi::xml_node& node, const ELEMENT& element) const {
  std::string known;
  for (const ATTRIBUTE& attribute : element.attributes) {
    known += (known.empty() ? "" : ", ") + std::string(attribute.name);
    if (attribute.needed && !node.attribute(attribute.name)) {
      Fail(node, std::string(element.name) + " needs the attribute " + attribute.name);
    }
  }
  for (const pugi::xml_attribute& given : node.attributes()) {
    const bool found = std::any_of(element.attributes.begin(), element.attributes.end(),
                                   [&given](const ATTRIBUTE& attribute) {
                                     return attribute.name == std::string(given.name());
                                   });
    if (!found) {
      Fail(node, std::string(element.name) + " has no attribute '" + given.name() + "'; expected " +
                     known);
    }
  }
}

void RACK_READER::Read() {
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_buffer(m_text.data(), m_text.size());
  if (!parsed) {
    Fail(parsed.offset, parsed.description());
  }
  const pugi::xml_node root = document.document_element();
  if (std::string(root.name()) != "Rack") {
    Fail(root, std::string("expected the element Rack, found '") + root.name() + "'");
  }
  CheckAttributes(root, {"Rack", {{"version", false}}});
  m_version = root.attribute("version").as_string("2.04");
  for (const pugi::xml_node& child : root.children()) {
    if (child.type() != pugi::node_element) {
      Fail(child, "expected an element Card, found text");
    }
    if (std::string(child.name()) != "Card") {
      Fail(child, std::string("expected an element Card, found '") + child.name() + "'");
    }
    ReadCard(child);
  }
}

void RACK_READER::ReadCard(const pugi::xml_node& node) {
  CheckAttributes(node,
                  {"Card", {{"address", true}, {"type", true}, {"name", false}, {"speed", false}}});
  PLACED_CARD placed;
  placed.address = Get(node, "address", "", ReadAddress);
  placed.typeCode = Get(node, "type", "", ReadCardType);
  for (const PLACED_CARD& other : m_cards) {
    if (other.address == placed.address) {
      Fail(node, "there is a card at address " + AddressText(placed.address) + " already");
    }
  }
  const auto scratch = MakeCard(placed.typeCode, placed.address, [](const std::string&) {});
  // Each step is tried at once on a card of the same type, while the place in the file is known.
  const auto add = [&](const pugi::xml_node& where, STEP step) {
    const RESULT result = step(*scratch);
    if (!result) {
      Fail(where, result.text);
    }
    placed.steps.push_back(std::move(step));
  };
  if (const pugi::xml_attribute name = node.attribute("name")) {
    add(node, [text = std::string(name.value())](CARD& card) {
      card.Rename(text);
      return RESULT::Good();
    });
  }
  if (node.attribute("speed")) {
    const int speed =
        Get(node, "speed", "", [](const std::string& word) { return ReadNumber(word, "speed"); });
    add(node, [speed](CARD& card) { return card.SetSpeed(speed); });
  }
  for (const pugi::xml_node& child : node.children()) {
    add(child, ReadDetail(child));
  }
  m_cards.push_back(std::move(placed));
}

RACK_READER::STEP RACK_READER::ReadDetail(const pugi::xml_node& node) const {
  const auto number = [&](const char* name) {
    return Get(node, name, "0", [name](const std::string& word) { return ReadNumber(word, name); });
  };
  const auto byte = [&](const char* name) {
    return Get(node, name, "0",
               [name](const std::string& word) { return ReadHexByte(word, name); });
  };
  const std::string element = node.name();
  if (element == "Parameter") {
    CheckAttributes(node, {"Parameter", {{"name", true}, {"channel", false}, {"value", true}}});
    return
        [name = std::string(node.attribute("name").value()), channel = number("channel"),
         value = byte("value")](CARD& card) { return card.PresetParameter(name, channel, value); };
  }
  if (element == "Input") {
    CheckAttributes(node, {"Input", {{"channel", true}, {"value", false}, {"noise", false}}});
    const bool hasNoise = static_cast<bool>(node.attribute("noise"));
    return [channel = number("channel"), value = byte("value"), noise = byte("noise"),
            hasNoise](CARD& card) {
      const RESULT result = card.Set(channel, value);
      return result && hasNoise ? card.SetNoise(channel, noise) : result;
    };
  }
  if (element == "Display") {
    CheckAttributes(node, {"Display", {{"columns", true}, {"rows", true}}});
    return [columns = number("columns"), rows = number("rows")](CARD& card) {
      return card.Resize(columns, rows);
    };
  }
  Fail(node, "expected an element Parameter, Input or Display, found " +
                 (element.empty() ? "text" : "'" + element + "'"));
}

void RACK_READER::Apply(RACK& rack) const {
  rack.SetVersion(m_version);
  for (const PLACED_CARD& placed : m_cards) {
    rack.Insert(placed.address, placed.typeCode);
    rack.WithCard(placed.address, [&placed](CARD& card) {
      for (const STEP& step : placed.steps) {
        static_cast<void>(step(card));
      }
      card.Reboot();  // what is stored counts from the first moment
    });
  }
}

}  // namespace

const char* DefaultRackText() {
  return kDefaultRack;
}

RESULT LoadRack(const std::string& text, const std::string& name, RACK& rack) {
  try {
    RACK_READER reader(text, name);
    reader.Read();
    reader.Apply(rack);
    return RESULT::Good();
  } catch (const ARGUMENT_ERROR& error) {
    return RESULT::Error(error.what());
  }
}

RESULT LoadRackFile(const std::string& path, RACK& rack) {
  std::string text;
  const RESULT result = ReadTextFile(path, text);
  return result ? LoadRack(text, path, rack) : result;
}

RESULT ReadTextFile(const std::string& path, std::string& text) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();  // unlike an iterator, keeps what the file throws to itself
  if (!file.is_open() || file.bad() || errno == EISDIR) {
    return RESULT::Error("cannot read " + path + ": " + std::generic_category().message(errno));
  }
  text = content.str();
  return RESULT::Good();
}

}  // namespace sim
