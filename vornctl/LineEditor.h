#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ctl {

/// A prompt on the terminal with history and completion, for a program with a loop of its own: the
/// loop waits until Descriptor() is readable and calls Handle. Lines may be printed above the
/// prompt at any time; what is being typed stays. One at a time in a program, on the program's
/// thread; the destructor gives the terminal back as it was and writes the history.
///
/// It is libedit's own interface, unbuffered: its readline face loses the prompt when something is
/// printed meanwhile.
///
/// Keys are those of Emacs. Tab completes; where nothing can be added, it lists what there is.
/// Ctrl-R looks for what stands before the cursor in older lines, further with each Ctrl-R. Ctrl-C
/// drops the line while there is a prompt; while there is none it is SIGINT, as ever. A program
/// that is ended by SIGINT, SIGTERM, SIGHUP or SIGQUIT gives the terminal back first; where it has
/// a handler of its own, that handler's program calls the destructor. See TerminalGuard.h.
class LINE_EDITOR {
 public:
  /// Called by Handle, without a prompt on the terminal; it may hide the prompt for longer, and
  /// must not destroy the editor.
  using ON_LINE = std::function<void(const std::string& line)>;
  /// The words with which the last word of what stands before the cursor may go on or end, whole;
  /// words that do not begin with it are passed over. A blank follows the only one, unless it ends
  /// with '=', '.' or '/'.
  using COMPLETER = std::function<std::vector<std::string>(const std::string& before)>;

  /// Shows the prompt. `historyFile`: read now and written at the end, in a folder that is made
  /// where it is missing; empty, or not there: no history from before. One that is there and cannot
  /// be read is not written, and one that cannot be written stays as it was.
  ///
  /// The streams are lent. Both are a terminal: throws std::system_error where `in` is none. Sets
  /// the program's character set (LC_CTYPE) to the user's, or to UTF-8 where the user has none.
  LINE_EDITOR(const std::string& prompt, const std::string& historyFile, ON_LINE takeLine,
              COMPLETER complete, FILE* in = stdin, FILE* out = stdout, FILE* err = stderr);
  ~LINE_EDITOR();
  LINE_EDITOR(const LINE_EDITOR&) = delete;
  LINE_EDITOR& operator=(const LINE_EDITOR&) = delete;

  /// Readable when Handle has something to do: keys while there is a prompt, a new size of the
  /// window, the terminal's end. What is typed while there is no prompt waits in the terminal.
  int Descriptor() const;
  /// Never waits, except for the rest of a key of several bytes: half a second at most.
  void Handle();
  /// The user has ended the input: Ctrl-D on an empty line, or the terminal is gone.
  bool Ended() const;

  /// While a line is carried out there is no prompt; what is typed meanwhile, or was being typed,
  /// is kept for the next. Typed signs do not show meanwhile, and Ctrl-C throws them away.
  void HidePrompt();
  void ShowPrompt();

  /// Whole lines, above the prompt where there is one; the last one's end may be left out.
  void Print(const std::string& text);

 private:
  class EDITOR;
  std::unique_ptr<EDITOR> m_editor;
};

}  // namespace ctl
