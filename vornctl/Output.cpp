#include "vornctl/Output.h"

#include "vornctl/WriteAll.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

namespace ctl {

namespace {

constexpr char kClearLine[] = "\r\033[K";

/// What a server or a user has written may be no UTF-8.
std::string Dump(const RECORD& record) {
  return record.dump(-1, ' ', false, RECORD::error_handler_t::replace);
}

}  // namespace

OUTPUT::OUTPUT(OPTIONS options)
    : m_options(options), m_showsProgress(!options.quiet && isatty(STDERR_FILENO) != 0) {
}

void OUTPUT::PutLine(const std::string& line) {
  Progress({});
  if (m_print) {
    m_print(line + "\n");
    return;
  }
  if (m_isReaderGone || m_writeError != 0) {
    return;
  }
  const int error = WriteAll(STDOUT_FILENO, line + "\n");
  if (error == EPIPE) {
    m_isReaderGone = true;
  } else {
    m_writeError = error;
  }
}

void OUTPUT::Check() const {
  if (m_writeError != 0) {
    throw FAILURE(EXIT_STATUS::kUsage, std::string("the standard output cannot be written: ") +
                                           std::strerror(m_writeError));
  }
}

void OUTPUT::PutError(const std::string& line) {
  Progress({});
  if (m_print) {
    m_print(line + "\n");
  } else {
    WriteAll(STDERR_FILENO, line + "\n");
  }
}

void OUTPUT::Put(const std::string& text, const RECORD& record) {
  PutLine(m_options.json ? Dump(record) : text);
}

void OUTPUT::PutRecord(const RECORD& record) {
  if (m_options.json) {
    PutLine(Dump(record));
  }
}

void OUTPUT::PutText(const std::string& text) {
  if (!m_options.json) {
    PutLine(text);
  }
}

void OUTPUT::Note(const std::string& text) {
  if (!m_options.quiet) {
    PutError("vornctl: " + text);
  }
}

void OUTPUT::Progress(const std::string& text) {
  if (!m_showsProgress || m_print || (text.empty() && !m_isProgressShown)) {
    return;
  }
  m_isProgressShown = !text.empty();
  std::string line = text.empty() ? text : "vornctl: " + text;
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 &&
      line.size() >= size.ws_col) {
    line.resize(size.ws_col - 1U);  // of one that went on in the next row half would stay
  }
  WriteAll(STDERR_FILENO, kClearLine + line);
}

void OUTPUT::Fail(const FAILURE& failure, const std::string& origin) {
  const int status = static_cast<int>(failure.Status());
  if (m_options.json) {
    RECORD record = {{"type", "error"}, {"status", status}, {"message", failure.what()}};
    if (!origin.empty()) {
      record["at"] = origin;
    }
    PutError(Dump(record));
    return;
  }
  PutError("vornctl: " + (origin.empty() ? origin : origin + ": ") + failure.what());
}

}  // namespace ctl
