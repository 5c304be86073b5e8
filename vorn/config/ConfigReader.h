#pragma once

#include "vorn/config/ConfigDescriptor.h"

#include <string>

namespace pugi {
class xml_document;
}

namespace vorn {

/// The error text for a file that is missing, unreadable or no well-formed XML.
constexpr const char* kConfigLoadError = "Unable to load config, or unable to parse XML file!";

/// Reads a configuration file. Never throws; the record's error text tells the outcome. A file that
/// cannot be loaded is also reported to the system log, at notice priority: no log file is known
/// then.
CONFIG_DESCRIPTOR ReadConfigFile(const std::string& path);

/// The same for a document that is loaded already, with pugixml's default parse options.
CONFIG_DESCRIPTOR ReadConfigDocument(const pugi::xml_document& document);

}  // namespace vorn
