#include "client/Delivery.h"

namespace client {

}  // namespace client
