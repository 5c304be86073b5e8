#include "checkconf/FindingKinds.h"

#include <algorithm>
#include <stdexcept>

namespace vorn::checkconf {

namespace {

constexpr auto kError = SEVERITY::kError;
constexpr auto kWarning = SEVERITY::kWarning;

// clang-format off
constexpr FINDING_KIND kKinds[] = {
    // --- the file
    {KIND::kNotFound,            "not-found",              kError,
     "there is no such file",
     "Start from the example, /usr/share/doc/vorn/examples/vornconf.xml."},
    {KIND::kNotRegular,          "not-regular",            kError,
     "this is {}, not a file",
     "Put a plain text file in its place; the daemon reads nothing else."},
    {KIND::kNotReadable,         "not-readable",           kError,
     "the file cannot be read: {}",
     "Check the permissions of the file and of the folders above it."},
    {KIND::kNotReadableByUser,   "not-readable-by-user",   kError,
     "user {} may not read the file: the daemon would not start",
     "Let that user read it: chmod 644, and 755 for the folders above it."},
    {KIND::kTooLarge,            "too-large",              kError,
     "the file has more than {} bytes: this cannot be a configuration",
     "Restore the right file."},
    {KIND::kBadXml,              "bad-xml",                kError,
     "not well-formed XML ({}): the daemon would not start",
     "Look here and shortly before: an unclosed element, quote or comment, or a \"<\" in a value."},
    {KIND::kZeroByte,            "zero-byte",              kWarning,
     "a zero byte: nothing after it is read",
     "Remove it; a file full of zeros was damaged, write it anew."},
    {KIND::kOtherEncoding,       "other-encoding",         kWarning,
     "the file is encoded in {}: positions cannot be told",
     "Save it as UTF-8."},
    // --- its structure
    {KIND::kMissingRoot,         "missing-root",           kError,
     "there is no element VORNConfig: the daemon would use defaults, without any of the interfaces",
     "Put everything into one element VORNConfig; upper and lower case count."},
    {KIND::kUnknownRoot,         "unknown-root",           kWarning,
     "element {} stands outside VORNConfig and is not read",
     "Move it into VORNConfig, or remove it."},
    {KIND::kSecondRoot,          "second-root",            kWarning,
     "a second VORNConfig is not read",
     "Merge it with the first."},
    {KIND::kUnknownElement,      "unknown-element",        kWarning,
     "unknown element {} is ignored",
     "Known here, and case counts: {}."},
    {KIND::kNestedElement,       "nested-element",         kWarning,
     "element {} inside {} is not read",
     "Move it out; a value is always an attribute."},
    {KIND::kUnknownAttribute,    "unknown-attribute",      kWarning,
     "unknown attribute {} of {} is ignored",
     "Known here, and case counts: {}."},
    {KIND::kDuplicateElement,    "duplicate-element",      kWarning,
     "a second {}: where both give a value the later one counts",
     "Keep one of them."},
    {KIND::kDuplicateAttribute,  "duplicate-attribute",    kWarning,
     "attribute {} is given twice: the later one counts",
     "Keep one of them."},
    {KIND::kMissingAttribute,    "missing-attribute",      kWarning,
     "{} without {} changes nothing",
     "Add the attribute, or remove the element."},
    {KIND::kStrayText,           "stray-text",             kWarning,
     "text between the elements is not read: {}",
     "Make it a comment, or remove it; a value is always an attribute."},
    // --- values
    {KIND::kNotANumber,          "not-a-number",           kWarning,
     "{} is no plain decimal number: the daemon reads {}",
     "Write digits only."},
    {KIND::kBadSpeed,            "bad-speed",              kError,
     "speed {} is outside 1 to 100: the pause of the loops would be {} microseconds",
     "Choose 1 (5 ms pause) to 100 (1 microsecond)."},
    {KIND::kBadLogLevel,         "bad-log-level",          kError,
     "log level {} silences the log, and each suppressed line keeps one more file open",
     "Write 0."},
    {KIND::kNegativeLogLevel,    "negative-log-level",     kWarning,
     "log level {} means the same as 0",
     "Write 0."},
    {KIND::kNoLogFile,           "no-log-file",            kWarning,
     "no log file is named: nothing is logged",
     "Give Debuglog an attribute File, such as /var/log/vorn/vorn.log."},
    {KIND::kRelativeLogFile,     "relative-log-file",      kWarning,
     "the log file {} depends on the folder in which the daemon is started",
     "Write the whole path, from \"/\" on."},
    {KIND::kLooksTrue,           "looks-true",             kError,
     "{} is read as FALSE",
     "Only TRUE, True and true switch on. Write TRUE or FALSE."},
    {KIND::kUnknownWord,         "unknown-word",           kWarning,
     "{} is read as FALSE",
     "Write TRUE or FALSE."},
    {KIND::kSpeedAfterInterfaces, "speed-after-interfaces", kWarning,
     "this Speed comes after Interfaces: the interfaces keep a pause of {} microseconds",
     "Move Speed before Interfaces."},
    // --- interfaces
    {KIND::kNoInterfaces,        "no-interfaces",          kError,
     "none of the interfaces {} is configured: no client could find the daemon",
     "Add an element Interfaces with one child for each of them."},
    {KIND::kMissingInterface,    "missing-interface",      kWarning,
     "interface {} is not configured: the daemon listens for it on a port that the system picks",
     "Add a child of Interfaces with this name and a port of your choice."},
    {KIND::kUnknownInterface,    "unknown-interface",      kError,
     "no interface is called {}: this one is not served",
     "The names are {}; case counts."},
    {KIND::kNamelessInterface,   "nameless-interface",     kError,
     "this interface has no Name: it is not served",
     "Give it one of the names {}."},
    {KIND::kDuplicateInterface,  "duplicate-interface",    kWarning,
     "a second interface {} replaces the first",
     "Keep one of them."},
    {KIND::kFifthInterface,      "fifth-interface",        kWarning,
     "only the first {} children of Interfaces are read: this one and what follows is ignored",
     "Remove what is not needed."},
    {KIND::kMissingPort,         "missing-port",           kError,
     "interface {} has no Port: the system would pick another one at every start",
     "Give it a port of its own, 1025 to 65535."},
    {KIND::kPortTooLow,          "port-too-low",           kError,
     "port {} is below 1025: the daemon would not start",
     "Choose a port from 1025 to 65535."},
    {KIND::kPortTooHigh,         "port-too-high",          kError,
     "port {} is above 65535: the daemon would listen on port {}",
     "Choose a port from 1025 to 65535."},
    {KIND::kPortBeforeName,      "port-before-name",       kWarning,
     "Port comes before Name: a message about the port could not name the interface",
     "Write Name first."},
    {KIND::kEqualPorts,          "equal-ports",            kError,
     "interfaces {} and {} have the same port {}: only the first would get it",
     "Give each interface a port of its own."},
    {KIND::kEmptySeparator,      "empty-separator",        kWarning,
     "{} of interface {} is empty: {}",
     R"(Write \r\n or \n.)"},
    {KIND::kUnusualSeparator,    "unusual-separator",      kWarning,
     "{} of interface {} is unusual: {}",
     R"(Terminals and scripts end lines with \r\n or \n.)"},
    {KIND::kSeparatorInCommands, "separator-in-commands",  kWarning,
     "{} of interface {} holds {}, which commands contain: they would be cut there",
     R"(Use characters that stand in no command, best \r\n or \n.)"},
    {KIND::kUnknownEscape,       "unknown-escape",         kWarning,
     "{} holds {}, which stands for itself",
     R"(The only escapes are \r and \n.)"},
    // --- this machine
    {KIND::kLogFolderMissing,    "log-folder-missing",     kWarning,
     "folder {} of the log file is not there: nothing would be logged",
     "Create it, owned by the user that runs the daemon."},
    {KIND::kLogFolderNotWritable, "log-folder-not-writable", kWarning,
     "user {} may not create the log file in {}: nothing would be logged",
     "Give that user the folder, or name a log file elsewhere."},
    {KIND::kLogFileNotWritable,  "log-file-not-writable",  kWarning,
     "user {} may not write to the log file {}: nothing would be logged",
     "Give that user the file, or name another one."},
    {KIND::kLogFileIsFolder,     "log-file-is-folder",     kWarning,
     "the log file {} is a folder: nothing would be logged",
     "Name a file in it."},
    {KIND::kPortTaken,           "port-taken",             kWarning,
     "port {} is in use: the daemon would listen on a port that the system picks",
     "Well if that is the daemon itself, running now. Else find the program: ss -ltnp 'sport = :{}'."},
    // --- the report
    {KIND::kTooManyFindings,     "too-many-findings",      kError,
     "{} further findings are left out",
     "Mend those above first."},
};
// clang-format on

}  // namespace

const char* Word(SEVERITY severity) {
  return severity == SEVERITY::kError ? "error" : "warning";
}

std::span<const FINDING_KIND> FindingKinds() {
  return kKinds;
}

const FINDING_KIND& FindKind(KIND kind) {
  const auto* const found =
      std::find_if(std::begin(kKinds), std::end(kKinds),
                   [kind](const FINDING_KIND& row) { return row.kind == kind; });
  if (found == std::end(kKinds)) {
    throw std::logic_error("a kind of finding without a row");
  }
  return *found;
}

}  // namespace vorn::checkconf
