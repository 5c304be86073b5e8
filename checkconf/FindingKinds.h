#pragma once

#include <cstdint>
#include <span>

namespace vorn::checkconf {

/// An error: the daemon does not start, or does something else than the file says or than any user
/// can want. A warning: it works, and yet a person should hear it. What depends on this machine and
/// not on the file (a log folder, a port in use) is a warning.
enum class SEVERITY : std::uint8_t { kWarning, kError };

/// "warning" or "error".
const char* Word(SEVERITY severity);

/// Everything that can be found, in the order of the manual page.
enum class KIND : std::uint8_t {
  // the file
  kNotFound,
  kNotRegular,
  kNotReadable,
  kNotReadableByUser,
  kTooLarge,
  kBadXml,
  kZeroByte,
  kOtherEncoding,
  // its structure
  kMissingRoot,
  kUnknownRoot,
  kSecondRoot,
  kUnknownElement,
  kNestedElement,
  kUnknownAttribute,
  kDuplicateElement,
  kDuplicateAttribute,
  kMissingAttribute,
  kStrayText,
  // values
  kNotANumber,
  kBadSpeed,
  kBadLogLevel,
  kNegativeLogLevel,
  kNoLogFile,
  kRelativeLogFile,
  kLooksTrue,
  kUnknownWord,
  kSpeedAfterInterfaces,
  // interfaces
  kNoInterfaces,
  kMissingInterface,
  kUnknownInterface,
  kNamelessInterface,
  kDuplicateInterface,
  kFifthInterface,
  kMissingPort,
  kPortTooLow,
  kPortTooHigh,
  kPortBeforeName,
  kEqualPorts,
  kEmptySeparator,
  kUnusualSeparator,
  kSeparatorInCommands,
  kUnknownEscape,
  // this machine
  kLogFolderMissing,
  kLogFolderNotWritable,
  kLogFileNotWritable,
  kLogFileIsFolder,
  kPortTaken,
  // the report
  kTooManyFindings,
};

struct FINDING_KIND {
  KIND kind;
  const char* id;  ///< as printed, and as the manual page lists it
  SEVERITY severity;
  const char* text;    ///< what; "{}" stands for a detail
  const char* advice;  ///< what to do; further "{}" may follow here
};

std::span<const FINDING_KIND> FindingKinds();

const FINDING_KIND& FindKind(KIND kind);

}  // namespace vorn::checkconf
