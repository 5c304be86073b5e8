#include "client/Session.h"

namespace client {

}  // namespace client
