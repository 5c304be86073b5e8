#pragma once

#include "client/BadValue.h"

#include <string>

namespace client {

/// What is said against a call; "" where nothing is.
template <typename CALL>
std::string Refusal(CALL call) {
  try {
    call();
  } catch (const BAD_VALUE& refusal) {
    return refusal.what();
  }
  return "";
}

}  // namespace client
