#include "sim/tool/TraceFiles.h"

#include "sim/tool/RackFile.h"

#include <cerrno>
#include <system_error>
#include <vector>

namespace sim {

RESULT RECORDER::Begin(const std::string& path, ADAPTER& adapter, TIME beginning) {
  m_path = path;
  m_file.open(path);
  if (!m_file) {
    return RESULT::Error("cannot write " + path + ": " + std::generic_category().message(errno));
  }
  m_file << TraceHeader();
  adapter.AddTap([this, beginning](DIRECTION direction, TIME when, const Bytes& bytes) {
    const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(when - beginning);
    m_entries.Push({passed, direction, bytes});
  });
  return RESULT::Good();
}

RESULT RECORDER::Write() {
  if (!m_file.is_open()) {
    return RESULT::Good();
  }
  const std::vector<TRACE_ENTRY> entries = m_entries.Take();
  for (const TRACE_ENTRY& entry : entries) {
    m_file << TraceLine(entry) << '\n';
  }
  if (const std::size_t lost = m_entries.TakeLost(); lost > 0) {
    m_file << "# " << lost << " entries lost here\n";
  }
  if (entries.empty() || m_file.flush()) {
    return RESULT::Good();
  }
  m_file.close();
  return RESULT::Error("cannot write " + m_path);
}

RESULT REPLAYER::Begin(const std::string& path, ADAPTER& adapter, ADAPTER::LISTENER listener) {
  std::string text;
  std::vector<TRACE_ENTRY> entries;
  RESULT result = ReadTextFile(path, text);
  if (result) {
    result = ParseTrace(text, entries);
  }
  if (!result) {
    return RESULT::Error(path + ": " + result.text);
  }
  m_replay = std::make_unique<REPLAY>(entries);
  m_replay->SetListener(std::move(listener));
  adapter.SetReplyHook(m_replay->Hook());
  return RESULT::Good();
}

RESULT REPLAYER::Outcome() const {
  if (m_replay == nullptr || m_replay->Complete()) {
    return RESULT::Good();
  }
  return RESULT::Error(m_replay->Difference().empty()
                           ? "the replay ended after " + std::to_string(m_replay->Answered()) +
                                 " of " + std::to_string(m_replay->Expected()) + " requests"
                           : std::string());
}

}  // namespace sim
