#pragma once

#include "vorn/base/Budget.h"

#include <string>

namespace vorn {

/// What sets one interface apart from another, by its configured name.
struct INTERFACE_ROLE {
  const char* name;
  const char* greeting;  ///< null: none
  bool inputDiscarded;   ///< nobody reads its input queue
  MARK heldBack;         ///< where its client is not read while so much waits in that queue
  MARK cut;              ///< the same where the client has left
};

/// The role of a name; for a name that has none, one without a greeting.
const INTERFACE_ROLE& RoleOf(const std::string& name);

}  // namespace vorn
