#include "client/CaeSession.h"

namespace client {

}  // namespace client
