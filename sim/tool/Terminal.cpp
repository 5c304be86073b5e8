#include "sim/tool/Terminal.h"

#include <editline/readline.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace sim {

namespace {

constexpr char kPrompt[] = "rack> ";
/// Lines and prompt need so many lines below the picture to be of use.
constexpr std::size_t kFewestLines = 4;

constexpr char kSaveCursor[] = "\0337";
constexpr char kRestoreCursor[] = "\0338";
constexpr char kWholeScreenScrolls[] = "\033[r";
constexpr char kClearScreen[] = "\033[2J";
constexpr char kClearLine[] = "\r\033[K";

std::string CursorTo(int line) {
  return "\033[" + std::to_string(line) + ";1H";
}

void Write(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

winsize Size() {
  constexpr unsigned short kHeight = 24;
  constexpr unsigned short kWidth = 80;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
    size = {kHeight, kWidth, 0, 0};
  }
  return size;
}

/// Columns that a line of the picture takes: each of its signs is one wide.
int Width(const std::string& line) {
  const auto isContinued = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
  };
  return static_cast<int>(line.size()) -
         static_cast<int>(std::count_if(line.begin(), line.end(), isContinued));
}

/// What a terminal must have at least: a line that is too wide would go on in the next one, over
/// the picture.
winsize Needed(const std::vector<std::string>& picture) {
  int width = 0;
  for (const std::string& line : picture) {
    width = std::max(width, Width(line));
  }
  winsize needed{};
  needed.ws_row = static_cast<unsigned short>(picture.size() + 1 + kFewestLines);
  needed.ws_col = static_cast<unsigned short>(width);
  return needed;
}

}  // namespace

TERMINAL* TERMINAL::instance = nullptr;

TERMINAL::TERMINAL(LINE_TAKER takeLine, COMPLETER complete)
    : m_takeLine(std::move(takeLine)), m_complete(std::move(complete)) {
  constexpr int kHistory = 1000;
  instance = this;
  using_history();
  stifle_history(kHistory);
  rl_attempted_completion_function = &TERMINAL::OnComplete;
  rl_callback_handler_install(kPrompt, &TERMINAL::OnLine);
}

TERMINAL::~TERMINAL() {
  rl_callback_handler_remove();
  Write(std::string(kSaveCursor) + kWholeScreenScrolls + kRestoreCursor + "\n");
  instance = nullptr;
}

void TERMINAL::ReadInput() {
  rl_callback_read_char();
}

void TERMINAL::OnLine(char* line) {
  TERMINAL& terminal = *instance;
  if (line == nullptr) {
    terminal.m_ended = true;
    return;
  }
  const std::string text = line;
  std::free(line);
  if (!text.empty()) {
    add_history(text.c_str());
  }
  // The line editor leaves its mode with each line; a prompt must not come before the response.
  terminal.m_editing = false;
  terminal.m_takeLine(text);
  terminal.m_editing = true;
  rl_callback_handler_install(kPrompt, &TERMINAL::OnLine);
}

char** TERMINAL::OnComplete(const char* word, int begin, int /*end*/) {
  TERMINAL& terminal = *instance;
  rl_attempted_completion_over = 1;  // never names of files
  terminal.m_matches.clear();
  const std::string before(rl_line_buffer, static_cast<std::size_t>(begin));
  for (std::string& each : terminal.m_complete(before)) {
    if (each.starts_with(word)) {
      terminal.m_matches.push_back(std::move(each));
    }
  }
  return rl_completion_matches(word, &TERMINAL::NextMatch);
}

/// The line editor frees what it gets.
char* TERMINAL::NextMatch(const char* /*word*/, int state) {
  TERMINAL& terminal = *instance;
  if (state == 0) {
    terminal.m_nextMatch = 0;
  }
  if (terminal.m_nextMatch >= terminal.m_matches.size()) {
    return nullptr;
  }
  return strdup(terminal.m_matches[terminal.m_nextMatch++].c_str());
}

void TERMINAL::Print(const std::string& text) const {
  Write(m_editing ? kClearLine + text : text);
  if (m_editing) {
    rl_forced_update_display();
  }
}

void TERMINAL::Arrange(std::size_t pictureLines) {
  const int top = static_cast<int>(pictureLines) + 1;  // a ruled line below the picture
  std::string text = kClearScreen;
  if (pictureLines > 0) {
    text += CursorTo(top) + std::string(static_cast<std::size_t>(std::min(m_width, 78)), '-');
    text += "\033[" + std::to_string(top + 1) + ";" + std::to_string(m_height) + "r";
  } else {
    text += kWholeScreenScrolls;
  }
  Write(text + CursorTo(m_height));
  m_drawn.assign(pictureLines, {});
  rl_forced_update_display();
}

void TERMINAL::Draw(const std::vector<std::string>& picture) {
  const winsize size = Size();
  const winsize needed = Needed(picture);
  const bool fits = needed.ws_row <= size.ws_row && needed.ws_col <= size.ws_col;
  const std::size_t wanted = fits ? picture.size() : 0;
  if (size.ws_row != m_height || size.ws_col != m_width || wanted != m_drawn.size()) {
    m_height = size.ws_row;
    m_width = size.ws_col;
    Arrange(wanted);
    if (!fits) {
      Print("too small for the picture: " + std::to_string(needed.ws_col) + " columns and " +
            std::to_string(needed.ws_row) + " lines would do\n");
    }
  }
  std::string text;
  for (std::size_t i = 0; i < wanted; ++i) {
    if (picture[i] == m_drawn[i]) {
      continue;
    }
    text += CursorTo(static_cast<int>(i) + 1) + picture[i] + "\033[K";
    m_drawn[i] = picture[i];
  }
  if (!text.empty()) {
    Write(kSaveCursor + text + kRestoreCursor);
  }
}

bool TerminalAvailable() {
  const char* kind = std::getenv("TERM");
  return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && kind != nullptr &&
         std::strcmp(kind, "dumb") != 0;
}

bool TerminalKnowsUtf8() {
  std::setlocale(LC_CTYPE, "");
  return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

}  // namespace sim
