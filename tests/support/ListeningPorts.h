#pragma once

#include <sys/types.h>

#include <vector>

namespace support {

/// So many different TCP ports of the loopback interface that nobody listens on, below the range
/// from which the system takes the ports of clients (a client could else connect to itself).
std::vector<int> FreePorts(int count);

/// Ports on which a process listens, in ascending order.
std::vector<int> ListeningPorts(pid_t pid);

/// Bytes that wait to be read by the one side of a connection: the side whose own port is localPort
/// and whose peer's is peerPort. -1 when there is no such connection.
long UnreadBytes(int localPort, int peerPort);

/// Bytes that the one side has written and the other has not acknowledged, named and refused alike.
long UnacknowledgedBytes(int localPort, int peerPort);

}  // namespace support
