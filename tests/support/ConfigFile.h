#pragma once

#include "tests/support/Wait.h"

#include <string>
#include <vector>

namespace support {

constexpr const char* kConfigPath = "/etc/vorn/vornconf.xml";

/// One TCP interface as the configuration file describes it; the separators as they travel.
struct INTERFACE {
  std::string name;
  int port = 0;
  std::string inpSeparator;
  std::string outSeparator;
};

/// The elements of the file, each as text. Values are written as they are, without escaping.
std::string DebuglogElement(const std::string& file, const std::string& level = "0");
std::string SpeedElement(const std::string& percent);
std::string InitPollStateElement(const std::string& action);
std::string AutoDiscoverElement(const std::string& action);
/// Carriage returns and line feeds of the separators become backslash r and backslash n.
std::string InterfaceElement(const INTERFACE& interface);
std::string InterfacesElement(const std::vector<std::string>& children);
std::string Document(const std::vector<std::string>& elements);

/// A good configuration: every element, in the order of the manual. Each interface has separators
/// of its own, so that an exchanged pair shows.
struct CONFIG {
  std::string logFile;
  std::string logLevel = "0";
  /// A sanitizer's loops cost several times as much.
  std::string speedPercent = kInstrumented ? "75" : "90";
  std::string initPollState = "FALSE";
  std::string autoDiscover = "TRUE";
  INTERFACE cae{"CAE", 0, "\r\n", "\r\n"};
  INTERFACE io{"IO", 0, "\n", "\n"};
  INTERFACE mon{"MON", 0, "#", "%"};

  std::string Text() const;
};

}  // namespace support
