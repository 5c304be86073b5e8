#pragma once

#include "client/Session.h"
#include "tests/support/Wait.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>

namespace client {

/// The far end of a session: a port of 127.0.0.1 that is its own for its whole life, and that
/// refuses until it listens; one connection at a time. What should come is waited for, within the
/// limit of all tests; then it throws.
class FAKE_DAEMON {
 public:
  FAKE_DAEMON() : m_holder(Bound(0)) {
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    getsockname(m_holder.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    m_port = ntohs(address.sin_port);
  }

  int Port() const { return m_port; }
  ENDPOINT Endpoint() const { return Resolve("127.0.0.1", m_port).front(); }

  FAKE_DAEMON& Listen(int backlog = 8) {
    Refuse();
    m_listener = Bound(m_port);
    if (listen(m_listener.Get(), backlog) != 0) {
      throw std::runtime_error("cannot listen");
    }
    return *this;
  }
  void Refuse() { m_listener.Close(); }

  void Accept() {
    Await(m_listener, POLLIN);
    m_client = DESCRIPTOR(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  void Greet(INTERFACE interface) { Say(GreetingOf(interface)); }
  void Say(std::string_view text) {
    while (!text.empty()) {
      const ssize_t count = send(m_client.Get(), text.data(), text.size(), MSG_NOSIGNAL);
      if (count < 0) {
        throw std::runtime_error("nobody to speak to");
      }
      text.remove_prefix(static_cast<std::size_t>(count));
    }
  }
  /// One read: what was written in one piece, as long as it is short.
  std::string Hear() {
    std::array<char, 65536> buffer{};
    Await(m_client, POLLIN);
    const ssize_t count = recv(m_client.Get(), buffer.data(), buffer.size(), 0);
    return {buffer.data(), static_cast<std::size_t>(count < 0 ? 0 : count)};
  }
  std::string Hear(std::size_t bytes) {
    std::string all;
    while (all.size() < bytes) {
      const std::string text = Hear();
      if (text.empty()) {
        throw std::runtime_error("ended after: " + all);
      }
      all += text;
    }
    return all;
  }
  bool HearsNothing() const {
    pollfd look{m_client.Get(), POLLIN, 0};
    return poll(&look, 1, 0) == 0;
  }
  void Leave() { m_client.Close(); }
  void Reset() {
    const linger atOnce{1, 0};
    setsockopt(m_client.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    m_client.Close();
  }

 private:
  static DESCRIPTOR Bound(int port) {
    DESCRIPTOR bound(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(bound.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(bound.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::runtime_error("cannot bind");
    }
    return bound;
  }
  static void Await(const DESCRIPTOR& descriptor, short events) {
    pollfd look{descriptor.Get(), events, 0};
    if (poll(&look, 1, static_cast<int>(support::kLimit.count())) != 1) {
      throw std::runtime_error("nothing has come");
    }
  }

  DESCRIPTOR m_holder;
  int m_port = 0;
  DESCRIPTOR m_listener;
  DESCRIPTOR m_client;
};

/// Handles events of the connection, at that time, until it is so.
template <class SUBJECT, class PREDICATE>
bool HandleUntil(SUBJECT& subject, const SESSION& session, TIME now, PREDICATE holds) {
  const auto end = CLOCK::now() + support::kLimit;
  while (!holds()) {
    if (CLOCK::now() >= end) {
      return false;
    }
    pollfd look{session.Descriptor(), session.Events(), 0};
    poll(&look, 1, 10);  // a handler may have changed what is waited for
    subject.Handle(now);
  }
  return true;
}

}  // namespace client
