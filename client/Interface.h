#pragma once

#include <cstdint>

namespace client {

enum class INTERFACE : std::uint8_t { kCae, kIo, kMon };
inline constexpr INTERFACE kInterfaces[] = {INTERFACE::kCae, INTERFACE::kIo, INTERFACE::kMon};

/// "CAE", "IO", "MON".
const char* NameOf(INTERFACE interface);
/// 5000, 5001, 5002: those of the daemon's example configuration.
int DefaultPort(INTERFACE interface);

}  // namespace client
