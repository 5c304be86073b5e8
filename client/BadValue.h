#pragma once

#include <stdexcept>

namespace client {

/// Thrown where the daemon would refuse, or misread, what a caller asks for; nothing was sent. Its
/// text says what was wrong and what would be right: "servo channel 6: a servo card has 0 to 5".
class BAD_VALUE : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

}  // namespace client
