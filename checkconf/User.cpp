#include "checkconf/User.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace vorn::checkconf {

namespace {

constexpr std::size_t kRecordSize = 16384;  // of a user's record, strings included

USER FromRecord(const passwd& record) {
  int count = 0;
  getgrouplist(record.pw_name, record.pw_gid, nullptr, &count);
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 1)), record.pw_gid);
  getgrouplist(record.pw_name, record.pw_gid, groups.data(), &count);
  return {record.pw_name, record.pw_uid, groups};
}

/// Do the mode bits that apply to the user allow it?
bool BitsAllow(const USER& user, const std::string& path, unsigned int mode) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return false;
  }
  constexpr unsigned int kOwnerShift = 6;
  constexpr unsigned int kGroupShift = 3;
  unsigned int bits = status.st_mode;
  if (status.st_uid == user.uid) {
    bits >>= kOwnerShift;
  } else if (std::find(user.groups.begin(), user.groups.end(), status.st_gid) !=
             user.groups.end()) {
    bits >>= kGroupShift;
  }
  return (bits & mode) == mode;  // R_OK, W_OK and X_OK are the bits of one digit
}

}  // namespace

std::optional<USER> FindUser(const std::string& name) {
  passwd record{};
  passwd* found = nullptr;
  std::vector<char> strings(kRecordSize);
  if (getpwnam_r(name.c_str(), &record, strings.data(), strings.size(), &found) != 0 ||
      found == nullptr) {
    return {};
  }
  return FromRecord(*found);
}

USER CurrentUser() {
  passwd record{};
  passwd* found = nullptr;
  std::vector<char> strings(kRecordSize);
  const uid_t uid = geteuid();
  if (getpwuid_r(uid, &record, strings.data(), strings.size(), &found) != 0 || found == nullptr) {
    return {std::to_string(uid), uid, {getegid()}};
  }
  return FromRecord(*found);
}

bool MayAccess(const USER& user, const std::string& path, int mode) {
  if (user.uid == geteuid()) {
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
  }
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  if (error) {
    return false;
  }
  if (user.uid == 0) {
    return true;
  }
  for (std::filesystem::path folder = real; folder.has_relative_path();) {
    folder = folder.parent_path();
    if (!BitsAllow(user, folder, X_OK)) {
      return false;
    }
  }
  return BitsAllow(user, real, static_cast<unsigned int>(mode));
}

}  // namespace vorn::checkconf
