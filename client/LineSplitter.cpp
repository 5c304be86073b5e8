#include "client/LineSplitter.h"

namespace client {

}  // namespace client
