#include "vorn/tcp/SocketInterface.h"

#include "vorn/base/Budget.h"
#include "vorn/base/Values.h"
#include "vorn/tcp/ClientSocket.h"
#include "vorn/tcp/InterfaceRoles.h"

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace vorn {

namespace {

/// A worker configured under this name is parked for good after its first pass.
constexpr const char* kParkedName = "DMI";
constexpr int kBacklog = 1;
/// A port that is taken is asked for again for a quarter of a second. Who has it may be on the way
/// out: a daemon that was told to stop, or a child that it was just starting when it ended.
constexpr int kBindTries = 51;
constexpr std::int32_t kPauseBetweenBindsUs = 5000;
constexpr int kPauseBeforeAcceptS = 3;
constexpr int kPauseWhileClosedS = 2;
constexpr std::int32_t kPauseAfterConstructionUs = 5000;
constexpr std::size_t kBinaryMessageLimit = 255;

/// What a client that is held back can have sent ahead into this machine's kernel, which doubles
/// the number: enough for a terminal and a controller program, little to read at once when the
/// client leaves. What is more waits in the client's own kernel.
constexpr int kReceiveBufferBytes = 16384;

/// A message as it goes out; longer than its length byte can say as several.
std::string Framed(const QList& message, TRANSFER_MODE mode) {
  if (mode == kTextMode) {
    return std::string(message.begin(), message.end()) + '\r';
  }
  std::string bytes;
  auto next = message.begin();
  auto left = message.size();
  do {
    const std::size_t length = std::min(left, kBinaryMessageLimit);
    const auto end = std::next(next, static_cast<std::ptrdiff_t>(length));
    bytes += static_cast<char>(length);
    bytes.append(next, end);
    next = end;
    left -= length;
  } while (left > 0);
  return bytes;
}

bool SelectCanHold(int descriptor) {
  return descriptor >= 0 && descriptor < FD_SETSIZE;
}

}  // namespace

SOCKET_INTERFACE::SOCKET_INTERFACE(const INTERFACE_DESCRIPTOR& descriptor, const LOGGER& logger,
                                   VOQUEUE& inputQueue, PAUSES& pauses)
    : m_descriptor(descriptor),
      m_logger(logger),
      m_cutter(descriptor.inpSeparator),
      m_inputQueue(inputQueue),
      m_pauses(pauses) {
  m_rest.delayUs = [this] { return ThreadDelayUs(); };
  m_rest.isOver = [this] { return StopRequested(); };
  m_rest.hasWork = [this] { return HasWork(); };
  m_rest.source = [this] { return Source(); };
  m_outputQueue.WakeTakerBy(m_rest.bell);
  m_inputQueue.WakeProducerBy(m_rest.bell, BytesAt(RoleOf(m_descriptor.name).heldBack));
  KeepOwnPace(m_rest.bell);
  SetThreadType(kIntervalDriven, 1);
  m_pauses.DelayUs(kPauseAfterConstructionUs);
}

SOCKET_INTERFACE::~SOCKET_INTERFACE() {
  Terminate();
}

void SOCKET_INTERFACE::Terminate() {
  RequestStop();
  {
    const std::lock_guard lock(m_socketLock);
    shutdown(m_listener.Get(), SHUT_RDWR);
    shutdown(m_client.Get(), SHUT_RDWR);
  }
  StopAndJoin();
}

// --- listening ----------------------------------------------------------------------------------

bool SOCKET_INTERFACE::Init() {
  const std::string& name = m_descriptor.name;
  UNIQUE_FD listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener.IsOpen()) {
    LogError("couldn't open socket for" + name + " interface");
    return false;
  }
  const int reuse = 1;
  if (setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0) {
    LogError("couldn't set socket options for" + name + " interface");
  }
  // Accepted sockets inherit it.
  setsockopt(listener.Get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes,
             sizeof kReceiveBufferBytes);
  if (!BindToPort(listener.Get())) {
    LogError("couldn't bind socket for" + name + " interface");
  }
  if (listen(listener.Get(), kBacklog) != 0) {
    LogError(name + " interface listening error on port " + ITOA(m_descriptor.port));
    return false;
  }
  // Before the state: the worker's own "is waiting" line follows that at once.
  LogInfo(name + " interface listening on port " + ITOA(m_descriptor.port));
  const std::lock_guard lock(m_socketLock);
  m_listener = std::move(listener);
  m_firstMessage = m_inputQueue.NextToCome();
  SetState(kListening);
  m_rest.bell.Ring();
  return true;
}

/// False, with errno set, when the port is not to be had.
bool SOCKET_INTERFACE::BindToPort(int listener) const {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(static_cast<std::uint16_t>(m_descriptor.port));
  for (int left = kBindTries;;) {
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      return true;
    }
    if (errno != EADDRINUSE || --left == 0) {
      return false;
    }
    m_pauses.DelayUs(kPauseBetweenBindsUs);
  }
}

std::uint16_t SOCKET_INTERFACE::BoundPort() {
  const std::lock_guard lock(m_socketLock);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(m_listener.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return 0;
  }
  return ntohs(address.sin_port);
}

// --- the pass -----------------------------------------------------------------------------------

bool SOCKET_INTERFACE::OnTask() {
  m_pauses.Rest(m_rest);
  if (State() == kListening) {
    AcceptClient();
  }
  if (State() == kConnected) {
    ServeClient();
  }
  if (State() == kClosed) {
    Reopen();
  }
  if (m_descriptor.name == kParkedName) {
    ParkForGood();
  }
  return true;
}

/// Beside what its source tells.
bool SOCKET_INTERFACE::HasWork() {
  switch (State()) {
    case kListening:
    case kClosed:
      return true;
    case kConnected:
      return !SelectCanHold(m_client.Get()) || !m_outputQueue.IsEmpty();
    case kIdle:
    case kAccepting:
      break;
  }
  return m_descriptor.name == kParkedName;
}

/// A client that is held back is looked at for its end only, and for what was kept of its last line
/// where the rest of that has not come.
REST::SOURCE SOCKET_INTERFACE::Source() {
  if (State() != kConnected) {
    return {};
  }
  const int client = m_client.Get();
  REST::SOURCE source;
  source.descriptor = client;
  source.latest = m_delivery.NextLook();
  if (IsHeldBack()) {
    source.events = POLLRDHUP;
    if (!IsReadable(client)) {
      source.latest = std::min(source.latest, m_cutter.LateFrom());
    }
  } else {
    source.events = POLLIN;
    source.latest = std::min(source.latest, m_cutter.LateFrom());
  }
  return source;
}

bool SOCKET_INTERFACE::IsHeldBack() {
  return m_inputQueue.Bytes() >= BytesAt(RoleOf(m_descriptor.name).heldBack);
}

void SOCKET_INTERFACE::AcceptClient() {
  LogInfo(m_descriptor.name + " interface is waiting for incoming connection");
  if (!Replace(kListening, kAccepting)) {
    return;
  }
  m_pauses.Seconds(kPauseBeforeAcceptS);

  sockaddr_in peer{};
  UNIQUE_FD client = WaitForClient(peer);
  if (StopRequested() || State() != kAccepting) {
    CloseSockets();  // closed by command, or shutting down: the connection, if any, ends here
    return;
  }
  if (client.IsOpen()) {
    PrepareClientSocket(client.Get());
  } else {
    LogError("socket accept error on " + m_descriptor.name + " interface");
  }
  LogInfo("client is connected on " + m_descriptor.name + " interface from " + PeerText(peer));
  if (!Adopt(client)) {
    CloseSockets();
  }
}

/// Makes the connection the served one and queues its greeting (none where the accept failed),
/// unless it was closed by command meanwhile: false then, and the connection stays the caller's.
bool SOCKET_INTERFACE::Adopt(UNIQUE_FD& client) {
  MakeScheduleNoise();
  const std::lock_guard lock(m_socketLock);
  if (State() != kAccepting) {
    return false;
  }
  m_client = std::move(client);
  m_delivery.Begin(m_pauses.Now());
  const char* const greeting = RoleOf(m_descriptor.name).greeting;
  if (greeting != nullptr && m_client.IsOpen()) {
    m_outputQueue.ToQueue(Convert_String2QList(greeting));
  }
  SetState(kConnected);
  return true;
}

/// Blocks until a client comes. An empty owner when accept fails, or is woken by a shutdown.
UNIQUE_FD SOCKET_INTERFACE::WaitForClient(sockaddr_in& peer) {
  for (;;) {
    socklen_t size = sizeof peer;
    UNIQUE_FD client(
        accept4(m_listener.Get(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC));
    if (client.IsOpen() || errno != EINTR) {
      return client;
    }
  }
}

void SOCKET_INTERFACE::ServeClient() {
  WatchDelivery();
  const INPUT input = ReadClient();
  const bool clientLeft = input == INPUT::kEnd && CloseAfterClient();
  // After a failed accept there is nobody to write to: what waits is kept for the next client.
  if (input != INPUT::kUnusable || m_client.IsOpen()) {
    WriteNextMessage(clientLeft);
  }
  // A connection without a usable descriptor, or with a message torn in its middle, serves nobody.
  if (input == INPUT::kUnusable || m_tornMessage) {
    CloseAfterClient();
  }
}

/// Cuts off a client that takes nothing any more. What it has sent before is read to its end.
void SOCKET_INTERFACE::WatchDelivery() {
  const auto now = m_pauses.Now();
  if (now < m_delivery.NextLook() || !m_delivery.IsGivenUp(BytesUnderWay(m_client.Get()), now)) {
    return;
  }
  CutOff(m_client.Get());
}

void SOCKET_INTERFACE::Reopen() {
  if (SocketsOpen()) {
    CloseSockets();  // closed by command: the master loop has only marked it
  }
  {
    const std::lock_guard lock(m_socketLock);
    m_reconnectCounter = m_reconnectCounter + 1;
  }
  m_pauses.Seconds(kPauseWhileClosedS);
  if (m_reconnectCounter > 1 && !StopRequested()) {
    Init();
  }
}

void SOCKET_INTERFACE::ParkForGood() {
  LogInfo("On task " + m_descriptor.name + " interface");
  m_rest.hasWork = [] { return false; };
  m_rest.source = nullptr;  // a client that is there is not served any more
  while (!StopRequested()) {
    m_pauses.Rest(m_rest);
  }
}

// --- input --------------------------------------------------------------------------------------

SOCKET_INTERFACE::INPUT SOCKET_INTERFACE::ReadClient() {
  const int client = m_client.Get();
  if (!SelectCanHold(client)) {
    LogError("socket select error on " + m_descriptor.name + " interface");
    return INPUT::kUnusable;
  }
  fd_set readable;
  int ready = 0;
  do {
    FD_ZERO(&readable);
    FD_SET(client, &readable);
    fd_set writable = readable;
    fd_set exceptional = readable;
    timeval timeout = {0, 1};
    ready = select(client + 1, &readable, &writable, &exceptional, &timeout);
  } while (ready == -1 && errno == EINTR);
  if (ready == -1) {
    LogError("socket select error on " + m_descriptor.name + " interface");
    return INPUT::kGoesOn;
  }
  if (ready == 0 || !FD_ISSET(client, &readable)) {
    QueueInput(m_cutter.TakeLate(m_pauses.Now()));
    return INPUT::kGoesOn;
  }
  const INTERFACE_ROLE& role = RoleOf(m_descriptor.name);
  const std::size_t waiting = m_inputQueue.Bytes();
  // A client that has left is read to its end all the same, as far as there is room: it must not
  // keep the only slot for as long as the master loop is behind.
  if (waiting >= BytesAt(role.heldBack) && !HasLeft(client)) {
    return INPUT::kGoesOn;
  }
  return waiting >= BytesAt(role.cut) ? LeaveUnread() : Receive();
}

/// For a client that has left: what it has sent last is not taken any more.
SOCKET_INTERFACE::INPUT SOCKET_INTERFACE::LeaveUnread() {
  std::uint8_t byte = 0;
  if (m_cutter.HoldsRest() ||
      recv(m_client.Get(), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) > 0) {
    LogError("too many messages wait from " + m_descriptor.name +
             " interface, the rest of its client's is lost");
  }
  return INPUT::kEnd;
}

/// One read, of at most what fits a message with what was kept of the one before.
SOCKET_INTERFACE::INPUT SOCKET_INTERFACE::Receive() {
  std::string bytes(m_cutter.Room(), '\0');
  // The readiness is advice: without MSG_DONTWAIT a read that finds nothing would hold the worker.
  const ssize_t count = recv(m_client.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
    return INPUT::kGoesOn;
  }
  if (count <= 0) {
    QueueInput(m_cutter.TakeRest());
    return INPUT::kEnd;
  }
  bytes.resize(static_cast<std::size_t>(count));
  QueueInput(m_cutter.Take(bytes, m_transferMode == kTextMode, m_pauses.Now()));
  return INPUT::kGoesOn;
}

/// Makes a message of what was read, if that is anything, and if anybody reads it.
void SOCKET_INTERFACE::QueueInput(const std::string& bytes) {
  if (bytes.empty() || RoleOf(m_descriptor.name).inputDiscarded) {
    return;
  }
  if (m_transferMode == kTextMode) {
    m_inputQueue.ToQueue(Convert_CharBuff2QList(bytes.c_str()));
    return;
  }
  // The announced length, but never more than came.
  const std::size_t length =
      std::min<std::size_t>(static_cast<std::uint8_t>(bytes[0]), bytes.size() - 1);
  m_inputQueue.ToQueue(
      QList(bytes.begin() + 1, bytes.begin() + 1 + static_cast<std::ptrdiff_t>(length)));
}

// --- output -------------------------------------------------------------------------------------

/// Writes one waiting message. When the client has just left, that write fails and the message is
/// lost with it; until its end has been read, or when the connection was closed by command, what is
/// queued waits.
void SOCKET_INTERFACE::WriteNextMessage(bool clientLeft) {
  QList message;
  {
    // Under the lock, so that what is queued after CloseByCommand is never taken here.
    const std::lock_guard lock(m_socketLock);
    if (m_outputQueue.IsEmpty() ||
        (!clientLeft && (State() != kConnected || IsCutOff(m_client.Get())))) {
      return;
    }
    message = m_outputQueue.DeQueue();
  }
  if (!WriteMessage(message)) {
    LogError("socket write error on " + m_descriptor.name + " interface");
  }
}

bool SOCKET_INTERFACE::WriteMessage(const QList& message) {
  const std::string bytes = Framed(message, m_transferMode);
  const std::size_t sent = SendAll(m_client.Get(), bytes);
  m_delivery.Written(sent, m_pauses.Now());
  m_tornMessage = sent > 0 && sent < bytes.size();
  return sent == bytes.size();
}

// --- closing ------------------------------------------------------------------------------------

/// False when the connection was closed by command meanwhile, and logged.
bool SOCKET_INTERFACE::CloseAfterClient() {
  if (!Replace(kConnected, kClosed)) {
    return false;
  }
  LogInfo("connection is closed by client on " + m_descriptor.name + " interface");
  CloseSockets();
  m_inputQueue.WakeTaker();  // which waits for nobody who has left
  return true;
}

void SOCKET_INTERFACE::CloseByCommand() {
  LogClosedByCommand();
  const std::lock_guard lock(m_socketLock);
  MarkClosedByCommand();
}

void SOCKET_INTERFACE::CloseByCommandOf(VOQUEUE::NUMBER number) {
  if (IsLeftBehind(number)) {
    return;
  }
  LogClosedByCommand();
  const std::lock_guard lock(m_socketLock);
  // Again: while the line was written the interface may have been opened for the next client.
  if (!IsLeftBehind(number)) {
    MarkClosedByCommand();
  }
}

/// Before anything is closed: the line is there before the client, or the worker, can notice.
void SOCKET_INTERFACE::LogClosedByCommand() {
  LogInfo("connection is closed by command on " + m_descriptor.name + " interface");
  MakeScheduleNoise();
}

/// Under the lock. What has been read of the client so far can end no connection any more.
void SOCKET_INTERFACE::MarkClosedByCommand() {
  SetState(kClosed);
  m_reconnectCounter = 0;
  m_firstMessage = m_inputQueue.NextToCome();
  shutdown(m_listener.Get(), SHUT_RDWR);
  shutdown(m_client.Get(), SHUT_RDWR);
  m_rest.bell.Ring();
}

bool SOCKET_INTERFACE::IsLeftBehind(VOQUEUE::NUMBER number) const {
  return number < m_firstMessage;
}

/// The listener first: a client that connected between the two closes would be left half open.
void SOCKET_INTERFACE::CloseSockets() {
  const std::lock_guard lock(m_socketLock);
  // A child that is just being started has a copy until its program replaces it. As long as it
  // listened through that the port could not be had again.
  shutdown(m_listener.Get(), SHUT_RDWR);
  m_listener.Close();
  m_client.Close();
  m_tornMessage = false;
  m_cutter.Clear();
  m_reconnectCounter = 0;
}

bool SOCKET_INTERFACE::SocketsOpen() {
  const std::lock_guard lock(m_socketLock);
  return m_listener.IsOpen() || m_client.IsOpen();
}

bool SOCKET_INTERFACE::Replace(CONNECTION_STATE expected, CONNECTION_STATE state) {
  MakeScheduleNoise();
  const std::lock_guard lock(m_socketLock);
  return m_descriptor.state.Replace(expected, state);
}

void SOCKET_INTERFACE::mf_SIGhandler(int signalNumber) {
  LogInfo("signal " + ITOA(signalNumber) + " on " + m_descriptor.name + " interface");
}

}  // namespace vorn
