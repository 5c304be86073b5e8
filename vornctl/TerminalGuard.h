#pragma once

#include "client/Descriptor.h"

namespace ctl {

/// Gives a terminal its settings back, whatever ends the program: at the end of the scope, and when
/// SIGINT, SIGTERM, SIGHUP or SIGQUIT ends it or SIGTSTP stops it. These signals then do what they
/// always do; where one is ignored, or has a handler already, it is left alone. One at a time in a
/// program.
class TERMINAL_GUARD {
 public:
  /// `terminal` is lent. Throws std::system_error where it is none.
  explicit TERMINAL_GUARD(int terminal);
  ~TERMINAL_GUARD();
  TERMINAL_GUARD(const TERMINAL_GUARD&) = delete;
  TERMINAL_GUARD& operator=(const TERMINAL_GUARD&) = delete;

  struct NEWS {
    bool resized = false;    ///< the window has another size
    bool continued = false;  ///< the program was stopped: the settings are the shell's now
  };
  /// Readable when there is news.
  int Descriptor() const { return m_bell.Get(); }
  NEWS TakeNews();

 private:
  client::DESCRIPTOR m_bell;
};

}  // namespace ctl
