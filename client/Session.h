#pragma once

#include "client/Descriptor.h"
#include "client/Endpoint.h"
#include "client/Interface.h"
#include "client/LineSplitter.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

using CLOCK = std::chrono::steady_clock;
using TIME = CLOCK::time_point;

/// What ends a line, as the daemon is configured.
struct SEPARATORS {
  std::string inp = "\r\n";  ///< of lines to the daemon
  std::string out = "\r\n";  ///< of lines from it
};

struct SESSION_SETTINGS {
  std::vector<ENDPOINT> endpoints;  ///< tried in turn
  std::string inpSeparator = "\r\n";
  /// Lines from the daemon end at any of these: MON's end with those of IO.
  std::vector<std::string> outSeparators = {"\r\n"};
  /// How long it tries for a greeting, from Start or from the loss of the connection.
  CLOCK::duration patience = std::chrono::seconds(9);
  /// After that, and after a connection that has ended, it fails; else it goes on for good.
  bool givesUp = true;
};

enum class SESSION_STATE : std::uint8_t {
  kIdle,        ///< not started, or ended by End
  kConnecting,  ///< the connection is being made
  kWaiting,     ///< connected, no greeting yet
  kPausing,     ///< between two attempts
  kReady,       ///< greeted
  kFailed,      ///< given up: see Trouble
};

/// Why there is no greeting (yet), as far as one can tell from outside.
enum class TROUBLE : std::uint8_t {
  kNone,
  kTaken,       ///< connected, and no greeting in the time that the daemon takes: another client is served
  kRefused,     ///< the port refuses: it does for 4 s after each client; or there is no daemon
  kNoDaemon,    ///< it has refused for longer than that
  kNotReached,  ///< no way to the machine, or no answer from it
  kNotVorn,     ///< something else listens there
  kLost,        ///< the daemon has closed a connection that was ready, or it broke
};
/// For people: "CAE is taken by another client".
std::string Describe(INTERFACE interface, TROUBLE trouble);

/// One of the daemon's interfaces, from the first attempt to connect to the end. Without a thread:
/// the owner's loop waits for Descriptor() and Events() as poll() has them, at most until
/// Deadline(), and calls Handle(). Nothing here blocks. All calls, and all calls of the handlers, on
/// the owner's thread. A handler may call Send, and must not destroy the session.
class SESSION {
 public:
  /// A whole line, without its end. Not those that were left by an earlier client and come ahead of
  /// the greeting.
  using ON_LINE = std::function<void(std::string_view line)>;
  using ON_STATE = std::function<void(SESSION_STATE state)>;

  SESSION(INTERFACE interface, SESSION_SETTINGS settings);
  SESSION(const SESSION&) = delete;
  SESSION& operator=(const SESSION&) = delete;
  ~SESSION() = default;

  void OnLine(ON_LINE handler) { m_onLine = std::move(handler); }
  void OnState(ON_STATE handler) { m_onState = std::move(handler); }

  /// Begins to connect.
  void Start(TIME now);
  /// Closes at once. What has not been written yet is lost; what the daemon has sent and nobody has
  /// read may reset the connection, and then what it has not read yet is lost as well: see Finish.
  void End();
  /// Sends no more and reads on until the daemon has closed, then is kIdle: nothing of what was
  /// sent is lost. After `limit` it closes all the same.
  void Finish(TIME now, CLOCK::duration limit = std::chrono::seconds(2));

  /// -1: none at present.
  int Descriptor() const;
  short Events() const;
  /// Handle is wanted then at the latest; TIME::max(): never.
  TIME Deadline() const;
  void Handle(TIME now);

  INTERFACE Interface() const { return m_interface; }
  SESSION_STATE State() const { return m_state; }
  TROUBLE Trouble() const { return m_trouble; }
  /// When it gives up; for "trying for 5 s more".
  TIME GivesUpAt() const { return m_givesUpAt; }

  /// Takes a line, without its separator, to be written as soon as the connection takes it: as many
  /// as there are in one write, which ends with a line. False where kMostUnsent bytes wait already,
  /// or the session is not ready: the line is not taken.
  bool Send(std::string_view line);
  std::size_t Unsent() const { return m_unsent.size(); }
  static constexpr std::size_t kMostUnsent = 64U * 1024;

 private:
  INTERFACE m_interface;
  SESSION_SETTINGS m_settings;
  LINE_SPLITTER m_splitter;
  ON_LINE m_onLine;
  ON_STATE m_onState;
  DESCRIPTOR m_socket;
  SESSION_STATE m_state = SESSION_STATE::kIdle;
  TROUBLE m_trouble = TROUBLE::kNone;
  TIME m_givesUpAt{};
  std::string m_unsent;
  // ... the implementation adds what it needs
};

}  // namespace client
