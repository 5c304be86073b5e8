#include "tests/unit/tcp/SocketFixture.h"

#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace vorn {

using support::milliseconds;
using support::TCP_CLIENT;
using support::WaitUntil;

QList Message(const std::string& text) {
  return {text.begin(), text.end()};
}

int DescriptorTo(int peerPort) {
  for (const auto& [number, target] : support::OpenDescriptors(getpid())) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(number, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
        peer.sin_family == AF_INET && ntohs(peer.sin_port) == peerPort) {
      return number;
    }
  }
  return -1;
}

int DescriptorOfListener(int port) {
  for (const auto& [number, target] : support::OpenDescriptors(getpid())) {
    int listens = 0;
    socklen_t size = sizeof listens;
    sockaddr_in address{};
    socklen_t addressSize = sizeof address;
    if (getsockopt(number, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0 &&
        getsockname(number, reinterpret_cast<sockaddr*>(&address), &addressSize) == 0 &&
        address.sin_family == AF_INET && ntohs(address.sin_port) == port) {
      return number;
    }
  }
  return -1;
}

SocketInterface::SocketInterface() {
  socketCalls.Reset();
  m_pauses.RestForReal();
  for (const int seconds : {2, 3}) {
    m_pauses.SetLength(seconds, milliseconds(1));
  }
}

SocketInterface::~SocketInterface() {
  m_worker.reset();
  socketCalls.Reset();
}

void SocketInterface::Make(const std::string& name, int port) {
  INTERFACE_DESCRIPTOR descriptor;
  descriptor.name = name;
  descriptor.port = port;
  descriptor.threadDelayUs = 100;
  descriptor.inpSeparator = m_separator;
  LOGGER logger;
  logger.SetFileName(m_log.Path());
  m_worker = std::make_unique<SOCKET_INTERFACE>(descriptor, logger, m_input, m_pauses);
}

void SocketInterface::Start(const std::string& name, int port) {
  Make(name, port);
  ASSERT_TRUE(m_worker->Init());
}

TCP_CLIENT SocketInterface::StartWithClient(const std::string& name) {
  Start(name);
  TCP_CLIENT client = Connect();
  client.ReadUntil("\r\n\r");
  return client;
}

TCP_CLIENT SocketInterface::Connect(bool smallBuffers) {
  support::CLIENT_OPTIONS options;
  options.smallBuffers = smallBuffers;
  return TCP_CLIENT(Port(), options);
}

TCP_CLIENT SocketInterface::ConnectAndGreet(bool smallBuffers) {
  TCP_CLIENT client = Connect(smallBuffers);
  EXPECT_TRUE(client.Receives(kCaeGreeting));
  return client;
}

bool SocketInterface::WaitUntilListening(int count) {
  return WaitUntil([&] {
    return static_cast<int>(m_log.LinesWith("interface listening on port").size()) >= count &&
           Port() != 0;
  });
}

bool SocketInterface::WaitForState(CONNECTION_STATE state) {
  return WaitUntil([&] { return m_worker->State() == state; });
}

void SocketInterface::DestroyInHeldPause(int seconds) {
  SOCKET_INTERFACE& worker = *m_worker;
  std::thread destroyer([this] { m_worker.reset(); });
  // Of the event by which it is told.
  EXPECT_TRUE(WaitUntil([&] { return (worker.ErrorFlags() & kIllegalEvent) != 0; }));
  m_pauses.Release(seconds);
  destroyer.join();
}

std::string SocketInterface::NextInput() {
  if (!WaitUntil([&] { return !m_input.IsEmpty(); })) {
    return "nothing came";
  }
  const QList message = m_input.DeQueue();
  return {message.begin(), message.end()};
}

bool SocketInterface::WaitUntilBlockedInAccept() {
  return WaitUntil([&] { return socketCalls.accept.Begun() > socketCalls.accept.Ended(); });
}

bool SocketInterface::BlockInSend(const TCP_CLIENT& client) {
  const int smallBuffer = 4096;
  setsockopt(DescriptorTo(client.LocalPort()), SOL_SOCKET, SO_SNDBUF, &smallBuffer,
             sizeof smallBuffer);
  Send(std::string(kBlockingSize, 'x'));
  // Blocked: the same send is under way for a while.
  int sends = -1;
  auto since = std::chrono::steady_clock::now();
  return WaitUntil([&] {
    const auto now = std::chrono::steady_clock::now();
    const int ended = socketCalls.send.Ended();
    if (ended != sends || socketCalls.send.Begun() == ended) {
      sends = ended;
      since = now;
    }
    return now - since > milliseconds(100);
  });
}

std::string SocketInterface::ConnectedLine(const TCP_CLIENT& client, const std::string& name) {
  // The port as it stands in the address structure.
  const auto port = htons(static_cast<std::uint16_t>(client.LocalPort()));
  return "[INF] client is connected on " + name +
         " interface from 127.0.0.1:" + std::to_string(port);
}

void SocketInterface::SendToBeReadTogether(TCP_CLIENT& client, const std::string& text) {
  m_gates.push_back(std::make_unique<unit::GATE>());
  unit::GATE& gate = *m_gates.back();
  socketCalls.select.HoldAt(&gate);
  client.Send(text);
  EXPECT_TRUE(gate.WaitUntilReached());
  const auto size = static_cast<long>(text.size());
  EXPECT_TRUE(WaitUntil([&] { return support::UnreadBytes(Port(), client.LocalPort()) == size; }));
  socketCalls.select.HoldAt(nullptr);
  gate.Open();
}

}  // namespace vorn
