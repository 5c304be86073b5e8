#pragma once

#include "tests/soak/Weather.h"
#include "tests/support/TcpClient.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace soak {

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
  /// Between two looks at whether to come back.
  static constexpr std::chrono::milliseconds kAwayStep{20};
  /// Bytes that are read at a time.
  static constexpr std::size_t kMuch = 65536;

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

}  // namespace soak
