#pragma once

#include "sim/rack/Bytes.h"

#include <string>

namespace sim {

/// What a request frame means, for a person: "poll card 3, 2 bytes". Never fails: what is no
/// request is said to be none.
std::string DescribeRequest(const Bytes& frame);

/// The same for what came back: "card 3 input 40 00", "error no-card".
std::string DescribeAnswer(const Bytes& bytes);

}  // namespace sim
