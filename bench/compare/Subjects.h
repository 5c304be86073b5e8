#pragma once

#include "bench/compare/BusEnd.h"
#include "bench/compare/Client.h"
#include "bench/compare/Loop.h"
#include "bench/compare/Process.h"

#include <cstdint>
#include <memory>
#include <string>

namespace bench {

/// Where the programs are, and where files may be left.
struct PLACES {
  std::string relay;
  std::string stub;
  std::string daemon;
  std::string folder;
};

/// What stands between a TCP client and the line while it is measured: the program, and both its
/// ends.
class SUBJECT {
 public:
  virtual ~SUBJECT() = default;
  SUBJECT(const SUBJECT&) = delete;
  SUBJECT& operator=(const SUBJECT&) = delete;

  virtual const char* Name() const = 0;
  /// Makes it ready for commands, to an IR card at each address, on a line that takes no time;
  /// nothing is polled. Comes before the others; of the floor at any time.
  virtual void PrepareCommands() = 0;
  /// Has so many digital input cards polled, on a paced line.
  virtual void PreparePolling(std::size_t cards) = 0;
  /// All the clients that it can have are connected, nothing is polled.
  virtual void PrepareIdling() = 0;
  /// 1 to 100 %. Only the daemon has one.
  virtual void SetSpeed(int /*percent*/) {}
  /// The bytes that make a card get an output with this number (24 bits).
  virtual std::string Command(std::uint8_t card, std::uint32_t number) const;
  /// Has an input line with that value come.
  virtual void Change(std::uint8_t value) { Bus().ChangeInput(0, value); }
  /// When what the line tells of was sent towards the subject; the epoch: not yet.
  virtual TIME ChangeSentAt() { return Bus().ChangeSentAt(); }
  /// Where the subject itself asks nothing of the line, the client does: each poll once the last is
  /// answered.
  virtual bool Polls() const { return true; }

  LOOP& Loop() { return m_loop; }
  BUS_END& Bus() { return *m_bus; }
  CLIENT& Client() { return *m_client; }
  PROCESS& Process() { return *m_process; }

 protected:
  SUBJECT() = default;

  LOOP m_loop;
  std::unique_ptr<BUS_END> m_bus;
  std::unique_ptr<PROCESS> m_process;
  std::unique_ptr<CLIENT> m_client;  // of IO, or the only one
};

/// A line of this speed, wherever cards are polled.
constexpr int kBaud = 460800;

std::unique_ptr<SUBJECT> MakeFloor(const PLACES& places);
std::unique_ptr<SUBJECT> MakeStub(const PLACES& places);
/// The daemon takes some seconds to start; what others took of the machine meanwhile goes to
/// othersPercent.
std::unique_ptr<SUBJECT> MakeDaemon(const PLACES& places, double& othersPercent);

/// The number that an output carries.
std::uint32_t NumberOf(const BUS_END::OUTPUT& output);

}  // namespace bench
