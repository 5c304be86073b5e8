#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

namespace vorn {

/// The serial line to the bus controller, and the adapters it may lead through: what the worker
/// needs of the machine. One port at a time is open. Called by the worker's thread alone.
class LINE {
 public:
  /// The paths at which an adapter may be, in the order in which to try them. Closes what has
  /// been put aside.
  virtual std::list<std::string> Search() = 0;
  /// Opens the port, in place of the one that is open. False when it cannot be opened.
  virtual bool Open(const std::string& path) = 0;
  /// Makes the settings of the bus: 460800 baud, 8 data bits, no parity, 1 stop bit, raw, no flow
  /// control. 0, or the errno value of the refusal.
  virtual int SetUp() = 0;
  /// As the system's calls, and none of them waits: -1 with errno set when there is nothing, or no
  /// port, or a failure.
  virtual ssize_t Read(std::uint8_t* bytes, std::size_t count) = 0;
  virtual ssize_t Write(const std::uint8_t* bytes, std::size_t count) = 0;
  /// A port that has refused its settings is only put aside: it stays open until the next search.
  virtual void Close() = 0;

 protected:
  ~LINE() = default;  // nobody owns it by this
};

}  // namespace vorn
