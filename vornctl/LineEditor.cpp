#include "vornctl/LineEditor.h"

#include "client/Descriptor.h"
#include "vornctl/HistoryFile.h"
#include "vornctl/TerminalGuard.h"

#include <histedit.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <string_view>
#include <system_error>
#include <utility>

namespace ctl {

namespace {

/// As long as others wait for the rest of an arrow key's bytes.
constexpr int kRestOfKeyMs = 500;
/// So many keys in one Handle: a long paste must not keep the program from its other work.
constexpr int kKeysAtOnce = 1000;

struct EDIT_END {
  void operator()(EditLine* editLine) const {
    // It would throw away what is typed ahead for the next program; the guard restores the
    // terminal.
    el_set(editLine, EL_EDITMODE, 0);
    el_end(editLine);
  }
};
struct HISTORY_END {
  void operator()(History* history) const { history_end(history); }
};

/// A line as it stands: the cursor is before text[cursor].
struct TYPED {
  std::wstring text;
  std::size_t cursor = 0;
};

/// Where the cursor is, counted from the prompt's first column.
struct SPOT {
  int row = 0;
  int column = 0;
};

struct SIZE {
  int columns = 80;
  int lines = 24;
};

/// What a key asks for that is done when libedit has returned: its functions must not be left by an
/// exception.
enum class ASKED : std::uint8_t { kNothing, kComplete, kDropLine, kEnd };

std::string Narrow(std::wstring_view text) {
  std::string bytes;
  std::mbstate_t state{};
  std::array<char, MB_LEN_MAX> sign{};
  for (const wchar_t wide : text) {
    const std::size_t size = std::wcrtomb(sign.data(), wide, &state);
    if (size != static_cast<std::size_t>(-1)) {
      bytes.append(sign.data(), size);
    }
  }
  return bytes;
}

/// Bytes that are no text are left out.
std::wstring Wide(std::string_view bytes) {
  std::wstring text;
  while (!bytes.empty()) {
    std::mbstate_t state{};
    wchar_t sign = 0;
    const std::size_t size = std::mbrtowc(&sign, bytes.data(), bytes.size(), &state);
    if (size == 0 || size > bytes.size()) {
      bytes.remove_prefix(1);
      continue;
    }
    text += sign;
    bytes.remove_prefix(size);
  }
  return text;
}

/// libedit shows a control sign as ^X and what cannot be shown as \U+1234.
int WidthOf(wchar_t sign) {
  constexpr int kControl = 2;
  constexpr int kShort = 7;
  constexpr int kLong = 8;
  if (std::iswprint(static_cast<wint_t>(sign)) != 0) {
    return wcwidth(sign);
  }
  if (std::iswcntrl(static_cast<wint_t>(sign)) != 0 && sign < 0x80) {
    return kControl;
  }
  return sign > 0xFFFF ? kLong : kShort;
}

int WidthOf(const std::wstring& text) {
  int width = 0;
  for (const wchar_t sign : text) {
    width += WidthOf(sign);
  }
  return width;
}

/// A wide sign that would lie across the end of a row stands in the next.
bool GoesToNextRow(const SPOT& spot, wchar_t sign, int columns) {
  return std::iswprint(static_cast<wint_t>(sign)) != 0 && spot.column + WidthOf(sign) > columns;
}

/// Where the cursor is behind a text, as libedit lays it out.
SPOT Behind(SPOT spot, std::wstring_view text, int columns) {
  constexpr int kTab = 8;
  for (const wchar_t sign : text) {
    if (GoesToNextRow(spot, sign, columns)) {
      spot = {spot.row + 1, 0};
    }
    const int width = sign == L'\t' ? kTab - spot.column % kTab : WidthOf(sign);
    spot.column += width;
    spot.row += spot.column / columns;
    spot.column %= columns;
  }
  return spot;
}

/// Set by the user, or what a board without any such setting shows right.
void SetCharacters() {
  const char* set = std::setlocale(LC_CTYPE, "");
  if (set == nullptr || std::strcmp(nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
}

/// As far as all of them agree, in whole signs. At least one.
std::wstring CommonStart(const std::vector<std::wstring>& words) {
  std::wstring common = words.front();
  for (const std::wstring& word : words) {
    const auto differ = std::mismatch(common.begin(), common.end(), word.begin(), word.end());
    common.erase(differ.first, common.end());
  }
  return common;
}

/// Down each column in turn, as a shell lists them.
std::string InColumns(const std::vector<std::wstring>& words, int columns) {
  constexpr int kGap = 2;
  int width = 0;
  for (const std::wstring& word : words) {
    width = std::max(width, WidthOf(word) + kGap);
  }
  const auto across = static_cast<std::size_t>(std::max(columns / width, 1));
  const std::size_t down = (words.size() + across - 1) / across;
  std::string text;
  for (std::size_t row = 0; row < down; ++row) {
    for (std::size_t i = row; i < words.size(); i += down) {
      text += Narrow(words[i]);
      if (i + down < words.size()) {
        text.append(static_cast<std::size_t>(width - WidthOf(words[i])), ' ');
      }
    }
    text += '\n';
  }
  return text;
}

bool Asks(std::wstring_view word) {
  return !word.empty() && std::wstring_view(L"=./").find(word.back()) != std::wstring_view::npos;
}

}  // namespace

class LINE_EDITOR::EDITOR {
 public:
  EDITOR(std::string thePrompt, const std::string& historyFile, ON_LINE onLine, COMPLETER completer,
         FILE* theIn, FILE* theOut, FILE* theErr);
  ~EDITOR();
  EDITOR(const EDITOR&) = delete;
  EDITOR& operator=(const EDITOR&) = delete;

  int Descriptor() const { return m_watch.Get(); }
  void Handle();
  bool Ended() const { return m_ended; }
  void HidePrompt();
  void ShowPrompt();
  void Print(const std::string& news);

 private:
  static EDITOR& Of(EditLine* editLine);
  static char* OnPrompt(EditLine* editLine);
  static int OnRead(EditLine* editLine, wchar_t* key);
  static unsigned char OnTab(EditLine* editLine, int key);
  static unsigned char OnDrop(EditLine* editLine, int key);
  static unsigned char OnDelete(EditLine* editLine, int key);

  void SetModes();
  void SetKeys();
  void Learn(const std::string& line);
  void Appear();
  void Leave();
  void WatchKeys(bool on);
  bool Waits(int forMs) const;
  void HandleNews();
  void HandleKey();
  void TakeLine();
  void Complete();
  void DropLine();

  TYPED Typed() const;
  SIZE Size() const;
  bool CanGoUp() const;
  int CursorRow(const TYPED& line, const SIZE& size) const;
  void Write(const std::string& text);
  void Erase(const TYPED& line, int row);
  void Erase();
  void Redraw();

  std::string m_prompt;
  const ON_LINE m_takeLine;
  const COMPLETER m_complete;
  FILE* const m_in;   // lent
  FILE* const m_out;  // lent
  TERMINAL_GUARD m_guard;
  const client::DESCRIPTOR m_watch;
  HISTORY_FILE m_lines;
  const std::unique_ptr<History, HISTORY_END> m_history;
  const std::unique_ptr<EditLine, EDIT_END> m_edit;
  SIZE m_drawnFor;
  TYPED m_kept;  // of a line that was hidden half typed
  ASKED m_asked = ASKED::kNothing;
  bool m_shown = false;     // there is a prompt
  bool m_hidden = false;    // there shall be none
  bool m_isTaking = false;  // a line is being carried out
  bool m_ended = false;
};

LINE_EDITOR::EDITOR::EDITOR(std::string thePrompt, const std::string& historyFile, ON_LINE onLine,
                            COMPLETER completer, FILE* theIn, FILE* theOut, FILE* theErr)
    : m_prompt(std::move(thePrompt)),
      m_takeLine(std::move(onLine)),
      m_complete(std::move(completer)),
      m_in(theIn),
      m_out(theOut),
      m_guard(fileno(theIn)),
      m_watch(epoll_create1(EPOLL_CLOEXEC)),
      m_lines(historyFile),
      m_history(history_init()),
      m_edit((SetCharacters(), el_init("vornctl", theIn, theOut, theErr))) {
  epoll_event bell{};
  bell.events = EPOLLIN;
  epoll_event keys{};  // none as yet, but the terminal's end
  if (!m_watch || !m_history || !m_edit ||
      epoll_ctl(m_watch.Get(), EPOLL_CTL_ADD, m_guard.Descriptor(), &bell) != 0 ||
      epoll_ctl(m_watch.Get(), EPOLL_CTL_ADD, fileno(m_in), &keys) != 0) {
    throw std::system_error(errno, std::generic_category(), "line editor");
  }
  EditLine* const editLine = m_edit.get();
  el_set(editLine, EL_CLIENTDATA, this);
  el_set(editLine, EL_PROMPT, &EDITOR::OnPrompt);
  el_set(editLine, EL_GETCFN, &EDITOR::OnRead);
  el_set(editLine, EL_EDITMODE, 1);  // it is off where TERM is emacs, which shows a line as it is
  SetModes();
  SetKeys();
  HistEvent event{};
  ::history(m_history.get(), &event, H_SETSIZE, static_cast<int>(HISTORY_FILE::kMost));
  for (const std::string& line : m_lines.Lines()) {
    Learn(line);
  }
  el_set(editLine, EL_HIST, &::history, m_history.get());
  Appear();
}

LINE_EDITOR::EDITOR::~EDITOR() {
  if (m_shown) {
    Write("\n");
    Leave();
  }
  m_lines.Write();
}

/// While keys are edited Ctrl-C is one of them. While a line is carried out it is SIGINT, and what
/// is typed ahead is neither shown nor cut into lines: it comes key by key to the next prompt.
void LINE_EDITOR::EDITOR::SetModes() {
  el_set(m_edit.get(), EL_SETTY, "-d", "intr=", nullptr);
  el_set(m_edit.get(), EL_SETTY, "-x", "-icanon", "-echo", nullptr);
}

void LINE_EDITOR::EDITOR::SetKeys() {
  EditLine* const editLine = m_edit.get();
  el_set(editLine, EL_EDITOR, "emacs");
  // By wide names: libedit copies the others, and keeps the copies for good.
  el_wset(editLine, EL_ADDFN, L"vornctl-complete", L"Complete the word", &EDITOR::OnTab);
  el_wset(editLine, EL_ADDFN, L"vornctl-drop", L"Drop the line", &EDITOR::OnDrop);
  el_wset(editLine, EL_ADDFN, L"vornctl-delete", L"Delete a sign, or end", &EDITOR::OnDelete);
  el_set(editLine, EL_BIND, "^I", "vornctl-complete", nullptr);
  el_set(editLine, EL_BIND, "^C", "vornctl-drop", nullptr);
  el_set(editLine, EL_BIND, "^D", "vornctl-delete", nullptr);
  // The search as one types would wait for keys, and nothing could be printed meanwhile.
  el_set(editLine, EL_BIND, "^R", "ed-search-prev-history", nullptr);
  el_set(editLine, EL_BIND, "\\e[3~", "ed-delete-next-char", nullptr);
  el_set(editLine, EL_BIND, "\\e[1;5D", "ed-prev-word", nullptr);
  el_set(editLine, EL_BIND, "\\e[1;5C", "em-next-word", nullptr);
}

/// What libedit cannot read as text it could not step over.
void LINE_EDITOR::EDITOR::Learn(const std::string& line) {
  if (Narrow(Wide(line)) == line) {
    HistEvent event{};
    ::history(m_history.get(), &event, H_ENTER, line.c_str());
  }
}

LINE_EDITOR::EDITOR& LINE_EDITOR::EDITOR::Of(EditLine* editLine) {
  void* data = nullptr;
  el_get(editLine, EL_CLIENTDATA, &data);
  return *static_cast<EDITOR*>(data);
}

char* LINE_EDITOR::EDITOR::OnPrompt(EditLine* editLine) {
  return Of(editLine).m_prompt.data();
}

/// A key's first byte is there; the others may be on their way, or never come.
int LINE_EDITOR::EDITOR::OnRead(EditLine* editLine, wchar_t* key) {
  EDITOR& editor = Of(editLine);
  std::mbstate_t state{};
  while (editor.Waits(kRestOfKeyMs)) {
    char byte = 0;
    const ssize_t count = read(fileno(editor.m_in), &byte, 1);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
      continue;
    }
    if (count <= 0) {
      editor.m_ended = true;
      return 0;
    }
    const std::size_t size = std::mbrtowc(key, &byte, 1, &state);
    if (size == static_cast<std::size_t>(-1)) {
      break;  // no text: the byte is thrown away
    }
    if (size != static_cast<std::size_t>(-2)) {
      return 1;
    }
  }
  errno = EAGAIN;
  return -1;
}

unsigned char LINE_EDITOR::EDITOR::OnTab(EditLine* editLine, int /*key*/) {
  Of(editLine).m_asked = ASKED::kComplete;
  return CC_NORM;
}

unsigned char LINE_EDITOR::EDITOR::OnDrop(EditLine* editLine, int /*key*/) {
  Of(editLine).m_asked = ASKED::kDropLine;
  return CC_NORM;
}

unsigned char LINE_EDITOR::EDITOR::OnDelete(EditLine* editLine, int /*key*/) {
  const LineInfoW* line = el_wline(editLine);
  if (line->buffer == line->lastchar) {
    Of(editLine).m_asked = ASKED::kEnd;
    return CC_NORM;
  }
  if (line->cursor == line->lastchar) {
    return CC_ERROR;
  }
  el_cursor(editLine, 1);
  el_deletestr(editLine, 1);
  return CC_REFRESH;
}

void LINE_EDITOR::EDITOR::WatchKeys(bool on) {
  epoll_event keys{};
  keys.events = on ? EPOLLIN : 0U;
  epoll_ctl(m_watch.Get(), EPOLL_CTL_MOD, fileno(m_in), &keys);
}

/// For a byte, or the terminal's end.
bool LINE_EDITOR::EDITOR::Waits(int forMs) const {
  pollfd keys{fileno(m_in), POLLIN, 0};
  return poll(&keys, 1, forMs) > 0;
}

void LINE_EDITOR::EDITOR::Appear() {
  m_shown = true;
  m_drawnFor = Size();
  el_set(m_edit.get(), EL_UNBUFFERED, 1);  // an empty line, and the prompt
  if (!m_kept.text.empty()) {
    Erase();
    el_winsertstr(m_edit.get(), m_kept.text.c_str());
    el_cursor(m_edit.get(), static_cast<int>(m_kept.cursor) - static_cast<int>(m_kept.text.size()));
    Redraw();
    m_kept = {};
  }
  WatchKeys(true);
}

void LINE_EDITOR::EDITOR::HidePrompt() {
  m_hidden = true;
  if (m_shown) {
    m_kept = Typed();
    Erase();
    Leave();
  }
}

void LINE_EDITOR::EDITOR::ShowPrompt() {
  m_hidden = false;
  // It comes of itself behind a line.
  if (!m_shown && !m_isTaking && !m_ended) {
    Appear();
  }
}

/// The prompt, if any, stays on the screen.
void LINE_EDITOR::EDITOR::Leave() {
  WatchKeys(false);
  el_set(m_edit.get(), EL_UNBUFFERED, 0);
  m_shown = false;
}

void LINE_EDITOR::EDITOR::Handle() {
  HandleNews();
  if (!m_shown && !m_isTaking && !m_ended) {
    pollfd end{fileno(m_in), 0, 0};
    m_ended = poll(&end, 1, 0) > 0;
  }
  for (int i = 0; i < kKeysAtOnce && m_shown && Waits(0); ++i) {
    HandleKey();
  }
  if (m_ended) {
    // A terminal that is gone stays readable.
    epoll_ctl(m_watch.Get(), EPOLL_CTL_DEL, fileno(m_in), nullptr);
  }
}

void LINE_EDITOR::EDITOR::HandleNews() {
  const TERMINAL_GUARD::NEWS news = m_guard.TakeNews();
  if (!news.resized && !news.continued) {
    return;
  }
  if (news.continued) {
    // libedit believes the settings to be those that it made.
    el_set(m_edit.get(), EL_PREP_TERM, m_shown ? 0 : 1);
    el_set(m_edit.get(), EL_PREP_TERM, m_shown ? 1 : 0);
    SetModes();
  }
  if (!m_shown) {
    el_resize(m_edit.get());
    return;
  }
  const TYPED line = Typed();
  const int before = CursorRow(line, m_drawnFor);
  el_resize(m_edit.get());
  // Some terminals lay long lines out anew, others do not: no line above is lost on either.
  Erase(line, news.continued ? 0 : std::min(before, CursorRow(line, Size())));
  Redraw();
}

void LINE_EDITOR::EDITOR::HandleKey() {
  m_asked = ASKED::kNothing;
  int count = 0;
  el_wgets(m_edit.get(), &count);
  if (m_ended || m_asked == ASKED::kEnd) {
    m_ended = true;
    Write("\n");
    Leave();
    return;
  }
  if (m_asked == ASKED::kComplete) {
    Complete();
  } else if (m_asked == ASKED::kDropLine) {
    DropLine();
  } else {
    const LineInfoW* line = el_wline(m_edit.get());
    if (line->lastchar > line->buffer && line->lastchar[-1] == L'\n') {
      TakeLine();
    }
  }
}

void LINE_EDITOR::EDITOR::TakeLine() {
  std::string line = Narrow(Typed().text);
  line.pop_back();  // its end
  Leave();
  if (m_lines.Add(line)) {
    Learn(line);
  }
  struct TAKING {
    explicit TAKING(bool& theFlag) : flag(theFlag) { flag = true; }
    ~TAKING() { flag = false; }
    TAKING(const TAKING&) = delete;
    TAKING& operator=(const TAKING&) = delete;
    bool& flag;
  };
  {
    const TAKING taking(m_isTaking);
    m_takeLine(line);
  }
  if (!m_hidden && !m_shown) {
    Appear();
  }
}

void LINE_EDITOR::EDITOR::Complete() {
  const TYPED line = Typed();
  const std::wstring before = line.text.substr(0, line.cursor);
  const std::wstring word = before.substr(before.rfind(L' ') + 1);
  std::vector<std::wstring> words;
  for (const std::string& each : m_complete(Narrow(before))) {
    std::wstring wide = Wide(each);
    if (wide.starts_with(word)) {
      words.push_back(std::move(wide));
    }
  }
  if (words.empty()) {
    Write("\a");
    return;
  }
  std::wstring more = CommonStart(words).substr(word.size());
  const bool isBlankNext = line.cursor < line.text.size() && line.text[line.cursor] == L' ';
  if (words.size() == 1 && !Asks(words.front()) && !isBlankNext) {
    more += L' ';
  }
  if (!more.empty()) {
    Erase();
    el_winsertstr(m_edit.get(), more.c_str());
    Redraw();
  } else if (words.size() > 1) {
    Print(InColumns(words, Size().columns));
  } else {
    Write("\a");
  }
}

void LINE_EDITOR::EDITOR::DropLine() {
  const std::string line = Narrow(Typed().text);
  Erase();
  Write(m_prompt + line + "^C\n");
  Leave();
  Appear();
}

TYPED LINE_EDITOR::EDITOR::Typed() const {
  const LineInfoW* line = el_wline(m_edit.get());
  return {std::wstring(line->buffer, line->lastchar),
          static_cast<std::size_t>(line->cursor - line->buffer)};
}

SIZE LINE_EDITOR::EDITOR::Size() const {
  SIZE size;
  el_get(m_edit.get(), EL_GETTC, "co", &size.columns);
  el_get(m_edit.get(), EL_GETTC, "li", &size.lines);
  return {std::max(size.columns, 1), std::max(size.lines, 1)};
}

bool LINE_EDITOR::EDITOR::CanGoUp() const {
  const char* up = nullptr;
  // Not all go up by the sequence that is written here, but those with any escape code know it.
  return el_get(m_edit.get(), EL_GETTC, "up", &up) == 0 && up != nullptr && *up == '\033';
}

int LINE_EDITOR::EDITOR::CursorRow(const TYPED& line, const SIZE& size) const {
  const std::wstring before = Wide(m_prompt) + line.text.substr(0, line.cursor);
  const SPOT spot = Behind({}, before, size.columns);
  const bool isNext =
      line.cursor < line.text.size() && GoesToNextRow(spot, line.text[line.cursor], size.columns);
  return std::min(spot.row + (isNext ? 1 : 0), size.lines - 1);
}

void LINE_EDITOR::EDITOR::Write(const std::string& text) {
  std::fputs(text.c_str(), m_out);
  std::fflush(m_out);
}

/// Prompt and line, from a screen where the cursor is in this row of them.
void LINE_EDITOR::EDITOR::Erase(const TYPED& line, int row) {
  if (CanGoUp()) {
    std::string text;
    for (int i = 0; i < row; ++i) {
      text += "\033[A";
    }
    Write(text + "\r\033[J");
    return;
  }
  const SPOT end = Behind({}, Wide(m_prompt) + line.text, Size().columns);
  Write(end.row > 0 ? "\n" : "\r" + std::string(static_cast<std::size_t>(end.column), ' ') + "\r");
}

void LINE_EDITOR::EDITOR::Erase() {
  const TYPED line = Typed();
  Erase(line, CursorRow(line, Size()));
}

/// From the first column of an empty row.
void LINE_EDITOR::EDITOR::Redraw() {
  m_drawnFor = Size();
  el_set(m_edit.get(), EL_REFRESH);
}

void LINE_EDITOR::EDITOR::Print(const std::string& news) {
  const std::string text = news.empty() || news.back() == '\n' ? news : news + '\n';
  if (!m_shown) {
    Write(text);
    return;
  }
  Erase();
  Write(text);
  Redraw();
}

LINE_EDITOR::LINE_EDITOR(const std::string& prompt, const std::string& historyFile,
                         ON_LINE takeLine, COMPLETER complete, FILE* in, FILE* out, FILE* err)
    : m_editor(std::make_unique<EDITOR>(prompt, historyFile, std::move(takeLine),
                                        std::move(complete), in, out, err)) {
}

LINE_EDITOR::~LINE_EDITOR() = default;

int LINE_EDITOR::Descriptor() const {
  return m_editor->Descriptor();
}

void LINE_EDITOR::Handle() {
  m_editor->Handle();
}

bool LINE_EDITOR::Ended() const {
  return m_editor->Ended();
}

void LINE_EDITOR::HidePrompt() {
  m_editor->HidePrompt();
}

void LINE_EDITOR::ShowPrompt() {
  m_editor->ShowPrompt();
}

void LINE_EDITOR::Print(const std::string& text) {
  m_editor->Print(text);
}

}  // namespace ctl
