#include "tests/support/ConfigFile.h"

namespace support {
namespace {

std::string Escaped(const std::string& separator) {
  std::string text;
  for (const char byte : separator) {
    if (byte == '\r') {
      text += "\\r";
    } else if (byte == '\n') {
      text += "\\n";
    } else {
      text += byte;
    }
  }
  return text;
}

}  // namespace

std::string DebuglogElement(const std::string& file, const std::string& level) {
  return "<Debuglog File=\"" + file + "\" Loglevel=\"" + level + "\"/>";
}

std::string SpeedElement(const std::string& percent) {
  return "<Speed Percent=\"" + percent + "\"/>";
}

std::string InitPollStateElement(const std::string& action) {
  return "<InitPollState Action=\"" + action + "\"/>";
}

std::string AutoDiscoverElement(const std::string& action) {
  return "<AutoDiscover Action=\"" + action + "\"/>";
}

std::string InterfaceElement(const INTERFACE& interface) {
  return "<Interface Name=\"" + interface.name + "\" Port=\"" + std::to_string(interface.port) +
         "\" InpSeparator=\"" + Escaped(interface.inpSeparator) + "\" OutSeparator=\"" +
         Escaped(interface.outSeparator) + "\"/>";
}

std::string InterfacesElement(const std::vector<std::string>& children) {
  std::string text = "<Interfaces>\n";
  for (const std::string& child : children) {
    text += "    " + child + "\n";
  }
  return text + "  </Interfaces>";
}

std::string Document(const std::vector<std::string>& elements) {
  std::string text = "<?xml version=\"1.0\"?>\n<VORNConfig>\n";
  for (const std::string& element : elements) {
    text += "  " + element + "\n";
  }
  return text + "</VORNConfig>\n";
}

std::string CONFIG::Text() const {
  return Document(
      {DebuglogElement(logFile, logLevel), SpeedElement(speedPercent),
       InitPollStateElement(initPollState), AutoDiscoverElement(autoDiscover),
       InterfacesElement({InterfaceElement(cae), InterfaceElement(io), InterfaceElement(mon)})});
}

}  // namespace support
