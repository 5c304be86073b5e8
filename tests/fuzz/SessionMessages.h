#pragma once

#include <string>

/// What the clients of a session may receive: the documented messages of their own interface.
namespace vorn {

namespace fuzz {

/// What one client has received, and whether a part of a message may be missing at its end.
struct RECEIVED {
  std::string bytes;
  bool torn = false;
};

/// The operator receives answers and reports.
void RequireAnswers(const RECEIVED& received);
/// The IO client receives input lines.
void RequireInputs(const RECEIVED& received);
/// The monitor receives copies, of input lines and of what IO has sent: `ioBytes`, all of it.
void RequireCopies(const RECEIVED& received, const std::string& ioBytes);

}  // namespace fuzz

}  // namespace vorn
