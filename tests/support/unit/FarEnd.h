#pragma once

#include "tests/support/unit/Bytes.h"
#include "vorn/bus/Line.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace vorn {

namespace unit {

/// The far end of the serial line, as the code under test has it for its line: an adapter at a
/// path, with a controller behind it. Expects frames, byte for byte and in order, and answers each
/// as scripted; a frame that is not expected fails the test, and so does, at the end, one that did
/// not come.
///
/// It works inside the reads and writes of the code under test, on their thread, so that an
/// exchange needs no second thread, and a reply can be timed by the count of reads that the daemon
/// itself goes by. A lock guards everything; the test's thread may look and script meanwhile.
class FAR_END final : public LINE {
 public:
  /// An answer, one element for each read that is to find something. An empty element is a read
  /// that finds nothing.
  using READS = std::vector<BYTES>;
  /// From a request's body to the reply frame; empty for none.
  using RESPONDER = std::function<BYTES(const BYTES& body)>;

  explicit FAR_END(std::string path = "/dev/ttyUSB0") : m_path(std::move(path)) {}
  ~FAR_END();
  FAR_END(const FAR_END&) = delete;
  FAR_END& operator=(const FAR_END&) = delete;

  const std::string& Path() const { return m_path; }

  /// What a search finds from now on; at first nothing.
  void List(const std::list<std::string>& paths);
  /// Another adapter that can be opened through this line; it outlives what opens it.
  void Add(FAR_END& other) { m_others.push_back(&other); }
  /// The port takes no settings, with this errno value.
  void RefuseSettings(int error);

  /// The next frame, length byte included, and its answer in one read; no answer if it is empty.
  void Expect(const BYTES& frame, const BYTES& answer);
  void Expect(const char* frame, const char* answer) { Expect(Hex(frame), Hex(answer)); }
  /// The same with an answer spread over reads. `firstRead`: the first of them counts as this read
  /// after the request, the ones before it find nothing.
  void ExpectInReads(const BYTES& frame, const READS& answer, std::uint32_t firstRead = 1);
  /// Serves what the script does not, instead of failing.
  void AnswerWith(RESPONDER responder);

  /// Bytes that nobody has asked for.
  void SendUnasked(const BYTES& bytes);
  /// The next writes take at most so many bytes each.
  void TakeAtMost(std::size_t bytes);
  /// The adapter is pulled out: it cannot be opened, reads and writes fail from now on.
  void PullOut();

  /// Searches made so far.
  int Searches() const;
  /// How often the port is open now, put aside or not.
  int Openings() const;
  /// Frames taken so far, length byte included.
  std::vector<BYTES> Requests() const;
  /// Reads that the code under test has made since the last request.
  std::uint32_t ReadsSinceRequest() const;
  /// Writes that it has made in all.
  std::size_t Writes() const;
  /// Fails the test unless the script is used up and no part of a frame is left over. The
  /// destructor does it too.
  void ExpectDone() const;

  std::list<std::string> Search() override;
  bool Open(const std::string& path) override;
  int SetUp() override;
  ssize_t Read(std::uint8_t* bytes, std::size_t count) override;
  ssize_t Write(const std::uint8_t* bytes, std::size_t count) override;
  void Close() override;

 private:
  struct EXCHANGE {
    BYTES frame;
    READS answer;
    std::uint32_t firstRead = 1;
  };

  bool BeOpened();
  void BeClosed();
  ssize_t Give(std::uint8_t* bytes, std::size_t count);
  ssize_t Take(const std::uint8_t* bytes, std::size_t count);
  void TakeFrame(const BYTES& frame);

  mutable std::mutex m_lock;
  const std::string m_path;
  // The line's, on the thread that uses it.
  std::vector<FAR_END*> m_others;
  FAR_END* m_open = nullptr;
  std::vector<FAR_END*> m_aside;
  // The adapter's.
  std::list<std::string> m_listing;
  int m_searches = 0;
  int m_openings = 0;
  int m_settingsError = 0;
  bool m_isPulledOut = false;
  std::deque<EXCHANGE> m_script;
  RESPONDER m_responder;
  std::vector<BYTES> m_requests;
  BYTES m_received;  // of a frame that is not complete
  std::deque<BYTES> m_answer;
  BYTES m_unread;  // on the line for the code under test
  std::uint32_t m_firstRead = 1;
  std::uint32_t m_reads = 0;
  std::size_t m_writes = 0;
  std::size_t m_writeLimit = SIZE_MAX;
};

}  // namespace unit

}  // namespace vorn
