#include "client/IoLine.h"

namespace client {

}  // namespace client
