#pragma once

#include "tests/soak/FloodLines.h"
#include "tests/soak/RackProcess.h"
#include "tests/support/LogFile.h"
#include "tests/support/TcpClient.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace soak {

using TIME = std::chrono::steady_clock::time_point;

/// Whether something is being done to the daemon just now. Set by the thread that does it, asked by
/// the clients; its own lock guards it.
class WEATHER {
 public:
  explicit WEATHER(const support::LOG_FILE& log) : m_log(log) {}

  void Storm();
  void Calm();
  /// No fault was in force since then, nor its aftermath; nor has the link been lost all the same,
  /// as happens where the machine is too busy to carry an answer in time. Reads the whole log.
  bool IsCalmSince(TIME time) const;
  /// How often the link was lost so far.
  int LostLinks() const;
  /// How many of those were lost while it was calm; counted when the calm ends.
  int LostInCalm() const;

 private:
  const support::LOG_FILE& m_log;
  mutable std::mutex m_mutex;
  std::optional<TIME> m_calmSince;  // nothing: a storm
  int m_lostBefore = 0;             // links, when it became calm
  int m_lostInCalm = 0;             // links
};

/// A client that asks as fast as it is answered, on a thread of its own, until it is stopped or an
/// answer is missing that no fault explains.
class CLIENT {
 public:
  explicit CLIENT(const WEATHER& weather) : m_weather(weather) {}
  virtual ~CLIENT() = default;
  CLIENT(const CLIENT&) = delete;
  CLIENT& operator=(const CLIENT&) = delete;

  void Start();
  void Stop();

  /// To reset its connections and connect anew.
  void Drop() { m_isDropped = true; }
  /// As Drop, but not to connect before Return.
  void Leave();
  void Return() { m_isAway = false; }
  /// To read nothing, or to read on. For less than the ten seconds after which the daemon gives a
  /// message up.
  void Stall(bool on) { m_isStalled = on; }

  /// It is away, or stalled: only after its exchange, or its part of a flood, is over.
  bool IsIdle() const { return m_isIdle; }
  /// How often it has connected.
  int Connections() const { return m_connections; }
  /// When the latest exchange began that came to its end.
  TIME LastServed() const;
  std::uint64_t Exchanges() const { return m_exchanges; }
  /// Exchanges that a fault spoiled.
  std::uint64_t Spoiled() const { return m_spoiled; }
  /// Why it gave up; empty: it did not.
  std::string Failure() const;

 protected:
  virtual void Connect() = 0;
  virtual void Reset() = 0;
  /// One question and its answer; empty, or what is missing.
  virtual std::string Exchange() = 0;
  virtual bool CanExchange() const { return !IsStalled(); }

  bool IsStopped() const { return m_isStopped; }
  bool IsDropped() const { return m_isDropped; }
  bool IsStalled() const { return m_isStalled; }
  const WEATHER& Weather() const { return m_weather; }
  /// Connects and reads up to the end of the greeting; again where the connection is dropped before
  /// its first byte. What came before the greeting was left for the client before.
  static support::TCP_CLIENT ConnectTo(int port, const std::string& greeting, std::string& before);

 private:
  void Run();
  void RunOnce();
  void Fail(const std::string& why);

  const WEATHER& m_weather;
  std::atomic<bool> m_isStopped{false};
  std::atomic<bool> m_isDropped{true};
  std::atomic<bool> m_isAway{false};
  std::atomic<bool> m_isStalled{false};
  std::atomic<bool> m_isIdle{false};
  std::atomic<int> m_connections{0};
  std::atomic<std::uint64_t> m_exchanges{0};
  std::atomic<std::uint64_t> m_spoiled{0};
  mutable std::mutex m_mutex;  // guards the two below
  TIME m_lastServed{};
  std::string m_failure;
  std::thread m_thread;
};

/// The operator at CAE. Its lines are always answered, whatever happens on the bus.
class OPERATOR : public CLIENT {
 public:
  OPERATOR(int port, const WEATHER& weather);
  ~OPERATOR() override { Stop(); }

  /// To ask for the cards anew until all are there again: what a fault did to the card table is
  /// over then. How often that was done so far shows when it is.
  void Rediscover() { m_isRediscovery = true; }
  std::uint64_t Rediscoveries() const { return m_rediscoveries; }
  /// Of the floods, as they are reported here.
  const FLOOD_LINES& Lines() const { return m_lines; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;

 private:
  std::string Ask(const std::string& command, const std::string& expected, std::string& reply);
  std::string ReadUntil(const std::string& expected);
  std::string FindCards();

  const int m_port;
  FLOOD_LINES m_lines;
  std::optional<support::TCP_CLIENT> m_cae;
  std::atomic<bool> m_isRediscovery{false};
  std::atomic<std::uint64_t> m_rediscoveries{0};
  std::uint64_t m_turn = 0;
};

/// An onlooker at MON, who reads whatever comes.
class MONITOR : public CLIENT {
 public:
  MONITOR(int port, const WEATHER& weather);
  ~MONITOR() override { Stop(); }

  /// Lines seen so far, but for those of floods: a place to wait from.
  std::uint64_t Seen() const;
  /// Waits until the line has been seen since then.
  bool WaitForLine(const std::string& line, std::uint64_t since, std::chrono::milliseconds limit);
  /// Of the floods, as they are copied here.
  const FLOOD_LINES& Lines() const { return m_lines; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;

 private:
  bool Note(const std::string& line);

  const int m_port;
  FLOOD_LINES m_lines;
  std::optional<support::TCP_CLIENT> m_mon;
  mutable std::mutex m_mutex;  // guards the two below
  std::uint64_t m_seen = 0;
  std::map<std::string, std::uint64_t> m_lastSeen;
  std::condition_variable m_changed;
};

/// A controller program at IO: an output must show at the rack, an input must be reported, and both
/// must be seen by the monitor.
class MACHINE : public CLIENT {
 public:
  MACHINE(int port, RACK_PROCESS& rack, MONITOR& monitor, const WEATHER& weather)
      : CLIENT(weather), m_port(port), m_rack(rack), m_monitor(monitor) {}
  ~MACHINE() override { Stop(); }

  /// To send as much as is taken, whole lines that are refused and an output here and there, until
  /// told to end. Where it is dropped meanwhile it leaves when all it has sent is taken; where it
  /// is stalled it goes on sending. A flood is over when its last output is at the card.
  void Flood(bool on) { m_floods = on; }
  /// It is at that: what it was at before is over.
  bool Floods() const { return m_isFlooding; }
  /// How many floods are over.
  std::uint64_t FloodsOver() const { return m_floodsOver; }
  /// Numbered lines that were sent so far.
  std::uint64_t FloodLinesSent() const { return m_lines; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;
  bool CanExchange() const override { return true; }

 private:
  void RunFlood();
  std::string NextBatch();
  void SendSome(std::string& text);
  void LeaveFlood();
  void AwaitLastOutput();

  const int m_port;
  RACK_PROCESS& m_rack;
  MONITOR& m_monitor;
  std::optional<support::TCP_CLIENT> m_io;
  std::atomic<bool> m_floods{false};
  std::atomic<bool> m_isFlooding{false};
  std::atomic<std::uint64_t> m_floodsOver{0};
  std::atomic<std::uint64_t> m_lines{0};
  unsigned int m_turn = 0;
  unsigned int m_lastOutput = 0;
};

}  // namespace soak
