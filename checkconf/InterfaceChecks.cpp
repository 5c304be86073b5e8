#include "checkconf/InterfaceChecks.h"

#include "checkconf/DocumentChecks.h"
#include "checkconf/Quoting.h"
#include "checkconf/ValueChecks.h"
#include "vorn/base/Values.h"
#include "vorn/config/ConfigTables.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace vorn::checkconf {

namespace {

constexpr std::int32_t kHighestPort = std::numeric_limits<std::uint16_t>::max();

constexpr const char* kUsualSeparators[] = {"\r\n", "\n", "\r"};

std::vector<std::string> InterfaceNames() {
  std::vector<std::string> names;
  for (const INTERFACE_SLOT& row : InterfaceSlots()) {
    names.emplace_back(row.name);
  }
  return names;
}

std::vector<std::string> AttributeNames() {
  std::vector<std::string> names;
  for (const INTERFACE_ATTRIBUTE& row : InterfaceAttributes()) {
    names.emplace_back(row.name);
  }
  return names;
}

/// How a finding calls the interface.
std::string Called(const ELEMENT& element) {
  const ATTRIBUTE* const name = element.Find("Name");
  return name == nullptr ? "without a name" : Shown(name->value);
}

/// What the daemon makes of one attribute, and of nothing else.
INTERFACE_DESCRIPTOR Apply(const ATTRIBUTE& attribute) {
  INTERFACE_DESCRIPTOR descriptor;
  for (const INTERFACE_ATTRIBUTE& row : InterfaceAttributes()) {
    if (attribute.name == row.name) {
      row.apply(descriptor, attribute.value);
    }
  }
  return descriptor;
}

/// A character that some command contains: letters, digits, and what stands between parameters.
bool StandsInCommands(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == ':' ||
         c == '=';
}

/// The port that is bound: the number as it fits into 16 bits.
std::int32_t Bound(std::int32_t port) {
  return static_cast<std::uint16_t>(port);
}

}  // namespace

void INTERFACE_CHECKS::NoticeSetting(const ELEMENT& element) {
  const ATTRIBUTE* const percent = element.name == "Speed" ? element.Find("Percent") : nullptr;
  if (percent == nullptr) {
    return;
  }
  m_delayUs = SpeedToDelayUs(ATOL(percent->value));
  m_speedSeen = true;
  if (m_delayOfInterfaces && *m_delayOfInterfaces != m_delayUs) {
    m_checking.Add(KIND::kSpeedAfterInterfaces, element.offset,
                   {ITOA(std::max(0, *m_delayOfInterfaces))});
  }
}

void INTERFACE_CHECKS::CheckInterfaces(const ELEMENT& interfaces) {
  m_delayOfInterfaces = m_speedSeen ? m_delayUs : kDefaultThreadDelayUs;
  CheckAttributeNames(interfaces, {}, m_checking);
  std::size_t number = 0;
  for (const pugi::xml_node& node : interfaces.node.children()) {
    if (CheckStrayText(node, m_checking)) {
      continue;
    }
    if (number == kMaxInterfaces) {
      m_checking.Add(KIND::kFifthInterface, OffsetOf(node), {std::to_string(kMaxInterfaces)});
      return;
    }
    CheckInterface(ELEMENT(node, m_checking.Source()));
    ++number;
  }
}

void INTERFACE_CHECKS::CheckInterface(const ELEMENT& element) {
  CheckAttributeNames(element, AttributeNames(), m_checking);
  CheckHoldsNothing(element, m_checking);
  CheckName(element);
  CheckPort(element);
  for (const ATTRIBUTE& attribute : element.attributes) {
    if (m_checking.IsFull()) {
      return;  // a damaged element may have any number of attributes
    }
    if (attribute.name == "InpSeparator" || attribute.name == "OutSeparator") {
      CheckSeparator(element, attribute);
    }
  }
}

void INTERFACE_CHECKS::CheckName(const ELEMENT& element) {
  const ATTRIBUTE* const name = element.Find("Name");
  const std::vector<std::string> known = InterfaceNames();
  if (name == nullptr) {
    m_checking.Add(KIND::kNamelessInterface, element.offset, {Listed(known)});
  } else if (std::find(known.begin(), known.end(), name->value) == known.end()) {
    m_checking.Add(KIND::kUnknownInterface, name->offset, {Quoted(name->value), Listed(known)});
  } else {
    Serve(element, name->value);
  }
}

/// Takes the interface for the one that is served under its name, in the place of an earlier one.
void INTERFACE_CHECKS::Serve(const ELEMENT& element, const std::string& name) {
  SERVED served{name, {}, element.offset};
  if (const ATTRIBUTE* const port = element.Find("Port")) {
    served.port = ATOL(port->value);
    served.offset = port->offset;
  }
  const auto before = std::find_if(m_served.begin(), m_served.end(),
                                   [&](const SERVED& earlier) { return earlier.name == name; });
  if (before != m_served.end()) {
    m_checking.Add(KIND::kDuplicateInterface, element.offset, {name});
    m_served.erase(before);
  }
  m_served.push_back(std::move(served));
}

void INTERFACE_CHECKS::CheckPort(const ELEMENT& element) {
  const bool named = element.Find("Name") != nullptr;
  bool portSeen = false;
  bool nameSeen = false;
  for (const ATTRIBUTE& attribute : element.attributes) {
    nameSeen = nameSeen || attribute.name == "Name";
    if (attribute.name != "Port") {
      continue;
    }
    portSeen = true;
    const std::int32_t port = ReadNumber(attribute, m_checking);
    if (port < kLowestPort) {
      m_checking.Add(KIND::kPortTooLow, attribute.offset, {ITOA(port)});
    } else if (port > kHighestPort) {
      m_checking.Add(KIND::kPortTooHigh, attribute.offset, {ITOA(port), ITOA(Bound(port))});
    }
    if (named && !nameSeen) {
      m_checking.Add(KIND::kPortBeforeName, attribute.offset);
    }
  }
  if (!portSeen) {
    m_checking.Add(KIND::kMissingPort, element.offset, {Called(element)});
  }
}

void INTERFACE_CHECKS::CheckSeparator(const ELEMENT& element, const ATTRIBUTE& attribute) {
  const bool input = attribute.name == "InpSeparator";
  const INTERFACE_DESCRIPTOR descriptor = Apply(attribute);
  const std::string& separator = input ? descriptor.inpSeparator : descriptor.outSeparator;
  if (separator.empty()) {
    m_checking.Add(KIND::kEmptySeparator, attribute.offset,
                   {attribute.name, Called(element),
                    input ? "several commands sent at once are not told apart"
                          : "lines end with a carriage return only"});
    return;
  }
  const std::size_t escape = separator.find('\\');
  if (escape != std::string::npos) {
    m_checking.Add(KIND::kUnknownEscape, attribute.offset,
                   {attribute.name, Quoted(separator.substr(escape, 2))});
  }
  if (input && std::any_of(separator.begin(), separator.end(), StandsInCommands)) {
    m_checking.Add(KIND::kSeparatorInCommands, attribute.offset,
                   {attribute.name, Called(element), Quoted(separator)});
  } else if (std::find(std::begin(kUsualSeparators), std::end(kUsualSeparators), separator) ==
             std::end(kUsualSeparators)) {
    m_checking.Add(KIND::kUnusualSeparator, attribute.offset,
                   {attribute.name, Called(element), Quoted(separator)});
  }
}

void INTERFACE_CHECKS::CheckTogether() {
  if (m_served.empty()) {
    m_checking.AddForFile(KIND::kNoInterfaces, {Listed(InterfaceNames())});
    return;
  }
  for (const std::string& name : InterfaceNames()) {
    if (std::none_of(m_served.begin(), m_served.end(),
                     [&](const SERVED& served) { return served.name == name; })) {
      m_checking.AddForFile(KIND::kMissingInterface, {name});
    }
  }
  CheckEqualPorts();
}

void INTERFACE_CHECKS::CheckEqualPorts() {
  for (auto later = m_served.begin(); later != m_served.end(); ++later) {
    if (!later->port) {
      continue;
    }
    const auto port = Bound(*later->port);
    const auto earlier = std::find_if(m_served.begin(), later, [port](const SERVED& served) {
      return served.port && Bound(*served.port) == port;
    });
    if (earlier != later) {
      m_checking.Add(KIND::kEqualPorts, later->offset, {earlier->name, later->name, ITOA(port)});
    }
  }
}

}  // namespace vorn::checkconf
