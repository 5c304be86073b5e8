#include "client/LineSplitter.h"

#include <gtest/gtest.h>

namespace client {
namespace {

}  // namespace
}  // namespace client
