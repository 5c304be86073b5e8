#pragma once

namespace support {

/// A port of the system's choice that stays free for the worker of a test: nobody else gets it, and
/// while no worker listens on it connections are refused.
class RESERVED_PORT {
 public:
  RESERVED_PORT();
  ~RESERVED_PORT();
  RESERVED_PORT(const RESERVED_PORT&) = delete;
  RESERVED_PORT& operator=(const RESERVED_PORT&) = delete;

  int Port() const { return m_port; }
  /// From now on the worker cannot have it.
  void Listen() const;

 private:
  const int m_socket;
  int m_port = 0;
};

}  // namespace support
