#include "client/Cards.h"

namespace client {

}  // namespace client
