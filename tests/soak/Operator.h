#pragma once

#include "tests/soak/Client.h"
#include "tests/soak/FloodLines.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace soak {

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

}  // namespace soak
