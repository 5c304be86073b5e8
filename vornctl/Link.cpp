#include "vornctl/Link.h"

#include "vornctl/Finally.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace ctl {

namespace {

using client::CLOCK;
using client::INTERFACE;
using client::SESSION;
using client::SESSION_STATE;
using client::TIME;
using client::TROUBLE;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// When the interface that is needed has come, the others have, if they are free: their pauses are
/// as long, and an attempt is made each second at least.
constexpr milliseconds kAfterRequired{1000};
constexpr milliseconds kAfterRequiredThatPaused{2000};
/// To say goodbye where nothing can be lost.
constexpr milliseconds kGoodbye{1000};
/// Where nothing says that a line was read, a report of its refusal comes in this time or so: for
/// all of them, and for each.
constexpr milliseconds kUnprovenRefusal{300};
constexpr milliseconds kUnprovenLine{2};
/// What a read of the daemon's takes.
constexpr std::size_t kLongestRead = 255;
constexpr milliseconds kProgressAfter{1000};
constexpr milliseconds kProgressStep{250};

/// Set by the handler of the signals that are let in while the loop waits, and only then; 0: none.
volatile sig_atomic_t signalThatCame = 0;

void NoteSignal(int number) {
  signalThatCame = number;
}

sigset_t& SignalsToLetIn() {
  static sigset_t signals = [] {
    sigset_t none;
    sigemptyset(&none);
    return none;
  }();
  return signals;
}

bool IsOver(const SESSION& session) {
  return session.State() == SESSION_STATE::kReady || session.State() == SESSION_STATE::kFailed ||
         session.State() == SESSION_STATE::kIdle;
}

EXIT_STATUS StatusOf(TROUBLE trouble) {
  return trouble == TROUBLE::kTaken ? EXIT_STATUS::kTaken : EXIT_STATUS::kNotReached;
}

/// poll() until then at the latest, with those signals let in.
int Poll(std::vector<pollfd>& polled, TIME until) {
  sigset_t letIn;
  pthread_sigmask(SIG_BLOCK, nullptr, &letIn);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (sigismember(&SignalsToLetIn(), signal) != 0) {
      sigdelset(&letIn, signal);
    }
  }
  timespec limit{};
  if (until != TIME::max()) {
    const auto left = std::max(until - CLOCK::now(), CLOCK::duration::zero());
    const auto whole = std::chrono::floor<seconds>(left);
    limit.tv_sec = static_cast<decltype(limit.tv_sec)>(whole.count());
    limit.tv_nsec = static_cast<decltype(limit.tv_nsec)>((left - whole).count());
  }
  return ppoll(polled.data(), polled.size(), until == TIME::max() ? nullptr : &limit, &letIn);
}

}  // namespace

void LetSignalEndCommand(int signal) {
  struct sigaction before {};
  sigaction(signal, nullptr, &before);
  if (before.sa_handler == SIG_IGN) {
    return;  // nohup
  }
  sigaddset(&SignalsToLetIn(), signal);
  pthread_sigmask(SIG_BLOCK, &SignalsToLetIn(), nullptr);
  struct sigaction action {};
  action.sa_handler = NoteSignal;
  sigaction(signal, &action, nullptr);
}

LINK::LINK(const SETTINGS& settings, OUTPUT& output) : m_settings(settings), m_output(output) {
}

client::SESSION_SETTINGS LINK::SessionSettings(INTERFACE interface) const {
  client::SESSION_SETTINGS session;
  try {
    session.endpoints = client::Resolve(m_settings.host, m_settings.ports.at(interface));
  } catch (const std::runtime_error& error) {
    throw FAILURE(EXIT_STATUS::kNotReached, error.what());
  }
  session.inpSeparator = m_settings.separators.at(interface).inp;
  session.outSeparators = {m_settings.separators.at(interface).out};
  if (interface == INTERFACE::kMon) {
    // It has what goes over IO, as it went.
    const client::SEPARATORS& io = m_settings.separators.at(INTERFACE::kIo);
    session.outSeparators = {io.inp, io.out};
  }
  session.patience = m_settings.wait;
  session.givesUp = !m_keepsTrying;
  return session;
}

SESSION* LINK::Find(INTERFACE interface) const {
  switch (interface) {
    case INTERFACE::kCae:
      return m_cae == nullptr ? nullptr : &m_cae->Connection();
    case INTERFACE::kIo:
      return m_io.get();
    case INTERFACE::kMon:
      return m_mon.get();
  }
  return nullptr;
}

SESSION& LINK::Get(INTERFACE interface) {
  SESSION* session = Find(interface);
  if (session != nullptr) {
    return *session;
  }
  if (interface == INTERFACE::kCae) {
    m_cae = std::make_unique<client::CAE_SESSION>(SessionSettings(interface));
    m_cae->OnRefusal([this](const client::REFUSAL& refusal) {
      const client::DELIVERY::NUMBER number = m_delivery.Refused(refusal);
      if (m_onRefused) {
        m_onRefused(number, refusal.line);
      }
    });
    return m_cae->Connection();
  }
  std::unique_ptr<SESSION>& slot = interface == INTERFACE::kIo ? m_io : m_mon;
  slot = std::make_unique<SESSION>(interface, SessionSettings(interface));
  slot->OnLine([this, interface](std::string_view line) { TakeLine(interface, line); });
  if (interface == INTERFACE::kIo) {
    slot->OnState([this](SESSION_STATE state) {
      if (state != SESSION_STATE::kReady && m_onIoLost) {
        m_onIoLost();
      }
    });
  }
  return *slot;
}

void LINK::Begin(INTERFACE interface) {
  SESSION& session = Get(interface);
  if (session.State() == SESSION_STATE::kIdle || session.State() == SESSION_STATE::kFailed) {
    session.Start(CLOCK::now());
  } else if (session.Trouble() == TROUBLE::kNoDaemon) {
    session.TryNow(CLOCK::now());  // there may be one by now
  }
}

void LINK::TakeLine(INTERFACE interface, std::string_view line) {
  if (m_onAnyLine) {
    m_onAnyLine(interface, std::string(line));
  }
  if (interface == INTERFACE::kMon && m_delivery.Copied(line)) {
    return;
  }
  const auto value = client::ReadBlockLine(line);
  // What IO has brought, MON brings once more.
  if (!value || (interface == INTERFACE::kMon && IsReady(INTERFACE::kIo))) {
    return;
  }
  // On MON a command of the IO client's looks the same.
  const auto kind = KnownKindOf(value->address);
  if (interface == INTERFACE::kMon && kind && client::TypeOf(*kind).inputBlocks == 0) {
    return;
  }
  const std::string text(line);
  for (const ON_BLOCK& listener : m_listeners) {
    listener(*value, text);
  }
}

// --- the interfaces -----------------------------------------------------------------------------

bool LINK::IsReady(INTERFACE interface) const {
  const SESSION* session = Find(interface);
  return session != nullptr && session->State() == SESSION_STATE::kReady;
}

TROUBLE LINK::Trouble(INTERFACE interface) const {
  const SESSION* session = Find(interface);
  return session == nullptr ? TROUBLE::kNone : session->Trouble();
}

FAILURE LINK::FailureOf(INTERFACE interface) const {
  const SESSION* session = Find(interface);
  const std::string why =
      session == nullptr ? client::Describe(interface, TROUBLE::kNone) : session->Explain();
  return {StatusOf(Trouble(interface)), m_settings.host + ": " + why};
}

void LINK::Open(const std::vector<INTERFACE>& required, const std::vector<INTERFACE>& wished) {
  for (const INTERFACE interface : required) {
    Begin(interface);
  }
  for (const INTERFACE interface : wished) {
    Begin(interface);
  }
  const TIME began = CLOCK::now();
  const auto isDecided = [&](INTERFACE interface) { return IsDecided(*Find(interface), began); };
  while (!std::all_of(required.begin(), required.end(), isDecided)) {
    Turn(CLOCK::now() + kProgressStep);
    ShowProgress(required, began);
  }
  m_output.Progress({});
  for (const INTERFACE interface : required) {
    if (!IsReady(interface)) {
      throw FailureOf(interface);
    }
  }
  const bool hasPaused = CLOCK::now() - began > kAfterRequired;
  RunUntil(
      [&] {
        return std::all_of(wished.begin(), wished.end(), [&](INTERFACE interface) {
          return isDecided(interface) || Trouble(interface) == TROUBLE::kTaken;
        });
      },
      CLOCK::now() + (hasPaused ? kAfterRequiredThatPaused : kAfterRequired));
}

/// It is ready, or there is no use in waiting for it.
bool LINK::IsDecided(const SESSION& session, TIME began) const {
  const bool isHopeless = !m_settings.isWaitGiven && session.Trouble() == TROUBLE::kNoDaemon &&
                          session.State() == SESSION_STATE::kPausing;
  return IsOver(session) || isHopeless ||
         (m_keepsTrying && CLOCK::now() - began >= m_settings.wait);
}

TROUBLE LINK::Try(const std::vector<INTERFACE>& interfaces) {
  for (const INTERFACE interface : interfaces) {
    Begin(interface);
  }
  const TIME began = CLOCK::now();
  const auto areOver = [&] {
    return std::all_of(interfaces.begin(), interfaces.end(), [&](INTERFACE interface) {
      return IsDecided(*Find(interface), began) || Trouble(interface) == TROUBLE::kTaken;
    });
  };
  while (!areOver()) {
    Turn(CLOCK::now() + kProgressStep);
    ShowProgress(interfaces, began);
  }
  m_output.Progress({});
  for (const INTERFACE interface : interfaces) {
    if (!IsReady(interface)) {
      return Trouble(interface);
    }
  }
  return TROUBLE::kNone;
}

void LINK::ShowProgress(const std::vector<INTERFACE>& awaited, TIME began) {
  const TIME now = CLOCK::now();
  if (now - began < kProgressAfter) {
    return;
  }
  for (const INTERFACE interface : awaited) {
    const SESSION& session = *Find(interface);
    if (!IsOver(session)) {
      const auto left = std::chrono::ceil<seconds>(began + m_settings.wait - now).count();
      const std::string why = session.Trouble() == TROUBLE::kNone
                                  ? std::string(client::NameOf(interface)) + " has not answered yet"
                                  : client::Describe(interface, session.Trouble());
      // What may be behind it is for the error, if it comes to one.
      m_output.Progress(why.substr(0, why.find(':')) + "; trying for " +
                        std::to_string(std::max<std::int64_t>(left, 0)) + " s more");
      return;
    }
  }
}

void LINK::Leave(INTERFACE interface) {
  SESSION* session = Find(interface);
  if (session == nullptr) {
    return;
  }
  if (session->State() != SESSION_STATE::kReady) {
    session->End();
    return;
  }
  session->Finish(CLOCK::now(), m_settings.timeout);
  AwaitQuick(
      "vorn's goodbye",
      [&] { return IsOver(*session) && session->State() != SESSION_STATE::kReady; }, TIME::max());
}

void LINK::LeaveAll() {
  std::vector<SESSION*> finishing;
  for (const INTERFACE interface : client::kInterfaces) {
    SESSION* session = Find(interface);
    if (session == nullptr) {
      continue;
    }
    if (session->State() == SESSION_STATE::kReady) {
      session->Finish(CLOCK::now(),
                      interface == INTERFACE::kIo ? m_settings.timeout : milliseconds(kGoodbye));
      finishing.push_back(session);
    } else {
      session->End();
    }
  }
  AwaitQuick(
      "vorn's goodbye",
      [&] {
        return std::all_of(finishing.begin(), finishing.end(), [](const SESSION* session) {
          return session->State() == SESSION_STATE::kIdle ||
                 session->State() == SESSION_STATE::kFailed;
        });
      },
      TIME::max());
}

// --- CAE ----------------------------------------------------------------------------------------

client::CAE_RESULT LINK::AskAnything(const client::CAE_REQUEST& request) {
  CheckLine(request.line, INTERFACE::kCae);
  Open({INTERFACE::kCae});
  // Shared with the handler: where the wait is broken off, the answer may come all the same.
  struct ANSWER {
    bool isThere = false;
    client::CAE_RESULT result;
  };
  const auto answer = std::make_shared<ANSWER>();
  m_cae->Ask(
      request,
      [answer](const client::CAE_RESULT& result) {
        answer->result = result;
        answer->isThere = true;
      },
      m_settings.timeout);
  AwaitQuick(
      "the answer to " + request.line, [&] { return answer->isThere; }, TIME::max());
  return answer->result;
}

client::CAE_RESULT LINK::Ask(const client::CAE_REQUEST& request) {
  const client::CAE_RESULT result = AskAnything(request);
  switch (result.outcome) {
    case client::OUTCOME::kDone:
      return result;
    case client::OUTCOME::kRefused:
      throw FAILURE(EXIT_STATUS::kRefused, request.line + ": " + result.Text());
    case client::OUTCOME::kTimeout:
      throw FAILURE(EXIT_STATUS::kTimeout, request.line +
                                               ": no answer in time; it may have been "
                                               "carried out");
    case client::OUTCOME::kLost:
      break;
  }
  throw FAILURE(EXIT_STATUS::kNotReached, request.line +
                                              ": the connection was lost before the answer; it may "
                                              "have been carried out");
}

const client::CARD_LIST& LINK::Cards() {
  if (!m_cards) {
    const client::CAE_RESULT result = Ask(client::ListCards());
    const auto* cards = std::get_if<client::CARD_LIST>(&result.value);
    m_cards = cards == nullptr ? client::CARD_LIST{} : *cards;
  }
  return *m_cards;
}

std::optional<client::CARD_KIND> LINK::KnownKindOf(int address) const {
  const auto told = m_settings.cards.find(address);
  if (told != m_settings.cards.end()) {
    return told->second;
  }
  if (m_cards) {
    return m_cards->at(static_cast<std::size_t>(address));
  }
  return std::nullopt;
}

client::CARD_KIND LINK::KindOf(int address) {
  if (const auto known = KnownKindOf(address)) {
    return *known;
  }
  try {
    return Cards().at(static_cast<std::size_t>(address));
  } catch (const FAILURE& failure) {
    throw FAILURE(failure.Status(), std::string(failure.what()) + "; which card is at " +
                                        client::AddressDigit(address) +
                                        " is asked there: [cards] in the settings may say it");
  }
}

// --- IO -----------------------------------------------------------------------------------------

/// What the daemon would cut in two, or take for more than one line.
void LINK::CheckLine(const std::string& line, INTERFACE interface) const {
  const std::string& end = m_settings.separators.at(interface).inp;
  if (!end.empty() && line.find(end) != std::string::npos) {
    throw FAILURE(EXIT_STATUS::kUsage, "'" + line + "': what ends a line on " +
                                           client::NameOf(interface) +
                                           " cannot stand in it: " + end);
  }
  if (line.size() + end.size() > kLongestRead) {
    throw FAILURE(EXIT_STATUS::kUsage,
                  "a line of " + std::to_string(line.size()) + " characters: vorn takes " +
                      std::to_string(kLongestRead - std::min(kLongestRead, end.size())));
  }
}

client::DELIVERY::NUMBER LINK::Send(const std::string& line) {
  CheckLine(line, INTERFACE::kIo);
  while (!m_io->Send(line)) {
    if (!IsReady(INTERFACE::kIo)) {
      throw FailureOf(INTERFACE::kIo);
    }
    if (!AwaitQuick("vorn to take lines on IO",
                    [this] { return m_io->Unsent() < SESSION::kMostUnsent / 2; },
                    CLOCK::now() + m_settings.timeout, {INTERFACE::kIo})) {
      throw FAILURE(EXIT_STATUS::kTimeout, "vorn takes no more lines on IO: see its log");
    }
  }
  // On MON it is cut at what ends a line from vorn, too.
  const std::string& end = m_settings.separators.at(INTERFACE::kIo).out;
  return m_delivery.Sent(end.empty() ? line : line.substr(0, line.find(end)));
}

std::size_t LINK::Unsettled() const {
  return static_cast<std::size_t>(m_delivery.LastSent() - m_settled);
}

void LINK::ForgetUnsettled() {
  m_settled = m_delivery.LastSent();
  m_delivery.Forget(m_settled + 1);
}

LINK::PROOF LINK::Settle() {
  const client::DELIVERY::NUMBER last = m_delivery.LastSent();
  if (last == m_settled) {
    return PROOF::kChecked;
  }
  const char* const kWhat = "vorn to take what was sent";
  const auto isWritten = [this] { return m_io->Unsent() == 0; };
  // As long as lines are taken, there is no limit: a busy card bus holds its clients back.
  for (std::size_t unsent = m_io->Unsent() + 1; !isWritten();) {
    if (m_io->Unsent() >= unsent) {
      throw FAILURE(EXIT_STATUS::kTimeout, "vorn takes no more lines on IO: see its log");
    }
    unsent = m_io->Unsent();
    AwaitQuick(kWhat, isWritten, CLOCK::now() + m_settings.timeout, {INTERFACE::kIo});
  }
  PROOF proof = PROOF::kSent;
  if (IsReady(INTERFACE::kMon)) {
    while (m_delivery.LastCopied() < last) {
      const client::DELIVERY::NUMBER before = m_delivery.LastCopied();
      // cppcheck-suppress knownConditionTrueFalse ; the loop moves it
      if (!AwaitQuick(kWhat, [&] { return m_delivery.LastCopied() != before; },
                      CLOCK::now() + m_settings.timeout, {INTERFACE::kIo, INTERFACE::kMon})) {
        throw FAILURE(EXIT_STATUS::kTimeout,
                      "vorn has not taken the lines in time; it may still do so");
      }
    }
    proof = PROOF::kTaken;
  } else if (IsReady(INTERFACE::kCae)) {
    RunUntil([] { return false; }, CLOCK::now() + kUnprovenRefusal + Unsettled() * kUnprovenLine,
             {INTERFACE::kIo});
  }
  if (IsReady(INTERFACE::kCae)) {
    // What it refused it has told before it answers.
    const client::CAE_RESULT answer = AskAnything(client::AskVersion());
    if (answer.outcome != client::OUTCOME::kDone) {
      throw FAILURE(answer.outcome == client::OUTCOME::kLost ? EXIT_STATUS::kNotReached
                                                             : EXIT_STATUS::kTimeout,
                    "sent; whether vorn refused it was not told in time");
    }
    proof = proof == PROOF::kTaken ? PROOF::kChecked : proof;
  }
  ForgetUnsettled();
  return proof;
}

// --- the loop -----------------------------------------------------------------------------------

void LINK::Turn(TIME limit) {
  std::vector<pollfd> polled;
  TIME until = limit;
  for (const INTERFACE interface : client::kInterfaces) {
    const SESSION* session = Find(interface);
    if (session != nullptr) {
      polled.push_back({session->Descriptor(), session->Events(), 0});
      until =
          std::min(until, interface == INTERFACE::kCae ? m_cae->Deadline() : session->Deadline());
    }
  }
  const std::size_t sessions = polled.size();
  for (const SOURCE& source : m_sources) {
    polled.push_back({source.descriptor, source.events, 0});
  }
  // A pipe that nobody reads any more says so without being asked.
  polled.push_back({m_looksAtReader && !m_output.IsReaderGone() ? STDOUT_FILENO : -1, 0, 0});
  if (Poll(polled, until) < 0) {
    const int signal = signalThatCame;
    signalThatCame = 0;
    if (signal != 0) {
      throw INTERRUPTED{signal};
    }
    return;
  }
  if ((polled.back().revents & POLLERR) != 0) {
    m_output.SetReaderGone();
  }
  const TIME now = CLOCK::now();
  for (const INTERFACE interface : client::kInterfaces) {
    if (interface == INTERFACE::kCae && m_cae != nullptr) {
      m_cae->Handle(now);
    } else if (SESSION* session = Find(interface)) {
      session->Handle(now);
    }
  }
  const std::vector<SOURCE> sources = m_sources;  // a handler may clear them
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (polled[sessions + i].revents != 0) {
      sources[i].handle(polled[sessions + i].revents);
    }
  }
}

bool LINK::AwaitQuick(const std::string& what, const std::function<bool()>& holds, TIME limit,
                      const std::vector<INTERFACE>& needed) {
  const TIME slow = CLOCK::now() + kProgressAfter;
  if (RunUntil(holds, std::min(limit, slow), needed)) {
    return true;
  }
  if (slow >= limit) {
    return false;
  }
  m_output.Progress("waiting for " + what);
  const FINALLY clear([this] { m_output.Progress({}); });
  return RunUntil(holds, limit, needed);
}

bool LINK::RunUntil(const std::function<bool()>& holds, TIME limit,
                    const std::vector<INTERFACE>& needed) {
  while (!holds()) {
    for (const INTERFACE interface : needed) {
      if (!IsReady(interface)) {
        throw FailureOf(interface);
      }
    }
    if (CLOCK::now() >= limit) {
      return false;
    }
    Turn(limit);
  }
  return true;
}

}  // namespace ctl
