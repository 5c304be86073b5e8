#include "client/CaeSession.h"

#include <algorithm>
#include <utility>

namespace client {

namespace {

/// How long the answer to a request that has timed out is waited for.
constexpr CLOCK::duration kLateLimit = std::chrono::seconds(3);

TIME After(TIME now, CLOCK::duration limit) {
  return limit >= TIME::max() - now ? TIME::max() : now + limit;
}

void Give(const CAE_SESSION::ON_RESULT& handler, const CAE_RESULT& result) {
  if (handler) {
    handler(result);
  }
}

}  // namespace

CAE_SESSION::CAE_SESSION(SESSION_SETTINGS settings)
    : m_session(INTERFACE::kCae, std::move(settings)) {
  m_session.OnLine([this](std::string_view line) { TakeLine(line); });
  m_session.OnOver([this] { LoseAll(); });
}

void CAE_SESSION::Ask(CAE_REQUEST request, ON_RESULT handler, CLOCK::duration limit) {
  m_asked.push_back({std::move(request), std::move(handler), limit});
}

TIME CAE_SESSION::Deadline() const {
  if (CanSend() || (!m_asked.empty() && m_session.State() == SESSION_STATE::kFailed)) {
    return {};
  }
  return m_stage == STAGE::kFree ? m_session.Deadline() : std::min(m_session.Deadline(), m_until);
}

void CAE_SESSION::Handle(TIME now) {
  m_now = now;
  m_session.Handle(now);
  if (m_session.State() == SESSION_STATE::kFailed) {
    LoseAll();
  }
  Expire();
  SendNext();
}

bool CAE_SESSION::CanSend() const {
  return m_stage == STAGE::kFree && !m_asked.empty() &&
         m_session.State() == SESSION_STATE::kReady && m_session.Unsent() == 0;
}

void CAE_SESSION::SendNext() {
  if (CanSend() && m_session.Send(m_asked.front().request.line)) {
    m_stage = STAGE::kAnswering;
    m_until = After(m_now, m_asked.front().limit);
    m_answer.emplace(m_asked.front().request);
    m_session.Flush();
  }
}

void CAE_SESSION::TakeLine(std::string_view line) {
  if (const std::optional<REFUSAL> refusal = ReadRefusal(line)) {
    m_isAfterReport = true;
    if (m_onRefusal) {
      m_onRefusal(*refusal);
    }
    return;
  }
  const bool isPrompt = line == kPrompt;
  const bool isAfterReport = std::exchange(m_isAfterReport, false);
  // No answer is a prompt alone: it would be that of an EXIT, or of a report that was given up.
  if (isPrompt && (isAfterReport || !m_hasLine)) {
    return;
  }
  m_hasLine = !isPrompt;
  TakeAnswer(line, isPrompt);
}

void CAE_SESSION::TakeAnswer(std::string_view line, bool isPrompt) {
  if (m_stage == STAGE::kLate && isPrompt) {
    m_isOwed = false;
    m_stage = STAGE::kFree;
  }
  if (!m_answer || (m_stage != STAGE::kAnswering && m_stage != STAGE::kConfirming)) {
    return;
  }
  if (!m_answer->Take(line)) {
    // A prompt that does not complete it was that of another answer, by its words.
    m_isOwed = m_isOwed && !isPrompt;
    return;
  }
  const CAE_RESULT result = m_answer->Result();
  if (m_stage == STAGE::kConfirming || !m_isOwed) {
    m_isOwed = false;
    Conclude(result);
    return;
  }
  // It fits, and may still be the late one, of the same command: then the right one follows.
  m_unconfirmed = result;
  m_answer.emplace(m_asked.front().request);
  m_stage = STAGE::kConfirming;
  m_until = std::min(m_until, After(m_now, kLateLimit));
}

void CAE_SESSION::Expire() {
  if (m_stage == STAGE::kFree || m_now < m_until) {
    return;
  }
  const STAGE stage = std::exchange(m_stage, STAGE::kFree);
  if (stage == STAGE::kConfirming) {
    m_isOwed = false;
    Conclude(CAE_RESULT(m_unconfirmed));
  } else if (stage == STAGE::kAnswering) {
    m_stage = STAGE::kLate;
    m_until = After(m_now, kLateLimit);
    m_isOwed = true;
    const ASKED asked = std::move(m_asked.front());
    m_asked.pop_front();
    CAE_RESULT result;
    result.outcome = OUTCOME::kTimeout;
    Give(asked.handler, result);
  }
}

/// The first request has its result.
void CAE_SESSION::Conclude(const CAE_RESULT& result) {
  const ASKED asked = std::move(m_asked.front());
  m_asked.pop_front();
  m_stage = STAGE::kFree;
  Give(asked.handler, result);
}

/// No answer comes any more. What the handlers ask is for the next connection.
void CAE_SESSION::LoseAll() {
  const bool hasAnswer = m_stage == STAGE::kConfirming;
  const CAE_RESULT unconfirmed = m_unconfirmed;
  std::deque<ASKED> lost;
  lost.swap(m_asked);
  m_stage = STAGE::kFree;
  m_isOwed = m_hasLine = m_isAfterReport = false;
  CAE_RESULT result;
  result.outcome = OUTCOME::kLost;
  for (std::size_t i = 0; i < lost.size(); ++i) {
    Give(lost[i].handler, i == 0 && hasAnswer ? unconfirmed : result);
  }
}

}  // namespace client
