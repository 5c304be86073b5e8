#pragma once

#include "client/CaeRequest.h"
#include "client/Session.h"

#include <deque>
#include <functional>
#include <optional>

namespace client {

/// The operator's side of CAE: requests one after the other, each with its answer; reports of
/// refused IO lines apart from them. Threads and the loop: as SESSION, which it owns.
class CAE_SESSION {
 public:
  using ON_RESULT = std::function<void(const CAE_RESULT& result)>;
  using ON_REFUSAL = std::function<void(const REFUSAL& refusal)>;

  explicit CAE_SESSION(SESSION_SETTINGS settings);

  /// The connection: its state, its loop. Its OnLine belongs to this object; OnState may be set.
  SESSION& Connection() { return m_session; }
  const SESSION& Connection() const { return m_session; }
  /// In place of the connection's own, both: they also mind the time that an answer may take.
  TIME Deadline() const;
  void Handle(TIME now);

  void OnRefusal(ON_REFUSAL handler) { m_onRefusal = std::move(handler); }

  /// Queues a request; the handler gets its result exactly once, kTimeout and kLost included, unless
  /// the session is destroyed before. `limit` counts from the moment it is sent. After a timeout the
  /// answer, should it come later, is skipped.
  void Ask(CAE_REQUEST request, ON_RESULT handler,
           CLOCK::duration limit = std::chrono::seconds(10));
  /// Requests without a result so far.
  std::size_t Waiting() const;

 private:
  SESSION m_session;
  ON_REFUSAL m_onRefusal;
  // ... the implementation adds what it needs
};

}  // namespace client
