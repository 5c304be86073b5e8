#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ctl {

/// A prompt on the terminal with history and completion, for a program with a loop of its own: the
/// loop waits for the standard input and calls Handle. Lines may be printed above the prompt at any
/// time; what is being typed stays. One at a time in a program, on the program's thread; the
/// destructor gives the terminal back as it was and writes the history.
///
/// It is libedit's own interface, unbuffered: its readline face loses the prompt when something is
/// printed meanwhile.
class LINE_EDITOR {
 public:
  using ON_LINE = std::function<void(const std::string& line)>;
  /// The words with which the last word of what stands before the cursor may go on or end, whole.
  using COMPLETER = std::function<std::vector<std::string>(const std::string& before)>;

  /// `historyFile`: read now and written at the end, in a folder that is made where it is missing;
  /// empty, or not readable: no history from before.
  LINE_EDITOR(const std::string& prompt, const std::string& historyFile, ON_LINE takeLine,
              COMPLETER complete);
  ~LINE_EDITOR();
  LINE_EDITOR(const LINE_EDITOR&) = delete;
  LINE_EDITOR& operator=(const LINE_EDITOR&) = delete;

  /// Something waits on the standard input.
  void Handle();
  /// The user has ended the input: Ctrl-D on an empty line, or the terminal is gone.
  bool Ended() const;

  /// While a line is carried out there is no prompt; what is typed meanwhile is kept for the next.
  void HidePrompt();
  void ShowPrompt();

  /// Whole lines, above the prompt where there is one.
  void Print(const std::string& text);

 private:
  struct EDITOR;
  std::unique_ptr<EDITOR> m_editor;
};

}  // namespace ctl
