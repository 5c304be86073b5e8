#pragma once

#include "tests/support/unit/Bytes.h"

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace unit {

/// The far end of the serial line: a pseudo-terminal whose slave the code under test opens as its
/// port. Expects frames, byte for byte and in order, and answers each as scripted; a frame that is
/// not expected fails the test, and so does, at the end, one that did not come.
///
/// It works inside the reads and writes of the code under test, on their thread; see SystemCalls.h.
/// A lock guards everything, so that the test's thread may look and script meanwhile.
class FAR_END {
 public:
  /// An answer, one element for each read that is to find something. An empty element is a read
  /// that finds nothing.
  using READS = std::vector<BYTES>;
  /// From a request's body to the reply frame; empty for none.
  using RESPONDER = std::function<BYTES(const BYTES& body)>;

  FAR_END();
  ~FAR_END();
  FAR_END(const FAR_END&) = delete;
  FAR_END& operator=(const FAR_END&) = delete;

  /// The port to open, as "/dev/pts/N".
  const std::string& Path() const { return m_path; }
  /// The same as `ls /dev` would show it.
  std::string Entry() const { return m_path.substr(sizeof "/dev/" - 1); }

  /// The next frame, length byte included, and its answer in one read; no answer if it is empty.
  void Expect(const BYTES& frame, const BYTES& answer);
  void Expect(const char* frame, const char* answer) { Expect(Hex(frame), Hex(answer)); }
  /// The same with an answer spread over reads. `firstRead`: the first of them counts as this read
  /// after the request, the ones before it find nothing.
  void ExpectInReads(const BYTES& frame, const READS& answer, std::uint32_t firstRead = 1);
  /// Serves what the script does not, instead of failing.
  void AnswerWith(RESPONDER responder);

  /// Bytes that nobody has asked for, ready to be read when this returns.
  void SendUnasked(const BYTES& bytes);
  /// The next writes take at most so many bytes each.
  void TakeAtMost(std::size_t bytes);
  /// The adapter is pulled out: reads and writes fail from now on.
  void PullOut();

  /// Frames taken so far, length byte included.
  std::vector<BYTES> Requests() const;
  /// Reads that the code under test has made since the last request.
  std::uint32_t ReadsSinceRequest() const;
  /// Writes that it has made in all.
  std::size_t Writes() const;
  /// True when the script is used up and no part of a frame is left over.
  bool IsDone() const;
  /// Fails the test unless IsDone. The destructor does it too.
  void ExpectDone() const;

  /// The line settings of the port.
  termios Settings() const;
  /// Descriptors of this process that hold the port open, this end's own left out.
  std::vector<int> Openings() const;

  // For the system calls: true when they are to do their work, false when the read finds nothing.
  bool BeforeRead();
  void AfterRead(ssize_t count);
  std::size_t BeforeWrite(std::size_t count);
  void AfterWrite(ssize_t count);
  /// The far end that `descriptor` leads to, if any.
  static FAR_END* Of(int descriptor);

 private:
  struct EXCHANGE {
    BYTES frame;
    READS answer;
    std::uint32_t firstRead = 1;
  };

  void TakeFrame(const BYTES& frame);
  void Deliver(const BYTES& bytes);

  mutable std::mutex m_lock;
  int m_master = -1;
  int m_slave = -1;  // keeps the line up while nobody else has it open
  dev_t m_device{};
  std::string m_path;
  std::deque<EXCHANGE> m_script;
  RESPONDER m_responder;
  std::vector<BYTES> m_requests;
  BYTES m_received;  // of a frame that is not complete
  std::deque<BYTES> m_answer;
  std::uint32_t m_firstRead = 1;
  std::uint32_t m_reads = 0;
  std::size_t m_unread = 0;  // bytes on the line for the code under test
  std::size_t m_writes = 0;
  std::size_t m_writeLimit = SIZE_MAX;
};

}  // namespace unit
