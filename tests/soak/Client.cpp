#include "tests/soak/Client.h"

#include <exception>

namespace soak {

namespace {

/// What is under way to a client that does not read is to wait in the daemon, not in the kernel,
/// and a flood is to be over soon after its end.
constexpr support::CLIENT_OPTIONS kSmall{
    .smallBuffers = true, .bufferSize = 32768, .sendBufferSize = 32768};

}  // namespace

void CLIENT::Start() {
  m_thread = std::thread([this] { Run(); });
}

void CLIENT::Leave() {
  m_isAway = true;
  m_isDropped = true;
}

void CLIENT::Stop() {
  m_isStopped = true;
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

TIME CLIENT::LastServed() const {
  const std::lock_guard lock(m_mutex);
  return m_lastServed;
}

std::string CLIENT::Failure() const {
  const std::lock_guard lock(m_mutex);
  return m_failure;
}

void CLIENT::Fail(const std::string& why) {
  const std::lock_guard lock(m_mutex);
  m_failure = why;
}

support::TCP_CLIENT CLIENT::ConnectTo(int port, const std::string& greeting, std::string& before) {
  while (true) {
    support::TCP_CLIENT client(port, kSmall);
    if (client.WaitForFirstByte()) {
      before = client.ReadUntil(greeting);
      if (before.ends_with(greeting)) {
        return client;
      }
    }
  }
}

void CLIENT::Run() {
  while (!m_isStopped && Failure().empty()) {
    try {
      RunOnce();
    } catch (const std::exception& error) {
      Fail(error.what());
    }
  }
}

void CLIENT::RunOnce() {
  if (m_isDropped.exchange(false)) {
    Reset();
    while (m_isAway && !m_isStopped) {
      m_isIdle = true;
      std::this_thread::sleep_for(kAwayStep);
    }
    m_isIdle = false;
    Connect();
    ++m_connections;
  }
  m_isIdle = !CanExchange();
  if (m_isIdle) {
    std::this_thread::sleep_for(kAwayStep);
    return;
  }
  const TIME begin = std::chrono::steady_clock::now();
  const std::string missing = Exchange();
  if (missing.empty()) {
    ++m_exchanges;
    const std::lock_guard lock(m_mutex);
    m_lastServed = begin;
    return;
  }
  ++m_spoiled;
  if (m_weather.IsCalmSince(begin) && !m_isStopped) {
    Fail("no answer although nothing was wrong: " + missing);
  }
}

}  // namespace soak
