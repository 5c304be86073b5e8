#pragma once

#include "client/CaeRequest.h"
#include "client/Session.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>

namespace client {

/// The operator's side of CAE: requests one after the other, each with its answer; reports of
/// refused IO lines apart from them. Threads and the loop: as SESSION, which it owns. A handler may
/// call Ask and what a handler of the connection's may.
///
/// The daemon gives each line one answer, in order, that ends with a prompt; but it takes what it
/// reads in one piece for one line. So a request is sent when no answer to an earlier one is due.
class CAE_SESSION {
 public:
  using ON_RESULT = std::function<void(const CAE_RESULT& result)>;
  using ON_REFUSAL = std::function<void(const REFUSAL& refusal)>;

  explicit CAE_SESSION(SESSION_SETTINGS settings);

  /// The connection: its state, its loop. Its OnLine and OnOver belong to this object; OnState may
  /// be set.
  SESSION& Connection() { return m_session; }
  const SESSION& Connection() const { return m_session; }
  /// In place of the connection's own, both: they also mind the time that an answer may take.
  TIME Deadline() const;
  void Handle(TIME now);

  void OnRefusal(ON_REFUSAL handler) { m_onRefusal = std::move(handler); }

  /// Queues a request, to be sent by the Handle that finds the session ready and all earlier ones
  /// answered; where there is one to send at once Deadline says so. The handler gets its result
  /// exactly once, kTimeout and kLost included, unless the object is destroyed before: kLost also
  /// where the session fails, and where it is ended. What is asked of an idle one waits for its
  /// start. `limit` counts from the moment the request is sent. After a timeout the answer, should
  /// it come later, is skipped; the next request waits 3 s for that.
  void Ask(CAE_REQUEST request, ON_RESULT handler,
           CLOCK::duration limit = std::chrono::seconds(10));
  /// Requests without a result so far.
  std::size_t Waiting() const { return m_asked.size(); }

 private:
  struct ASKED {
    CAE_REQUEST request;
    ON_RESULT handler;
    CLOCK::duration limit;
  };
  enum class STAGE : std::uint8_t {
    kFree,
    kAnswering,   ///< the first of m_asked has been sent
    kConfirming,  ///< it has an answer, and another may follow that is the right one
    kLate,        ///< the answer to one that has timed out may come
  };

  void TakeLine(std::string_view line);
  void TakeAnswer(std::string_view line, bool isPrompt);
  void Expire();
  void SendNext();
  void Conclude(const CAE_RESULT& result);
  void LoseAll();
  bool CanSend() const;

  SESSION m_session;
  ON_REFUSAL m_onRefusal;
  std::deque<ASKED> m_asked;  // the first may have been sent
  STAGE m_stage = STAGE::kFree;
  TIME m_now{};
  TIME m_until = TIME::max();  // of the stage
  std::optional<CAE_ANSWER> m_answer;
  CAE_RESULT m_unconfirmed;
  bool m_isOwed = false;         // a late answer has not been seen so far
  bool m_hasLine = false;        // of the answer that comes
  bool m_isAfterReport = false;  // whose prompt is next
};

}  // namespace client
