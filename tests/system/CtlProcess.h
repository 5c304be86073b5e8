#pragma once

#include "sim/line/Descriptor.h"
#include "tests/support/Screen.h"
#include "tests/support/Wait.h"

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

/// How a vornctl is started.
struct CTL_START {
  std::vector<std::string> arguments;
  /// Its standard input, which ends behind that; nothing: more comes by Write, until EndInput.
  std::optional<std::string> input = "";
  std::map<std::string, std::string> environment{};  ///< in place of, or beside, the test's own
  bool hasTerminal = false;     ///< a pseudo-terminal in place of the three streams
  bool hasNoStreams = false;    ///< standard input, output and error are closed
  std::string outputPath = {};  ///< a file for the standard output
};

/// A vornctl that runs. One thread; while no method runs nothing is read, nor written of an input
/// that is longer than a pipe takes. The destructor leaves no process behind.
class CTL_PROCESS {
 public:
  static constexpr unsigned short kColumns = 80;
  static constexpr unsigned short kLines = 40;

  explicit CTL_PROCESS(const CTL_START& start);
  ~CTL_PROCESS();
  CTL_PROCESS(const CTL_PROCESS&) = delete;
  CTL_PROCESS& operator=(const CTL_PROCESS&) = delete;

  /// To the standard input, or typed.
  void Write(const std::string& text);
  void EndInput();
  /// Whoever reads the standard output goes away.
  void CloseOutput();
  void Signal(int number) const;

  /// What has come on the two streams so far, all of it.
  const std::string& Out() const { return m_out; }
  const std::string& Error() const { return m_error; }
  /// On a terminal.
  const support::SCREEN& Screen() const { return m_screen; }

  /// Reads until it holds; false when it still does not after the limit, or at the end.
  template <class PREDICATE>
  bool WaitUntil(PREDICATE holds) {
    return support::WaitUntil([&] {
      Read();
      return holds();
    });
  }
  bool WaitForOut(const std::string& text);
  bool WaitForError(const std::string& text);
  /// So many whole lines.
  bool WaitForLines(std::size_t count);

  /// The exit status where it has ended, as WaitForEnd has it.
  std::optional<int> Ended();
  /// Reads all, to the end; the exit status, 128 + the number of a signal, nothing when it still
  /// runs after the limit.
  std::optional<int> WaitForEnd();

 private:
  void Read();

  pid_t m_pid = -1;
  std::optional<int> m_status;
  sim::DESCRIPTOR m_input;
  sim::DESCRIPTOR m_output;  // of a terminal: its far end
  sim::DESCRIPTOR m_errors;
  std::string m_unwritten;
  bool m_endsInput = false;
  std::string m_out;
  std::string m_error;
  support::SCREEN m_screen{kColumns, kLines};
};
