#include "client/CaeRequest.h"

namespace client {

}  // namespace client
