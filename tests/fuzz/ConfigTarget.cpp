// The configuration file: the input is the file. Whatever it holds, the daemon starts on good
// values or says why not, and the checker says the same.

#include "checkconf/Check.h"
#include "tests/fuzz/support/Check.h"
#include "tests/fuzz/support/Input.h"
#include "vorn/base/Values.h"
#include "vorn/config/ConfigReader.h"
#include "vorn/config/ConfigTables.h"

#include <sys/mman.h>
#include <unistd.h>

#include <pugixml.hpp>
#include <string>

namespace vorn {

namespace {

using fuzz::Require;

int reports = 0;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

/// A file that is in memory only.
class MEMORY_FILE {
 public:
  MEMORY_FILE(const std::uint8_t* data, std::size_t size)
      : m_descriptor(memfd_create("configuration", MFD_CLOEXEC)) {
    Require(m_descriptor >= 0, "there is a file in memory");
    Require(write(m_descriptor, data, size) == static_cast<ssize_t>(size), "it takes the input");
  }
  ~MEMORY_FILE() { close(m_descriptor); }
  MEMORY_FILE(const MEMORY_FILE&) = delete;
  MEMORY_FILE& operator=(const MEMORY_FILE&) = delete;

  std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

 private:
  int m_descriptor;
};

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void RequireNoEscapes(const std::string& separator) {
  Require(separator.find("\\r") == std::string::npos && separator.find("\\n") == std::string::npos,
          "a separator's escapes are replaced", separator);
}

void RequireGoodInterface(const INTERFACE_DESCRIPTOR& interface, const std::string& name) {
  Require(interface.name.empty() || interface.name == name, "an interface is in its own slot",
          interface.name);
  Require(interface.port == 0 || interface.port >= kLowestPort, "a port is 1025 or above",
          ITOA(interface.port));
  Require(interface.state == 0, "no interface is connected by its configuration");
  RequireNoEscapes(interface.inpSeparator);
  RequireNoEscapes(interface.outSeparator);
}

void RequireSame(const CONFIG_DESCRIPTOR& one, const CONFIG_DESCRIPTOR& other) {
  const auto interfaces = [](const CONFIG_DESCRIPTOR& config) {
    std::string text;
    for (const INTERFACE_DESCRIPTOR& interface :
         {config.io, config.cae, config.mon, config.spare}) {
      text += interface.name + '|' + ITOA(interface.port) + '|' + interface.inpSeparator + '|' +
              interface.outSeparator + '|' + ITOA(interface.threadDelayUs) + '\n';
    }
    return text;
  };
  Require(one.errorText == other.errorText && one.logFileName == other.logFileName &&
              one.logLevel == other.logLevel && one.threadDelayUs == other.threadDelayUs &&
              one.polling == other.polling && one.autoDiscover == other.autoDiscover &&
              interfaces(one) == interfaces(other),
          "file and document are read alike");
}

}  // namespace

// What goes to the system log is counted instead.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// the linker's names
extern "C" {

void __wrap_syslog(int priority, const char* format, ...);
void __wrap___syslog_chk(int priority, int flag, const char* format, ...);
void __wrap_closelog();

void __wrap_syslog(int, const char*, ...) {
  ++reports;
}

void __wrap___syslog_chk(int, int, const char*, ...) {
  ++reports;
}

void __wrap_closelog() {
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MEMORY_FILE file(data, size);
  reports = 0;
  const CONFIG_DESCRIPTOR config = ReadConfigFile(file.Path());
  Require(reports == (config.errorText == kConfigLoadError ? 1 : 0),
          "what cannot be loaded goes to the system log, once, and nothing else does");

  pugi::xml_document document;
  if (document.load_buffer(data, size)) {
    RequireSame(config, ReadConfigDocument(document));
  } else {
    Require(config.errorText == kConfigLoadError, "what is no XML is told", config.errorText);
  }

  const bool starts = config.errorText == kNoConfigError;
  Require(starts || config.errorText == kConfigLoadError ||
              EndsWith(config.errorText, " interface port number is less than 1025"),
          "a known error text", config.errorText);
  if (starts) {
    RequireGoodInterface(config.cae, "CAE");
    RequireGoodInterface(config.io, "IO");
    RequireGoodInterface(config.mon, "MON");
    RequireGoodInterface(config.spare, "");
  }

  const checkconf::CHECK_RESULT checked = checkconf::CheckConfig(file.Path(), {{}, false});
  Require(checked.config.errorText == config.errorText, "checker and daemon agree",
          checked.config.errorText);
  const bool leftOut = checked.findings.size() > checkconf::FINDINGS::kMostFindings;
  Require(starts || leftOut || checked.Count(checkconf::SEVERITY::kError) > 0,
          "the checker finds why the daemon does not start");
  Require(checked.findings.size() <= checkconf::FINDINGS::kMostFindings + 1,
          "findings are bounded");
  return 0;
}

}  // namespace vorn
