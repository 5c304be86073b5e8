#include "vorn/config/ConfigTables.h"

#include "vorn/base/Values.h"

#include <string_view>

namespace vorn {

namespace {

/// Every "from" becomes "to", left to right.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string result;
  std::size_t begin = 0;
  for (std::size_t at = text.find(from); at != std::string_view::npos;
       at = text.find(from, begin)) {
    result.append(text.substr(begin, at - begin)).append(to);
    begin = at + from.size();
  }
  return result.append(text.substr(begin));
}

/// The two-character escapes of a separator: all carriage returns first, then all line feeds.
std::string ReplaceEscapes(const std::string& text) {
  return ReplaceAll(ReplaceAll(text, "\\r", "\r"), "\\n", "\n");
}

// --- attributes of the root's children --------------------------------------------------------

void SetLogFile(CONFIG_DESCRIPTOR& config, const std::string& value) {
  config.logFileName = value;
}

void SetLogLevel(CONFIG_DESCRIPTOR& config, const std::string& value) {
  config.logLevel = ATOL(value);
}

void SetSpeed(CONFIG_DESCRIPTOR& config, const std::string& value) {
  config.threadDelayUs = SpeedToDelayUs(ATOL(value));
}

void SetPolling(CONFIG_DESCRIPTOR& config, const std::string& value) {
  config.polling = ATOB(value);
}

void SetAutoDiscover(CONFIG_DESCRIPTOR& config, const std::string& value) {
  config.autoDiscover = ATOB(value);
}

// clang-format off
constexpr CONFIG_SETTING kSettings[] = {
    // element         attribute   its text goes to
    {"Debuglog",       "File",     SetLogFile},
    {"Debuglog",       "Loglevel", SetLogLevel},
    {"Speed",          "Percent",  SetSpeed},
    {"InitPollState",  "Action",   SetPolling},
    {"AutoDiscover",   "Action",   SetAutoDiscover},
};
// clang-format on

// --- attributes of the children of `Interfaces` -----------------------------------------------

bool SetName(INTERFACE_DESCRIPTOR& descriptor, const std::string& value) {
  descriptor.name = value;
  return true;
}

bool SetPort(INTERFACE_DESCRIPTOR& descriptor, const std::string& value) {
  descriptor.port = ATOL(value);
  return descriptor.port >= kLowestPort;
}

bool SetInpSeparator(INTERFACE_DESCRIPTOR& descriptor, const std::string& value) {
  descriptor.inpSeparator = ReplaceEscapes(value);
  return true;
}

bool SetOutSeparator(INTERFACE_DESCRIPTOR& descriptor, const std::string& value) {
  descriptor.outSeparator = ReplaceEscapes(value);
  return true;
}

constexpr INTERFACE_ATTRIBUTE kInterfaceAttributes[] = {
    {"Name", SetName},
    {"Port", SetPort},
    {"InpSeparator", SetInpSeparator},
    {"OutSeparator", SetOutSeparator},
};

constexpr INTERFACE_SLOT kInterfaceSlots[] = {
    {"IO", &CONFIG_DESCRIPTOR::io},
    {"CAE", &CONFIG_DESCRIPTOR::cae},
    {"MON", &CONFIG_DESCRIPTOR::mon},
};

}  // namespace

std::span<const CONFIG_SETTING> ConfigSettings() {
  return kSettings;
}

std::span<const INTERFACE_ATTRIBUTE> InterfaceAttributes() {
  return kInterfaceAttributes;
}

std::span<const INTERFACE_SLOT> InterfaceSlots() {
  return kInterfaceSlots;
}

}  // namespace vorn
