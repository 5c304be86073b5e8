#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <string>

// What the worker asks of the socket of a client that it serves. Only SendAll waits.

namespace vorn {

/// Sets what makes answers go out at once, and a client that has lost its power be given up: by
/// keepalive where nothing is under way to it, within half a minute. A write that the client takes
/// nothing of gives up after 10 s.
void PrepareClientSocket(int client);

/// Something that it has sent waits to be read.
bool IsReadable(int client);
/// The client has closed or lost the connection, whatever it has sent before.
bool HasLeft(int client);
/// The same, and nothing can be written to it any more: not the client that only stopped sending.
bool IsCutOff(int client);
/// What was written and is not acknowledged yet, in bytes.
std::uint64_t BytesUnderWay(int client);
/// Sends all of it, in writes of at most 256 bytes; how much of it the client's connection took:
/// less when a write failed, or when the client has taken nothing for the send time-out.
std::size_t SendAll(int client, const std::string& bytes);
/// Ends the connection in both directions. What is under way goes with it at the close, not into
/// the kernel's own minutes of retries; what has come can still be read.
void CutOff(int client);

/// "1.2.3.4:13330". The port is the 16-bit value as it stands in the structure, unconverted.
std::string PeerText(const sockaddr_in& peer);

}  // namespace vorn
