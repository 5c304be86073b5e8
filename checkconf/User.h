#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace vorn::checkconf {

/// The user that runs the daemon.
struct USER {
  std::string name;
  uid_t uid;
  std::vector<gid_t> groups;
};

/// None when there is no such user on this machine.
std::optional<USER> FindUser(const std::string& name);

/// Whoever runs this process.
USER CurrentUser();

/// Whether the user may do `mode` (R_OK, W_OK, X_OK or several) with what is at `path`, and reach
/// it. For another user than the one of this process by owner, group and mode bits alone: access
/// lists, which can only be asked about oneself, are not looked at.
bool MayAccess(const USER& user, const std::string& path, int mode);

}  // namespace vorn::checkconf
