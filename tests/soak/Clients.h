#pragma once

#include "tests/soak/RackProcess.h"
#include "tests/support/LogFile.h"
#include "tests/support/TcpClient.h"

#include <atomic>
#include <chrono>
#include <cstdint>
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

  bool IsStopped() const { return m_isStopped; }
  /// Connects and reads up to the end of the greeting; again where the connection is dropped before
  /// its first byte.
  static support::TCP_CLIENT ConnectTo(int port, const std::string& greeting);

 private:
  void Run();
  void RunOnce();
  void Fail(const std::string& why);

  const WEATHER& m_weather;
  std::atomic<bool> m_isStopped{false};
  std::atomic<bool> m_isDropped{true};
  std::atomic<bool> m_isAway{false};
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
  OPERATOR(int port, const WEATHER& weather) : CLIENT(weather), m_port(port) {}
  ~OPERATOR() override { Stop(); }

  /// To ask for the cards anew until all are there again: what a fault did to the card table is
  /// over then. How often that was done so far shows when it is.
  void Rediscover() { m_isRediscovery = true; }
  std::uint64_t Rediscoveries() const { return m_rediscoveries; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;

 private:
  std::string Ask(const std::string& command, const std::string& expected, std::string& reply);
  std::string FindCards();

  const int m_port;
  std::optional<support::TCP_CLIENT> m_cae;
  std::atomic<bool> m_isRediscovery{false};
  std::atomic<std::uint64_t> m_rediscoveries{0};
  std::uint64_t m_turn = 0;
};

/// A controller program at IO, and an onlooker at MON: an output must show at the rack, an input
/// must be reported, and both must be seen on MON.
class MACHINE : public CLIENT {
 public:
  MACHINE(int ioPort, int monPort, RACK_PROCESS& rack, const WEATHER& weather)
      : CLIENT(weather), m_ioPort(ioPort), m_monPort(monPort), m_rack(rack) {}
  ~MACHINE() override { Stop(); }

  /// To send many lines that are refused, or no more of them than usual.
  void Babble(bool on) { m_babbles = on; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;

 private:
  const int m_ioPort;
  const int m_monPort;
  RACK_PROCESS& m_rack;
  std::optional<support::TCP_CLIENT> m_io;
  std::optional<support::TCP_CLIENT> m_mon;
  std::atomic<bool> m_babbles{false};
  unsigned int m_turn = 0;
};

}  // namespace soak
