#pragma once

#include "client/Descriptor.h"
#include "client/Endpoint.h"
#include "client/Greeting.h"
#include "client/Interface.h"
#include "client/LineSplitter.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

using CLOCK = std::chrono::steady_clock;
using TIME = CLOCK::time_point;

/// What poll() is to be told, in milliseconds, rounded up: 0 where the deadline has passed, -1
/// where it is TIME::max(); a day at most.
int PollTimeout(TIME deadline, TIME now);

/// What ends a line, as the daemon is configured.
struct SEPARATORS {
  std::string inp = "\r\n";  ///< of lines to the daemon
  std::string out = "\r\n";  ///< of lines from it
};

struct SESSION_SETTINGS {
  std::vector<ENDPOINT> endpoints;  ///< tried in turn; one at least
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
  kFinishing,   ///< by Finish: nothing is sent or delivered any more
  kFailed,      ///< given up: see Trouble
};

/// Why there is no greeting (yet), as far as one can tell from outside.
enum class TROUBLE : std::uint8_t {
  kNone,
  /// Connected, and no greeting in the time that the daemon takes: another client is served. Also
  /// where so many wait for that to end that the port does not answer, on this machine: on another
  /// it is kNotReached.
  kTaken,
  kRefused,         ///< the port refuses: it does for 4 s after each client; or there is no daemon
  kNoDaemon,        ///< it has refused for longer than that
  kNotReached,      ///< no way to the machine, or no answer from it
  kNotVorn,         ///< something else listens there
  kOtherInterface,  ///< the daemon does, with another interface
  kLost,            ///< the daemon has closed a connection that was ready, or it broke
};
/// For people: "CAE is taken by another client". SESSION::Explain knows more.
std::string Describe(INTERFACE interface, TROUBLE trouble);

/// One of the daemon's interfaces, from the first attempt to connect to the end. Without a thread:
/// the owner's loop waits for Descriptor() and Events() as poll() has them, at most until
/// Deadline(), and calls Handle(), for whatever of them has come. Nothing here blocks. All calls,
/// and all calls of the handlers, on the owner's thread. A handler may call Send, End, Finish and
/// Start; it must not call Handle, set a handler or destroy the session.
///
/// It keeps no clock: what it does in time, it does by the times that it is told.
class SESSION {
 public:
  /// A whole line, without its end. Not those that were left by an earlier client and come ahead of
  /// the greeting.
  using ON_LINE = std::function<void(std::string_view line)>;
  using ON_STATE = std::function<void(SESSION_STATE state)>;
  using ON_OVER = std::function<void()>;

  /// Throws std::invalid_argument where there is no endpoint.
  SESSION(INTERFACE interface, SESSION_SETTINGS settings);
  SESSION(const SESSION&) = delete;
  SESSION& operator=(const SESSION&) = delete;
  ~SESSION() = default;

  void OnLine(ON_LINE handler) { m_onLine = std::move(handler); }
  void OnState(ON_STATE handler) { m_onState = std::move(handler); }
  /// Who waits for an answer waits in vain: a connection that was ready is over, or the attempts to
  /// have one are, by whatever it was, End and Finish included. Before OnState.
  void OnOver(ON_OVER handler) { m_onOver = std::move(handler); }

  /// Begins to connect; anew where it has begun already.
  void Start(TIME now);
  /// Where it pauses between two attempts: makes the next one now.
  void TryNow(TIME now);
  /// Closes at once. What has not been written yet is lost; what the daemon has sent and nobody has
  /// read may reset the connection, and then what it has not read yet is lost as well: see Finish.
  void End();
  /// Sends no more and reads on, for nobody, until the daemon has closed, then is kIdle: nothing of
  /// what was sent is lost. After `limit` it closes all the same. Where it is not ready: End.
  void Finish(TIME now, CLOCK::duration limit = std::chrono::seconds(2));

  /// -1: none at present.
  int Descriptor() const { return m_socket.Get(); }
  short Events() const;
  /// Handle is wanted then at the latest; TIME::max(): never.
  TIME Deadline() const;
  /// Reads at most 64 KiB, so that a flood leaves the owner time for others, and writes what waits.
  void Handle(TIME now);

  INTERFACE Interface() const { return m_interface; }
  SESSION_STATE State() const { return m_state; }
  TROUBLE Trouble() const { return m_trouble; }
  /// The same for people, with what is known of it: "port 5001 is the daemon's IO interface, not
  /// CAE".
  std::string Explain() const;
  /// When it gives up, unless it is greeted before; for "trying for 5 s more". TIME::max(): never.
  TIME GivesUpAt() const { return m_givesUpAt; }

  /// Takes a line, without its separator, to be written as soon as the connection takes it: as many
  /// as there are in one write, which ends with a line. False where kMostUnsent bytes wait already,
  /// or the session is not ready: the line is not taken.
  ///
  /// It is written by the next Handle, at once by the one whose handler sends it; Events asks for
  /// POLLOUT meanwhile, so the loop is not held up. Who has other things to do first calls Flush.
  bool Send(std::string_view line);
  /// Writes what the connection takes now. Calls no handler: what it finds broken, the next Handle
  /// tells.
  void Flush();
  std::size_t Unsent() const { return m_unsent.size(); }
  static constexpr std::size_t kMostUnsent = std::size_t{64} * 1024;

 private:
  void Connect();
  void LookAtConnecting();
  void BeginToWait();
  void TakeError(int error);
  TROUBLE UnansweredTrouble(int error) const;
  void TryNext(TROUBLE trouble);
  void Pause(CLOCK::duration length);
  void Read();
  void Take(std::string_view bytes);
  void TakeGreeting();
  void TakeEnd();
  void WrongPort(TROUBLE trouble);
  void Expire();
  void ExpireWaiting();
  void GiveUp(TROUBLE trouble);
  void Close();
  bool Enter(SESSION_STATE state, bool isOver = false);
  bool IsTrying() const;

  const INTERFACE m_interface;
  const SESSION_SETTINGS m_settings;
  ON_LINE m_onLine;
  ON_STATE m_onState;
  ON_OVER m_onOver;

  SESSION_STATE m_state = SESSION_STATE::kIdle;
  std::uint64_t m_changes = 0;  // of the state: a handler may have made one
  TROUBLE m_trouble = TROUBLE::kNone;
  TIME m_now{};
  TIME m_givesUpAt = TIME::max();
  TIME m_until = TIME::max();  // what the state waits for is given up, or looked at, then
  CLOCK::duration m_pause{};   // before the next round of attempts
  std::optional<TIME> m_refusedSince;
  std::size_t m_endpoint = 0;  // that is tried, or is next
  std::size_t m_tried = 0;     // last

  // Of the connection.
  DESCRIPTOR m_socket;
  TIME m_connectedAt{};
  GREETING_SEARCH m_greeting;
  LINE_SPLITTER m_splitter;
  std::string m_unsent;
  bool m_isShut = false;  // for sending
};

}  // namespace client
