#pragma once

#include "vornctl/ExitStatus.h"

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace ctl {

/// One line of --json. Its fields are documented in vornctl.schema.json, and keep their names.
using RECORD = nlohmann::ordered_json;

/// What the program says: results on the standard output, one line each and written at once; notes,
/// progress and errors on the standard error. On the program's only thread. Nothing here throws but
/// Check: it is called from handlers.
class OUTPUT {
 public:
  struct OPTIONS {
    bool json = false;
    bool quiet = false;  ///< no notes and no progress
  };

  explicit OUTPUT(OPTIONS options);

  bool IsJson() const { return m_options.json; }

  /// A result: the text, or with --json the record. Dropped where nobody reads any more.
  void Put(const std::string& text, const RECORD& record);
  /// A result that has a form for programs only.
  void PutRecord(const RECORD& record);
  /// Lines that are shown as they are, with --json inside a record of the caller's.
  void PutText(const std::string& text);

  /// Something to know beside the result; one line.
  void Note(const std::string& text);
  /// What is waited for, on a terminal, in place of the last such text; empty: nothing any more.
  void Progress(const std::string& text);
  /// Why the command was not carried out: one line, or with --json a record; `origin` is the file
  /// and line of a batch, or empty.
  void Fail(const FAILURE& failure, const std::string& origin = {});

  /// Nobody reads the standard output any more. No fault: a command that only shows is over then,
  /// any other goes on.
  bool IsReaderGone() const { return m_isReaderGone; }
  void SetReaderGone() { m_isReaderGone = true; }
  /// Throws FAILURE, kUsage, where the standard output could not be written for another reason.
  void Check() const;

  /// From here on all lines go there: above a prompt. Empty: to the streams again.
  void PrintBy(std::function<void(const std::string& lines)> print) { m_print = std::move(print); }

 private:
  void PutLine(const std::string& line);
  void PutError(const std::string& line);

  const OPTIONS m_options;
  const bool m_showsProgress;
  bool m_isProgressShown = false;
  bool m_isReaderGone = false;
  int m_writeError = 0;  ///< errno of the first; 0: none
  std::function<void(const std::string&)> m_print;
};

}  // namespace ctl
