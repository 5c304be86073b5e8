#pragma once

#include "vorn/base/QList.h"
#include "vorn/base/SharedField.h"
#include "vorn/bus/Line.h"

#include <chrono>
#include <cstdint>

namespace vorn {

/// What became of a request.
enum class OUTCOME {
  kReply,    ///< its reply is to be taken
  kTimeout,  ///< no reply came whole and in time, or one that calls the line dead
  kRefused,  ///< by an error reply, or one that is empty or fits no buffer; or it fits no frame
};

struct ANSWER {
  OUTCOME outcome;
  QList reply;  ///< its body, without the length byte; of a refusal too, where one came
};

/// The exchange of frames, one request on its way at a time: first Send, then Await. The line is
/// lent.
class EXCHANGE {
 public:
  explicit EXCHANGE(LINE& line) : m_line(line) {}

  /// Throws away what stands on the line, then sends the body behind its length byte. An empty one
  /// and one of over 254 bytes send nothing and are refused. False when the line does not take it;
  /// the reply may be awaited all the same.
  bool Send(const QList& body);
  /// The reply to what was sent last; of at most 135 bytes, a longer one is read off the line.
  /// Given up as a time-out when the limit of reads is reached, or when `isGivenUp` becomes true.
  ANSWER Await(const SHARED_FIELD<bool>& isGivenUp);

 private:
  void LetOthersRun();

  LINE& m_line;
  std::uint32_t m_readLimit = 0;  // of the request sent last; 0: nothing was sent
  // What a long yield has given away, less what the reads have taken since: none before it is paid.
  std::chrono::steady_clock::duration m_debt{};
  std::chrono::steady_clock::time_point m_keptSince{};
};

}  // namespace vorn
