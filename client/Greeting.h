#pragma once

#include "client/Interface.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace client {

/// What the daemon says to a client that it begins to serve, its end included. It is the same
/// whatever separators are configured.
std::string_view GreetingOf(INTERFACE interface);

/// Finds the greeting in what comes on a connection, in whatever pieces. Ahead of it comes what an
/// earlier client left, which is for nobody; behind it there may be another, meant for a client
/// that left before it came: that one is taken out.
class GREETING_SEARCH {
 public:
  explicit GREETING_SEARCH(INTERFACE interface) : m_interface(interface) {}

  /// Takes what has come. What it returns is for this client: empty until its greeting is found. A
  /// piece at the end that might be a greeting is held back until more comes.
  std::string Take(std::string_view bytes);

  /// Whose greeting it was; of another interface's nothing that follows is returned.
  std::optional<INTERFACE> Found() const { return m_found; }
  /// Bytes that have come without a greeting.
  std::size_t Skipped() const { return m_skipped; }
  /// For another connection.
  void Clear();

 private:
  void Search(std::string& bytes);

  INTERFACE m_interface;
  std::optional<INTERFACE> m_found;
  std::size_t m_skipped = 0;
  std::string m_held;  // shorter than a greeting
};

}  // namespace client
