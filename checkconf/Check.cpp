#include "checkconf/Check.h"

#include "checkconf/DocumentChecks.h"
#include "checkconf/Loading.h"
#include "checkconf/MachineChecks.h"
#include "vorn/config/ConfigReader.h"
#include "vorn/config/ConfigTables.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <map>

namespace vorn::checkconf {

namespace {

/// The parser's words for what is wrong, to stand within a sentence.
std::string Described(const pugi::xml_parse_result& outcome) {
  std::string description = outcome.description();
  description.front() =
      static_cast<char>(std::tolower(static_cast<unsigned char>(description.front())));
  return description;
}

const char* NameOf(pugi::xml_encoding encoding) {
  return encoding == pugi::encoding_latin1 ? "ISO 8859-1" : "UTF-16 or UTF-32";
}

/// The parser tells offsets in UTF-8. They are those of the file if it is that, or plain ASCII.
bool OffsetsHold(pugi::xml_encoding encoding, const std::string& text) {
  constexpr unsigned char kLastOfAscii = 0x7F;
  return encoding == pugi::encoding_utf8 ||
         (encoding == pugi::encoding_latin1 && std::all_of(text.begin(), text.end(), [](char c) {
            return static_cast<unsigned char>(c) <= kLastOfAscii;
          }));
}

/// Where the attributes stand that the machine is checked against: each the last of its kind, for
/// that counts.
PLACES FindPlaces(const pugi::xml_document& document, const SOURCE_TEXT& source) {
  const pugi::xml_node root = document.child(kRootElement);
  std::map<std::string, std::size_t> offsets;  // by interface; "" for the log file
  const auto notice = [&](const ELEMENT& element, const char* attribute, const std::string& key) {
    if (const ATTRIBUTE* const found = element.Find(attribute)) {
      offsets[key] = found->offset;
    }
  };
  for (const pugi::xml_node& node : root.children("Debuglog")) {
    notice(ELEMENT(node, source), "File", "");
  }
  for (const pugi::xml_node& interfaces : root.children(kInterfacesElement)) {
    for (const pugi::xml_node& node : interfaces.children()) {
      const ELEMENT element(node, source);
      if (const ATTRIBUTE* const name = element.Find("Name")) {
        notice(element, "Port", name->value);
      }
    }
  }
  const auto place = [&](const char* key) {
    const auto found = offsets.find(key);
    return found == offsets.end() ? POSITION{} : source.At(found->second);
  };
  return {place(""), place("IO"), place("CAE"), place("MON")};
}

void CheckText(SOURCE_TEXT& source, const CHECK_OPTIONS& options, FINDINGS& findings,
               CONFIG_DESCRIPTOR& config) {
  const std::string& text = source.Text();
  pugi::xml_document document;
  const pugi::xml_parse_result outcome = document.load_buffer(text.data(), text.size());
  if (!OffsetsHold(outcome.encoding, text)) {
    findings.Add(KIND::kOtherEncoding, {}, {NameOf(outcome.encoding)});
    source.ForgetPositions();
  } else if (const std::size_t zero = text.find('\0'); zero != std::string::npos) {
    findings.Add(KIND::kZeroByte, source.At(zero));
  }
  if (!outcome) {
    findings.Add(KIND::kBadXml, source.At(static_cast<std::size_t>(outcome.offset)),
                 {Described(outcome)});
    return;
  }
  config = ReadConfigDocument(document);
  CHECKING checking(source, findings);
  CheckDocument(document, checking);
  if (options.checkMachine) {
    CheckMachine(config, options.user, FindPlaces(document, source), findings);
  }
}

}  // namespace

std::size_t CHECK_RESULT::Count(SEVERITY severity) const {
  return static_cast<std::size_t>(std::count_if(
      findings.begin(), findings.end(),
      [severity](const FINDING& finding) { return FindKind(finding.kind).severity == severity; }));
}

CHECK_RESULT CheckConfig(const std::string& path, const CHECK_OPTIONS& options) {
  CHECK_RESULT result;
  result.config.errorText = kConfigLoadError;
  FINDINGS findings;
  if (const std::optional<std::string> text = LoadText(path, findings)) {
    if (options.checkMachine && !MayAccess(options.user, path, R_OK)) {
      findings.Add(KIND::kNotReadableByUser, {}, {options.user.name});
    }
    SOURCE_TEXT source(*text);
    CheckText(source, options, findings, result.config);
  }
  result.findings = findings.Take();
  return result;
}

}  // namespace vorn::checkconf
