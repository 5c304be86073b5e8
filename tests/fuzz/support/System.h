#pragma once

#include "thread/Thread.h"

#include <pthread.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The fuzz targets are linked so that the daemon's system calls pass through System.cpp first: the
// sockets, the serial port, the pauses, the shell commands and the threads. While a SYSTEM lives
// they reach it and nothing else, so that an input runs in one thread, without a real pause, and
// always the same way.

namespace fuzz {

/// The machine as a fuzz target wants it: its port, its network, its clock. One at a time.
///
/// Workers get no thread: the target calls their passes. What a pass opens is a number of this
/// class's own; closing one twice, or leaving one open when the machine goes, fails the target.
class SYSTEM {
 public:
  SYSTEM();
  virtual ~SYSTEM();
  SYSTEM(const SYSTEM&) = delete;
  SYSTEM& operator=(const SYSTEM&) = delete;

  /// The workers made so far, in their order.
  const std::vector<CThread*>& Workers() const { return m_workers; }
  /// From now on a worker that is asked to stop ends at its next pause, as its thread would. To be
  /// called before workers are released.
  void LetWorkersEnd() { m_ending = true; }

  // What a target gives its machine.
  /// A pause of the daemon, on whatever worker's or loop's behalf.
  virtual void Pause(std::int64_t nanoseconds) { static_cast<void>(nanoseconds); }
  /// What `ls /dev | grep ttyUSB` prints.
  virtual std::string Adapters() { return {}; }
  virtual bool OpenPort() { return false; }
  /// Bytes for the daemon; -1 when there are none, or the line is gone.
  virtual ssize_t ReadPort(std::uint8_t* bytes, std::size_t count);
  virtual ssize_t WritePort(const std::uint8_t* bytes, std::size_t count);
  /// A client waits at this TCP port; it is taken.
  virtual bool Accept(int port);
  virtual bool IsReadable(int port);
  virtual bool HasLeft(int port);
  /// As recv and send: -1 with errno set on a failure.
  virtual ssize_t Receive(int port, char* bytes, std::size_t count);
  /// The same, and what was given stays to be received.
  virtual ssize_t Peek(int port, char* bytes, std::size_t count);
  virtual ssize_t Send(int port, const char* bytes, std::size_t count);
  /// The daemon has closed the client's socket.
  virtual void OnClosed(int port) { static_cast<void>(port); }

  // For the replaced calls.
  struct DESCRIPTOR {
    enum class KIND { kPort, kListener, kClient };
    KIND kind;
    int tcpPort;
  };
  static SYSTEM* Current();
  DESCRIPTOR* Find(int descriptor);
  int Open(DESCRIPTOR descriptor);
  void Close(int descriptor);
  void AddWorker(void* (*run)(void*), void* worker);
  void OnPause(std::int64_t nanoseconds);

 private:
  struct THREAD {
    void* (*run)(void*);
    void* worker;
  };

  /// Above what the process itself uses, below what select can hold.
  static constexpr int kFirstDescriptor = 900;
  static constexpr int kLastDescriptor = 1023;
  static constexpr std::size_t kDescriptors = kLastDescriptor - kFirstDescriptor + 1;

  std::array<std::optional<DESCRIPTOR>, kDescriptors> m_descriptors{};
  std::vector<CThread*> m_workers;
  std::vector<THREAD> m_threads;  // not ended yet
  bool m_ending = false;
};

}  // namespace fuzz
