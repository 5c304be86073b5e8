#pragma once

#include <stdexcept>
#include <string>

namespace ctl {

/// What the program ends with. Documented in vornctl(1); a number is never given another meaning.
enum class EXIT_STATUS : int {
  kDone = 0,
  kRefused = 1,     ///< by the daemon or a card
  kUsage = 2,       ///< a wrong command line, a bad value, a bad settings file
  kTimeout = 3,     ///< no answer, or what was waited for has not come
  kTaken = 4,       ///< another client holds the interface
  kNotReached = 8,  ///< no daemon, or the connection to it was lost
  kNoSuch = 10,     ///< no such card, channel or name
};

/// A command cannot be carried out. Thrown by commands and what they use, caught where the command
/// was read: the text is the one line that the user sees, and says what to do.
class FAILURE : public std::runtime_error {
 public:
  FAILURE(EXIT_STATUS status, const std::string& text)
      : std::runtime_error(text), m_status(status) {}
  EXIT_STATUS Status() const { return m_status; }

 private:
  EXIT_STATUS m_status;
};

}  // namespace ctl
