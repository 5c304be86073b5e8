#include "checkconf/Report.h"

#include "checkconf/Quoting.h"
#include "vorn/base/Values.h"
#include "vorn/config/ConfigTables.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace vorn::checkconf {

namespace {

using JSON = nlohmann::ordered_json;

bool Starts(const CHECK_RESULT& result) {
  return result.config.errorText == kNoConfigError;
}

/// "2 errors", "1 warning"
std::string Counted(std::size_t count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

std::string Place(const POSITION& position) {
  return position.line == 0
             ? std::string()
             : std::to_string(position.line) + ":" + std::to_string(position.column) + ":";
}

std::string Ports(const CONFIG_DESCRIPTOR& config) {
  std::string ports;
  for (const INTERFACE_SLOT& row : InterfaceSlots()) {
    const INTERFACE_DESCRIPTOR& descriptor = config.*row.slot;
    ports += std::string(ports.empty() ? "" : ", ") + row.name + " on " +
             (descriptor.port == 0 ? "no known port" : "port " + ITOA(descriptor.port));
  }
  return ports;
}

std::string DaemonText(const CHECK_RESULT& result) {
  const CONFIG_DESCRIPTOR& config = result.config;
  if (!Starts(result)) {
    return "the daemon does not start: " + Shown(config.errorText);
  }
  return "the daemon starts with a pause of " + ITOA(std::max(0, config.threadDelayUs)) +
         " microseconds, polling " + (config.polling ? "on" : "off") + ", discovery " +
         (config.autoDiscover ? "on" : "off") + ", " +
         (config.logFileName.empty() ? "no log" : "log " + Quoted(config.logFileName)) + ", " +
         Ports(config);
}

std::string Verdict(const CHECK_RESULT& result) {
  const std::size_t errors = result.Count(SEVERITY::kError);
  const std::size_t warnings = result.Count(SEVERITY::kWarning);
  if (errors + warnings == 0) {
    return "good";
  }
  return (errors == 0 ? "good, " : "bad, " + Counted(errors, "error") + ", ") +
         Counted(warnings, "warning");
}

JSON DaemonJson(const CHECK_RESULT& result) {
  const CONFIG_DESCRIPTOR& config = result.config;
  if (!Starts(result)) {
    return {{"starts", false}, {"error", config.errorText}};
  }
  JSON interfaces = JSON::object();
  for (const INTERFACE_SLOT& row : InterfaceSlots()) {
    const INTERFACE_DESCRIPTOR& descriptor = config.*row.slot;
    interfaces[row.name] = {{"port", descriptor.port},
                            {"inp_separator", descriptor.inpSeparator},
                            {"out_separator", descriptor.outSeparator},
                            {"delay_us", static_cast<std::int32_t>(descriptor.threadDelayUs)}};
  }
  return {{"starts", true},
          {"log_file", config.logFileName},
          {"log_level", config.logLevel},
          {"delay_us", config.threadDelayUs},
          {"polling", config.polling},
          {"auto_discover", config.autoDiscover},
          {"interfaces", interfaces}};
}

}  // namespace

std::string TextReport(const std::string& path, const CHECK_RESULT& result) {
  const std::string file = Shown(path) + ":";
  std::string report;
  for (const FINDING& finding : result.findings) {
    const FINDING_KIND& kind = FindKind(finding.kind);
    report += file + Place(finding.position) + " " + Word(kind.severity) + ": " + finding.text +
              " [" + kind.id + "]\n    " + finding.advice + "\n";
  }
  return report + file + " " + DaemonText(result) + "\n" + file + " " + Verdict(result) + "\n";
}

std::string JsonReport(const std::string& path, const CHECK_RESULT& result) {
  JSON findings = JSON::array();
  for (const FINDING& finding : result.findings) {
    const FINDING_KIND& kind = FindKind(finding.kind);
    JSON entry = {{"id", kind.id}, {"severity", Word(kind.severity)}};
    if (finding.position.line != 0) {
      entry["line"] = finding.position.line;
      entry["column"] = finding.position.column;
    }
    entry["text"] = finding.text;
    entry["advice"] = finding.advice;
    findings.push_back(entry);
  }
  const JSON report = {{"file", path},
                       {"good", result.Count(SEVERITY::kError) == 0},
                       {"errors", result.Count(SEVERITY::kError)},
                       {"warnings", result.Count(SEVERITY::kWarning)},
                       {"findings", findings},
                       {"daemon", DaemonJson(result)}};
  constexpr int kIndent = 2;
  // Bytes that are no UTF-8 become replacement characters.
  return report.dump(kIndent, ' ', false, JSON::error_handler_t::replace) + "\n";
}

}  // namespace vorn::checkconf
