#pragma once

#include "tests/support/ConfigFile.h"
#include "tests/support/Daemon.h"
#include "tests/support/LogFile.h"
#include "tests/support/Pauses.h"
#include "tests/support/TcpClient.h"
#include "tests/support/Wait.h"
#include "tests/support/sim/Adapter.h"
#include "tests/support/sim/Rack.h"

#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

using support::kLimit;
using support::TCP_CLIENT;

/// The main loop and four workers.
constexpr int kThreads = 5;

constexpr const char* kNoDevice = "[ERR] ttyUSB devices couldn't be found";

/// One daemon with everything around it: a folder, a good configuration with ports that are free,
/// the rack of the help text's examples behind an adapter (not plugged in yet), and the pauses
/// shortened. Whatever the test does, afterwards the daemon must end on SIGTERM with status 0 and
/// must have written nothing to its standard streams, unless the test says otherwise.
class SYSTEM_TEST : public testing::Test {
 protected:
  SYSTEM_TEST();
  ~SYSTEM_TEST() override;
  void TearDown() override;

  // These throw, which ends the test, where what they wait for does not come.

  /// Writes the configuration and starts the daemon; the caller's process must end with status 0.
  void Start(const support::START& start = {});
  /// The same with any text as the configuration file.
  void StartWith(const std::string& configText, const support::START& start = {});
  /// Plugs the adapter in as ttyUSB0, starts, and waits until the controller is confirmed.
  void StartLinked(const support::START& start = {});
  /// The same with auto-discovery on, connects the CAE client and waits until DISCOVER shows cards.
  void StartIdentified(const support::START& start = {});

  /// The adapter appears as ttyUSB<number>, or goes.
  void Plug(int number);
  void Unplug();

  /// Sends the signal and expects the daemon to end with status 0.
  void Stop(int signal);
  /// Expects the daemon to end by itself with status 0.
  void ExpectEnd();

  /// Connect, again where the connection is dropped before its first byte, and read the greeting,
  /// which must be the first thing to come.
  TCP_CLIENT Connect(const support::INTERFACE& interface, const std::string& greeting);
  TCP_CLIENT ConnectCae();
  TCP_CLIENT ConnectIo();
  TCP_CLIENT ConnectMon();

  /// A message as it travels: the text, the interface's OutSeparator, the closing carriage return.
  std::string CaeLine(const std::string& text) const;
  std::string IoLine(const std::string& text) const;
  /// Each text as a CAE line, then the prompt.
  std::string CaeReply(const std::vector<std::string>& texts) const;
  /// The reply to a line that no command recognises.
  std::string UnknownReply() const;

  /// Sends the command and the CAE InpSeparator; the next bytes are exactly these lines and the
  /// prompt.
  testing::AssertionResult Answers(TCP_CLIENT& client, const std::string& command,
                                   const std::vector<std::string>& texts) const;
  /// Every command that was queued before has been dealt with.
  void Synchronise(TCP_CLIENT& client) const;

  /// Request frames that reached the adapter after the given number, without the handshakes.
  std::vector<std::string> Frames(std::uint64_t after = 0);
  /// Waits for the next request with these exact bytes ("04 50 05 01 AB").
  bool WaitForFrame(const std::string& hex, std::uint64_t after = 0);

  /// Log lines of an interface.
  std::string Listening(const support::INTERFACE& interface) const;
  static std::string Waiting(const std::string& name);
  static std::string Connected(const std::string& name, const TCP_CLIENT& client);
  static std::string ClosedByClient(const std::string& name);
  static std::string ClosedByCommand(const std::string& name);

  pid_t Pid() const { return daemon.Pid(); }

 private:
  /// Something that crossed the line, for the print after a failure.
  struct CROSSING {
    sim::DIRECTION direction;
    sim::TIME when;
    sim::Bytes bytes;
  };
  void Print();

  std::string m_folder;  // first: the members below keep their files in it
  std::mutex m_crossingsMutex;
  std::deque<CROSSING> m_crossings;  // the last of them; written by the adapter's thread

 protected:
  const std::string& Folder() const { return m_folder; }

  support::CONFIG config;
  support::LOG_FILE log;
  support::PAUSES pauses;
  support::RACK rack;
  support::ADAPTER adapter;
  support::DAEMON daemon;
  std::optional<TCP_CLIENT> cae;  // since StartIdentified
  /// What the daemon is allowed to have written to its standard streams.
  std::optional<std::string> expectedOutput = "";
  bool isEndExpected = true;  // with status 0; false where the test has looked at the end itself
};

inline const std::string kHardwareFound = "[INF] hardware found on /dev/ttyUSB0 version: 2.04";
inline const std::string kCaeGreeting =
    "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r";
inline const std::string kIoGreeting = "VORN IO interface is ready\r\n\r";
inline const std::string kMonGreeting = "VORN MON interface is ready\r\n\r";
