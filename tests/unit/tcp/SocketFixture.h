#pragma once

#include "tests/support/LogFile.h"
#include "tests/support/ReservedPort.h"
#include "tests/support/TcpClient.h"
#include "tests/support/unit/FakePauses.h"
#include "tests/support/unit/Folder.h"
#include "tests/support/unit/Gate.h"
#include "tests/unit/tcp/SocketCalls.h"
#include "vorn/tcp/SocketInterface.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace vorn {

constexpr const char* kCaeGreeting =
    "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r";

/// The size of a message that blocks a connection with small buffers.
constexpr std::size_t kBlockingSize = 300'000;

QList Message(const std::string& text);

using support::RESERVED_PORT;

/// One worker on a port that the system picks, with short pauses and a log of its own.
class SocketInterface : public testing::Test {
 protected:
  SocketInterface();
  ~SocketInterface() override;

  /// The worker, which does not listen yet.
  void Make(const std::string& name = "CAE", int port = 0);
  /// The worker, listening.
  void Start(const std::string& name = "CAE", int port = 0);
  /// The same with a client served and greeted.
  support::TCP_CLIENT StartWithClient(const std::string& name = "CAE");

  int Port() { return m_worker->BoundPort(); }
  /// A client that is connected; perhaps not accepted yet.
  support::TCP_CLIENT Connect(bool smallBuffers = false);
  /// The same once it has got the greeting.
  support::TCP_CLIENT ConnectAndGreet(bool smallBuffers = false);
  /// Waits until the worker listens for the count-th time.
  bool WaitUntilListening(int count);
  bool WaitForState(CONNECTION_STATE state);
  /// Destroys the worker, which stands in a pause that is held; the pause ends when the worker has
  /// been told to end.
  void DestroyInHeldPause(int seconds);

  /// Sends the text and lets the worker read only when all of it has arrived.
  void SendToBeReadTogether(support::TCP_CLIENT& client, const std::string& text);

  void Send(const std::string& text) { m_worker->OutputQueue().ToQueue(Message(text)); }
  /// The next message for the master control, waiting for it.
  std::string NextInput();
  bool WaitUntilBlockedInAccept();
  /// Fills the connection of a client that does not read, until the worker is blocked in a send.
  bool BlockInSend(const support::TCP_CLIENT& client);

  /// The log, without time stamps.
  std::vector<std::string> Log() const { return m_log.AllLines(); }
  int Count(const std::string& line) const { return m_log.Count(line); }
  static std::string ConnectedLine(const support::TCP_CLIENT& client,
                                   const std::string& name = "CAE");

  unit::FOLDER m_folder;
  unit::FAKE_PAUSES m_pauses{100};
  const support::LOG_FILE m_log{m_folder.File("log")};
  std::string m_separator = "\r\n";  // InpSeparator of the next worker
  VOQUEUE m_input;
  /// The worker may be on its way out of one for a while after it was opened.
  std::vector<std::unique_ptr<unit::GATE>> m_gates;
  std::unique_ptr<SOCKET_INTERFACE> m_worker;
};

/// Descriptor of this process whose connection leads to that port of a peer; -1: none.
int DescriptorTo(int peerPort);
/// Descriptor of this process that listens on the port; -1: none.
int DescriptorOfListener(int port);

}  // namespace vorn
