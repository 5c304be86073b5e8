#include "client/Session.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace client {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr CLOCK::duration kShortestPause = milliseconds(100);
constexpr CLOCK::duration kLongestPause = seconds(1);
/// After something that is not the interface: nothing that passes by itself, and every attempt at
/// another interface of the daemon's takes that one's only slot.
constexpr CLOCK::duration kWrongPortPause = seconds(10);
constexpr CLOCK::duration kConnectLimit = seconds(4);
/// The daemon greets 3 s after it began to wait for a client, at the latest.
constexpr CLOCK::duration kGreetingDue = milliseconds(3600);
/// The port refuses for some 4 s after each client.
constexpr CLOCK::duration kLongestRefusal = seconds(6);
/// Of what earlier clients left the daemon keeps 336 KiB.
constexpr std::size_t kMostLeftOver = std::size_t{1024} * 1024;
constexpr std::size_t kMostRead = std::size_t{64} * 1024;

/// A machine that vanishes is missed within half a minute, whether the session is silent or sends.
constexpr int kIdleBeforeProbes = 15;                  // seconds
constexpr int kBetweenProbes = 5;                      // seconds
constexpr int kProbes = 3;                             // 15 s + 3 * 5 s
constexpr unsigned kUnacknowledgedLimit = 30U * 1000;  // milliseconds

// Where the kernel refuses one, the session works all the same.
template <class VALUE>
void SetOption(int descriptor, int level, int option, VALUE value) {
  static_cast<void>(setsockopt(descriptor, level, option, &value, sizeof(value)));
}

void SetOptions(int descriptor) {
  SetOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, kIdleBeforeProbes);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, kBetweenProbes);
  SetOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, kProbes);
  SetOption(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, kUnacknowledgedLimit);
}

/// Connecting to a port of one's own machine where nobody listens may pick that very port for this
/// side, and then it is connected with itself.
bool IsConnectedWithItself(int descriptor) {
  sockaddr_in here{};
  sockaddr_in there{};
  socklen_t hereSize = sizeof(here);
  socklen_t thereSize = sizeof(there);
  return getsockname(descriptor, reinterpret_cast<sockaddr*>(&here), &hereSize) == 0 &&
         getpeername(descriptor, reinterpret_cast<sockaddr*>(&there), &thereSize) == 0 &&
         here.sin_port == there.sin_port && here.sin_addr.s_addr == there.sin_addr.s_addr;
}

/// Whether the machine is this one, and so can be reached.
bool IsThisMachine(const ENDPOINT& endpoint) {
  sockaddr_in address{};
  std::memcpy(&address, &endpoint.address, sizeof(address));
  constexpr unsigned kLoopback = 127;
  return address.sin_family == AF_INET && ntohl(address.sin_addr.s_addr) >> 24U == kLoopback;
}

/// A deadline so far ahead is never.
TIME Later(TIME now, CLOCK::duration time) {
  return time >= TIME::max() - now ? TIME::max() : now + time;
}

}  // namespace

int PollTimeout(TIME deadline, TIME now) {
  if (deadline == TIME::max()) {
    return -1;
  }
  constexpr CLOCK::duration kLongest = std::chrono::hours(24);
  const CLOCK::duration left =
      deadline <= now ? CLOCK::duration::zero() : std::min(kLongest, deadline - now);
  return static_cast<int>(std::chrono::ceil<milliseconds>(left).count());
}

std::string Describe(INTERFACE interface, TROUBLE trouble) {
  const std::string name = NameOf(interface);
  switch (trouble) {
    case TROUBLE::kNone:
      break;
    case TROUBLE::kTaken:
      return name + " is taken by another client";
    case TROUBLE::kRefused:
      return "the port of " + name + " refuses: a client has just left, or vorn is not running";
    case TROUBLE::kNoDaemon:
      return "nothing listens on the port of " + name +
             ": vorn is not running, or has another port";
    case TROUBLE::kNotReached:
      return "the machine of " + name + " cannot be reached";
    case TROUBLE::kNotVorn:
      return "what listens on the port of " + name + " is not vorn";
    case TROUBLE::kOtherInterface:
      return "the port of " + name + " is another interface's of vorn";
    case TROUBLE::kLost:
      return "the connection to " + name + " was lost";
  }
  return "no trouble with " + name;
}

SESSION::SESSION(INTERFACE interface, SESSION_SETTINGS settings)
    : m_interface(interface),
      m_settings(std::move(settings)),
      m_greeting(interface),
      m_splitter(m_settings.outSeparators) {
  if (m_settings.endpoints.empty()) {
    throw std::invalid_argument("a session without an endpoint");
  }
}

// --- what the owner calls -----------------------------------------------------------------------

void SESSION::Start(TIME now) {
  End();
  m_now = now;
  m_trouble = TROUBLE::kNone;
  m_givesUpAt = m_settings.givesUp ? Later(now, m_settings.patience) : TIME::max();
  m_pause = kShortestPause;
  m_refusedSince.reset();
  m_endpoint = 0;
  Connect();
}

void SESSION::TryNow(TIME now) {
  if (m_state == SESSION_STATE::kPausing) {
    m_now = now;
    Connect();
  }
}

void SESSION::End() {
  if (m_state == SESSION_STATE::kIdle) {
    return;
  }
  const bool isOver = m_state != SESSION_STATE::kFailed;
  Close();
  m_trouble = TROUBLE::kNone;
  Enter(SESSION_STATE::kIdle, isOver);
}

void SESSION::Finish(TIME now, CLOCK::duration limit) {
  if (m_state == SESSION_STATE::kFinishing) {
    return;
  }
  if (m_state != SESSION_STATE::kReady) {
    End();
    return;
  }
  m_until = Later(now, limit);
  if (Enter(SESSION_STATE::kFinishing)) {
    Flush();
  }
}

short SESSION::Events() const {
  if (!m_socket) {
    return 0;
  }
  if (m_state == SESSION_STATE::kConnecting) {
    return POLLOUT;
  }
  return m_unsent.empty() ? POLLIN : POLLIN | POLLOUT;
}

TIME SESSION::Deadline() const {
  return IsTrying() ? std::min(m_until, m_givesUpAt)
                    : (m_state == SESSION_STATE::kFinishing ? m_until : TIME::max());
}

void SESSION::Handle(TIME now) {
  m_now = now;
  switch (m_state) {
    case SESSION_STATE::kIdle:
    case SESSION_STATE::kFailed:
      return;
    case SESSION_STATE::kConnecting:
      LookAtConnecting();
      break;
    case SESSION_STATE::kPausing:
      if (now >= m_until && now < m_givesUpAt) {
        Connect();
      }
      break;
    case SESSION_STATE::kWaiting:
    case SESSION_STATE::kReady:
    case SESSION_STATE::kFinishing:
      Read();
      break;
  }
  Expire();
  Flush();
}

std::string SESSION::Explain() const {
  const ENDPOINT& endpoint = m_settings.endpoints[m_tried];
  const std::optional<INTERFACE> other = m_greeting.Found();
  if (m_trouble == TROUBLE::kOtherInterface && other) {
    return "port " + std::to_string(PortOf(endpoint)) + " is the daemon's " + NameOf(*other) +
           " interface, not " + NameOf(m_interface);
  }
  return Describe(m_interface, m_trouble) + " (" + TextOf(endpoint) + ")";
}

bool SESSION::Send(std::string_view line) {
  if (m_state != SESSION_STATE::kReady || m_unsent.size() >= kMostUnsent) {
    return false;
  }
  m_unsent += line;
  m_unsent += m_settings.inpSeparator;
  return true;
}

void SESSION::Flush() {
  if (m_state != SESSION_STATE::kReady && m_state != SESSION_STATE::kFinishing) {
    return;
  }
  while (!m_unsent.empty()) {
    const ssize_t written = send(m_socket.Get(), m_unsent.data(), m_unsent.size(), MSG_NOSIGNAL);
    if (written >= 0) {
      m_unsent.erase(0, static_cast<std::size_t>(written));
    } else if (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM) {
      return;
    } else if (errno != EINTR) {
      // It is broken: what has come before is read and then the end is found, which tells it.
      m_unsent.clear();
      static_cast<void>(shutdown(m_socket.Get(), SHUT_RDWR));
    }
  }
  if (m_state == SESSION_STATE::kFinishing && !std::exchange(m_isShut, true)) {
    static_cast<void>(shutdown(m_socket.Get(), SHUT_WR));
  }
}

// --- until the greeting -------------------------------------------------------------------------

void SESSION::Connect() {
  m_tried = m_endpoint;
  const ENDPOINT& endpoint = m_settings.endpoints[m_tried];
  m_until = Later(m_now, kConnectLimit);
  if (!Enter(SESSION_STATE::kConnecting)) {
    return;
  }
  m_socket =
      DESCRIPTOR(socket(endpoint.address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!m_socket) {
    TryNext(TROUBLE::kNotReached);
    return;
  }
  SetOptions(m_socket.Get());
  if (connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&endpoint.address),
              endpoint.size) == 0) {
    BeginToWait();
  } else if (errno != EINPROGRESS && errno != EINTR) {
    TakeError(errno);
  }
}

void SESSION::LookAtConnecting() {
  pollfd look{m_socket.Get(), POLLOUT, 0};
  if (poll(&look, 1, 0) != 1) {
    return;
  }
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(m_socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    error = errno;
  }
  if (error == 0) {
    BeginToWait();
  } else {
    TakeError(error);
  }
}

void SESSION::BeginToWait() {
  if (IsConnectedWithItself(m_socket.Get())) {
    TakeError(ECONNREFUSED);
    return;
  }
  m_refusedSince.reset();
  m_trouble = TROUBLE::kNone;
  m_connectedAt = m_now;
  m_until = Later(m_now, kGreetingDue);
  m_greeting.Clear();
  m_splitter.Clear();
  Enter(SESSION_STATE::kWaiting);
}

/// The attempt to connect has failed.
void SESSION::TakeError(int error) {
  if (error != ECONNREFUSED && error != ECONNRESET) {
    m_refusedSince.reset();
    TryNext(UnansweredTrouble(error));
    return;
  }
  m_refusedSince = m_refusedSince.value_or(m_now);
  TryNext(m_now - *m_refusedSince >= kLongestRefusal ? TROUBLE::kNoDaemon : TROUBLE::kRefused);
}

/// Of a port of this machine that does not answer: so many wait for it already that no more are let
/// in. From another machine that looks like a machine that is not there.
TROUBLE SESSION::UnansweredTrouble(int error) const {
  return error == ETIMEDOUT && IsThisMachine(m_settings.endpoints[m_tried]) ? TROUBLE::kTaken
                                                                            : TROUBLE::kNotReached;
}

/// The attempt was in vain: goes on with the next endpoint, after a pause where it was the last.
void SESSION::TryNext(TROUBLE trouble) {
  Close();
  m_trouble = trouble;
  m_endpoint = (m_endpoint + 1) % m_settings.endpoints.size();
  if (m_endpoint != 0) {
    Connect();
    return;
  }
  Pause(m_pause);
  m_pause = std::min(2 * m_pause, kLongestPause);
}

void SESSION::Pause(CLOCK::duration length) {
  m_until = Later(m_now, length);
  Enter(SESSION_STATE::kPausing);
}

/// What nobody can wait out: goes on only where it goes on for good.
void SESSION::WrongPort(TROUBLE trouble) {
  if (m_endpoint + 1 < m_settings.endpoints.size()) {
    TryNext(trouble);
  } else if (m_settings.givesUp) {
    GiveUp(trouble);
  } else {
    Close();
    m_trouble = trouble;
    m_endpoint = 0;
    Pause(kWrongPortPause);
  }
}

// --- what comes ---------------------------------------------------------------------------------

void SESSION::Read() {
  constexpr std::size_t kPortion = std::size_t{16} * 1024;
  std::array<char, kPortion> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  for (std::size_t all = 0; all < kMostRead;) {
    const ssize_t count = recv(m_socket.Get(), buffer.data(), buffer.size(), 0);
    if (count > 0) {
      const std::uint64_t changes = m_changes;
      const auto size = static_cast<std::size_t>(count);
      all += size;
      Take({buffer.data(), size});
      // The rest is for what the handlers have made of the session: a new connection may have its
      // number. And after less than there was room for there is nothing more.
      if (changes != m_changes || size < buffer.size()) {
        return;
      }
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      TakeEnd();
      return;
    } else if (errno == EAGAIN) {
      return;
    }
  }
}

void SESSION::Take(std::string_view bytes) {
  const bool isFirst = m_greeting.Skipped() == 0;
  const std::string text = m_greeting.Take(bytes);
  if (m_state == SESSION_STATE::kWaiting) {
    if (isFirst) {
      m_until = Later(m_now, kGreetingDue);  // somebody serves it
    }
    TakeGreeting();
  }
  if (m_state != SESSION_STATE::kReady) {
    return;
  }
  const std::uint64_t changes = m_changes;
  for (const LINE_SPLITTER::LINE& line : m_splitter.Feed(text)) {
    if (m_onLine) {
      m_onLine(line.text);
    }
    if (changes != m_changes) {
      return;
    }
  }
}

void SESSION::TakeGreeting() {
  const std::optional<INTERFACE> found = m_greeting.Found();
  if (found && *found != m_interface) {
    WrongPort(TROUBLE::kOtherInterface);
  } else if (found) {
    m_trouble = TROUBLE::kNone;
    m_pause = kShortestPause;
    Enter(SESSION_STATE::kReady);
  } else if (m_greeting.Skipped() > kMostLeftOver) {
    WrongPort(TROUBLE::kNotVorn);
  }
}

/// The connection is over.
void SESSION::TakeEnd() {
  switch (m_state) {
    case SESSION_STATE::kReady:
      if (m_settings.givesUp) {
        GiveUp(TROUBLE::kLost);
        return;
      }
      Close();
      m_trouble = TROUBLE::kLost;
      m_endpoint = 0;
      m_until = Later(m_now, m_pause);
      Enter(SESSION_STATE::kPausing, true);
      return;
    case SESSION_STATE::kFinishing:
      End();
      return;
    default:
      // Another client was served, and has left. What closes as soon as it is connected is not
      // asked ten times a second.
      if (m_now - m_connectedAt >= kLongestPause) {
        m_pause = kShortestPause;
      }
      TryNext(m_greeting.Skipped() > 0 ? TROUBLE::kNotVorn : TROUBLE::kTaken);
  }
}

// --- time, and the state ------------------------------------------------------------------------

void SESSION::Expire() {
  if (IsTrying() && m_now >= m_givesUpAt) {
    GiveUp(m_trouble);
    return;
  }
  const bool isTime = m_now >= m_until;
  if (isTime && m_state == SESSION_STATE::kConnecting) {
    TakeError(ETIMEDOUT);
  } else if (isTime && m_state == SESSION_STATE::kWaiting) {
    ExpireWaiting();
  } else if (isTime && m_state == SESSION_STATE::kFinishing) {
    End();
  }
}

/// The greeting should be there. It is waited for all the same: that of a taken interface comes, or
/// the end does, when its client leaves.
void SESSION::ExpireWaiting() {
  if (m_greeting.Skipped() == 0) {
    m_trouble = TROUBLE::kTaken;
    m_until = TIME::max();
  } else if (m_trouble != TROUBLE::kNotVorn) {
    m_trouble = TROUBLE::kNotVorn;
    m_until = Later(m_now, m_settings.patience);
  } else {
    WrongPort(TROUBLE::kNotVorn);
  }
}

void SESSION::GiveUp(TROUBLE trouble) {
  if (trouble == TROUBLE::kNone) {
    // It was not given the time that it takes to tell.
    trouble = m_state != SESSION_STATE::kWaiting ? UnansweredTrouble(ETIMEDOUT)
              : m_greeting.Skipped() > 0         ? TROUBLE::kNotVorn
                                                 : TROUBLE::kTaken;
  }
  Close();
  m_trouble = trouble;
  Enter(SESSION_STATE::kFailed, true);
}

void SESSION::Close() {
  m_socket.Close();
  m_unsent.clear();
  m_isShut = false;
}

/// False where a handler has brought it into another state.
bool SESSION::Enter(SESSION_STATE state, bool isOver) {
  const bool isNew = std::exchange(m_state, state) != state;
  const std::uint64_t change = ++m_changes;
  if (isOver && m_onOver) {
    m_onOver();
  }
  if (isNew && change == m_changes && m_onState) {
    m_onState(state);
  }
  return change == m_changes;
}

bool SESSION::IsTrying() const {
  return m_state == SESSION_STATE::kConnecting || m_state == SESSION_STATE::kWaiting ||
         m_state == SESSION_STATE::kPausing;
}

}  // namespace client
