#pragma once

#include "sim/line/Trace.h"
#include "sim/tool/WakeQueue.h"

#include <fstream>
#include <memory>
#include <string>

namespace sim {

/// Writes what crosses an adapter's line into a trace file. Made before the adapter, whose thread
/// hands over what it sees; everything else on the program's thread.
class RECORDER {
 public:
  /// Begins the file and taps the adapter's line; times count from the beginning.
  RESULT Begin(const std::string& path, ADAPTER& adapter, TIME beginning);

  /// Readable when Write has something to do.
  int Descriptor() const { return m_entries.Descriptor(); }
  /// Writes what came since; nothing before Begin. An error ends the recording.
  RESULT Write();

 private:
  std::string m_path;
  WAKE_QUEUE<TRACE_ENTRY> m_entries;
  std::ofstream m_file;
};

/// Answers from a trace file in place of the rack. Made before the adapter, whose thread asks it.
class REPLAYER {
 public:
  /// Reads the file and sets the adapter's reply hook.
  RESULT Begin(const std::string& path, ADAPTER& adapter, ADAPTER::LISTENER listener);

  /// How it went in the end: an error where not all came as in the trace, which says why where the
  /// listener was not told. Good without a replay.
  RESULT Outcome() const;

 private:
  std::unique_ptr<REPLAY> m_replay;
};

}  // namespace sim
