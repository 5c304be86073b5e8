#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sim {

/// A terminal with a picture that redraws in place at its top, and below it lines that scroll and a
/// prompt with history and completion. One at a time in a program, on the program's thread; the
/// destructor gives the terminal back as it was.
class TERMINAL {
 public:
  using LINE_TAKER = std::function<void(const std::string& line)>;
  /// Words with which the line may go on.
  using COMPLETER = std::function<std::vector<std::string>(const std::string& lineBefore)>;

  TERMINAL(LINE_TAKER takeLine, COMPLETER complete);
  ~TERMINAL();
  TERMINAL(const TERMINAL&) = delete;
  TERMINAL& operator=(const TERMINAL&) = delete;

  /// Something waits on the standard input.
  void ReadInput();
  /// The user ended the input (Ctrl-D on an empty line).
  bool Ended() const { return m_ended; }

  /// Prints lines above the prompt.
  void Print(const std::string& text) const;

  /// Draws the picture anew where it differs from the last. A terminal that is too small for it,
  /// in height or width, keeps the whole of its height for the lines, one of which says so.
  void Draw(const std::vector<std::string>& picture);

 private:
  static void OnLine(char* line);
  static char** OnComplete(const char* word, int begin, int end);
  static char* NextMatch(const char* word, int state);
  void Arrange(std::size_t pictureLines);

  static TERMINAL* instance;  // the line editor calls plain functions

  const LINE_TAKER m_takeLine;
  const COMPLETER m_complete;
  std::vector<std::string> m_matches;
  std::size_t m_nextMatch = 0;
  std::vector<std::string> m_drawn;
  int m_height = 0;
  int m_width = 0;
  bool m_editing = true;  // a line is being typed: the prompt stands below what is printed
  bool m_ended = false;
};

/// Standard input and output both are a terminal that can move its cursor.
bool TerminalAvailable();

/// The terminal's locale says UTF-8.
bool TerminalKnowsUtf8();

}  // namespace sim
