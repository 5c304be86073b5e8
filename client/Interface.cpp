#include "client/Interface.h"

namespace client {

const char* NameOf(INTERFACE interface) {
  switch (interface) {
    case INTERFACE::kCae:
      return "CAE";
    case INTERFACE::kIo:
      return "IO";
    case INTERFACE::kMon:
      break;
  }
  return "MON";
}

int DefaultPort(INTERFACE interface) {
  return 5000 + static_cast<int>(interface);
}

}  // namespace client
