#include "vorn/config/ConfigReader.h"

#include "vorn/config/ConfigTables.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <pugixml.hpp>
#include <string_view>

namespace vorn {

namespace {

/// What the reader works on: the record it returns, and one descriptor per child of `Interfaces`.
struct READING {
  CONFIG_DESCRIPTOR config;
  std::array<INTERFACE_DESCRIPTOR, kMaxInterfaces> interfaces;
};

void ReadSettings(const pugi::xml_node& element, CONFIG_DESCRIPTOR& config) {
  const std::string_view name = element.name();
  for (const pugi::xml_attribute& attribute : element.attributes()) {
    for (const CONFIG_SETTING& setting : ConfigSettings()) {
      if (name == setting.element && std::string_view(attribute.name()) == setting.attribute) {
        setting.apply(config, attribute.value());
      }
    }
  }
}

/// False when the value makes the configuration unusable.
bool ReadInterfaceAttribute(const pugi::xml_attribute& attribute,
                            INTERFACE_DESCRIPTOR& descriptor) {
  for (const INTERFACE_ATTRIBUTE& row : InterfaceAttributes()) {
    if (std::string_view(attribute.name()) == row.name) {
      return row.apply(descriptor, attribute.value());
    }
  }
  return true;
}

/// False when a port ends the reading; the error text is set then.
bool ReadInterface(const pugi::xml_node& element, INTERFACE_DESCRIPTOR& descriptor,
                   CONFIG_DESCRIPTOR& config) {
  // The delay as it stands now: only a `Speed` element before `Interfaces` reaches the interfaces.
  descriptor.threadDelayUs = config.threadDelayUs;
  for (const pugi::xml_attribute& attribute : element.attributes()) {
    if (!ReadInterfaceAttribute(attribute, descriptor)) {
      config.errorText = descriptor.name + " interface port number is less than 1025";
      return false;
    }
  }
  for (const INTERFACE_SLOT& row : InterfaceSlots()) {
    if (descriptor.name == row.name) {
      config.*row.slot = descriptor;
    }
  }
  return true;
}

bool ReadInterfaces(const pugi::xml_node& element, READING& reading) {
  std::size_t number = 0;
  for (const pugi::xml_node& child : element.children()) {
    if (child.type() != pugi::node_element) {
      continue;  // text between elements
    }
    if (number == kMaxInterfaces) {
      break;
    }
    if (!ReadInterface(child, reading.interfaces[number], reading.config)) {
      return false;
    }
    ++number;
  }
  return true;
}

/// Only a regular file is opened: a pipe or a device would hold the start-up or never end.
bool Load(const std::string& path, pugi::xml_document& document) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         document.load_file(path.c_str());
}

void ReportLoadError() {
  setlogmask(LOG_UPTO(LOG_NOTICE));
  syslog(LOG_NOTICE,
         "Unable to start by user %d, because unable to load config, or unable to parse XML file!",
         static_cast<int>(getuid()));
  closelog();
}

}  // namespace

CONFIG_DESCRIPTOR ReadConfigDocument(const pugi::xml_document& document) {
  READING reading;
  for (const pugi::xml_node& element : document.child(kRootElement).children()) {
    ReadSettings(element, reading.config);
    if (std::string_view(element.name()) == kInterfacesElement &&
        !ReadInterfaces(element, reading)) {
      break;
    }
  }
  return reading.config;
}

CONFIG_DESCRIPTOR ReadConfigFile(const std::string& path) {
  pugi::xml_document document;
  if (!Load(path, document)) {
    CONFIG_DESCRIPTOR config;
    config.errorText = kConfigLoadError;
    ReportLoadError();
    return config;
  }
  return ReadConfigDocument(document);
}

}  // namespace vorn
