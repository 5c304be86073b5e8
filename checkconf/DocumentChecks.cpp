#include "checkconf/DocumentChecks.h"

#include "checkconf/InterfaceChecks.h"
#include "checkconf/Quoting.h"
#include "checkconf/ValueChecks.h"
#include "vorn/config/ConfigTables.h"

#include <algorithm>
#include <set>

namespace vorn::checkconf {

namespace {

/// The attributes of a child of the root; none when the daemon knows no such child.
std::vector<std::string> AttributesOf(const std::string& element) {
  std::vector<std::string> attributes;
  for (const CONFIG_SETTING& setting : ConfigSettings()) {
    if (element == setting.element) {
      attributes.emplace_back(setting.attribute);
    }
  }
  return attributes;
}

std::vector<std::string> RootChildren() {
  std::vector<std::string> names;
  for (const CONFIG_SETTING& setting : ConfigSettings()) {
    if (std::find(names.begin(), names.end(), setting.element) == names.end()) {
      names.emplace_back(setting.element);
    }
  }
  names.emplace_back(kInterfacesElement);
  return names;
}

void CheckSetting(const ELEMENT& element, CHECKING& checking) {
  const std::vector<std::string> known = AttributesOf(element.name);
  CheckAttributeNames(element, known, checking);
  CheckHoldsNothing(element, checking);
  // A Debuglog without Loglevel is complete, and one without File is told as a missing log file.
  if (known.size() == 1 && element.Find(known.front()) == nullptr) {
    checking.Add(KIND::kMissingAttribute, element.offset, {element.name, known.front()});
  }
  for (const ATTRIBUTE& attribute : element.attributes) {
    CheckSettingValue(element.name, attribute, checking);
  }
}

/// The children of VORNConfig.
void CheckRoot(const pugi::xml_node& root, CHECKING& checking) {
  CheckAttributeNames(ELEMENT(root, checking.Source()), {}, checking);
  const std::vector<std::string> known = RootChildren();
  INTERFACE_CHECKS interfaces(checking);
  std::set<std::string> seen;
  bool logFileNamed = false;
  for (const pugi::xml_node& node : root.children()) {
    if (CheckStrayText(node, checking)) {
      continue;
    }
    const ELEMENT element(node, checking.Source());
    if (std::find(known.begin(), known.end(), element.name) == known.end()) {
      checking.Add(KIND::kUnknownElement, element.offset, {Quoted(element.name), Listed(known)});
      continue;
    }
    if (!seen.insert(element.name).second) {
      checking.Add(KIND::kDuplicateElement, element.offset, {element.name});
    }
    if (element.name == kInterfacesElement) {
      interfaces.CheckInterfaces(element);
      continue;
    }
    CheckSetting(element, checking);
    interfaces.NoticeSetting(element);
    logFileNamed = logFileNamed || element.Find("File") != nullptr;
  }
  if (!logFileNamed) {
    checking.AddForFile(KIND::kNoLogFile);
  }
  interfaces.CheckTogether();
}

}  // namespace

ELEMENT::ELEMENT(const pugi::xml_node& from, const SOURCE_TEXT& source)
    : node(from), name(from.name()), offset(OffsetOf(from)) {
  const std::vector<std::size_t> offsets = source.AttributeOffsets(offset);
  std::size_t number = 0;
  for (const pugi::xml_attribute& attribute : from.attributes()) {
    attributes.push_back(
        {attribute.name(), attribute.value(), number < offsets.size() ? offsets[number] : offset});
    ++number;
  }
}

const ATTRIBUTE* ELEMENT::Find(const std::string& attribute) const {
  const auto found =
      std::find_if(attributes.rbegin(), attributes.rend(),
                   [&](const ATTRIBUTE& candidate) { return candidate.name == attribute; });
  return found == attributes.rend() ? nullptr : &*found;
}

std::string Listed(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) {
    list += (list.empty() ? "" : ", ") + name;
  }
  return list.empty() ? "none" : list;
}

void CheckAttributeNames(const ELEMENT& element, const std::vector<std::string>& known,
                         CHECKING& checking) {
  std::set<std::string> seen;
  for (const ATTRIBUTE& attribute : element.attributes) {
    if (std::find(known.begin(), known.end(), attribute.name) == known.end()) {
      checking.Add(KIND::kUnknownAttribute, attribute.offset,
                   {Quoted(attribute.name), Shown(element.name), Listed(known)});
    } else if (!seen.insert(attribute.name).second) {
      checking.Add(KIND::kDuplicateAttribute, attribute.offset, {attribute.name});
    }
  }
}

bool CheckStrayText(const pugi::xml_node& node, CHECKING& checking) {
  if (node.type() == pugi::node_element) {
    return false;
  }
  const std::string& source = checking.Source().Text();
  const std::size_t begin = source.find_first_not_of(kBlanks, OffsetOf(node));
  std::string text = node.value();
  text.erase(0, std::min(text.find_first_not_of(kBlanks), text.size()));
  text.erase(text.find_last_not_of(kBlanks) + 1);
  checking.Add(KIND::kStrayText, std::min(begin, source.size()), {Quoted(text)});
  return true;
}

void CheckHoldsNothing(const ELEMENT& element, CHECKING& checking) {
  for (const pugi::xml_node& node : element.node.children()) {
    if (!CheckStrayText(node, checking)) {
      checking.Add(KIND::kNestedElement, OffsetOf(node),
                   {Quoted(node.name()), Shown(element.name)});
    }
  }
}

void CheckDocument(const pugi::xml_document& document, CHECKING& checking) {
  const pugi::xml_node root = document.child(kRootElement);
  for (const pugi::xml_node& node : document.children()) {
    if (node.type() != pugi::node_element || node == root) {
      continue;
    }
    if (std::string(node.name()) == kRootElement) {
      checking.Add(KIND::kSecondRoot, OffsetOf(node));
    } else {
      checking.Add(KIND::kUnknownRoot, OffsetOf(node), {Quoted(node.name())});
    }
  }
  if (root) {
    CheckRoot(root, checking);
  } else {
    checking.AddForFile(KIND::kMissingRoot);
  }
}

}  // namespace vorn::checkconf
