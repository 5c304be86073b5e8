#include "checkconf/MachineChecks.h"

#include "checkconf/Quoting.h"
#include "thread/UniqueFd.h"
#include "vorn/base/Values.h"
#include "vorn/config/ConfigTables.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <system_error>

namespace vorn::checkconf {

namespace {

/// Binds as the daemon does, without listening: nothing can connect meanwhile. A refusal for
/// another reason than the port being in use says nothing about the daemon.
bool IsTaken(std::int32_t port) {
  const UNIQUE_FD probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int reuse = 1;
  setsockopt(probe.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return probe.IsOpen() &&
         bind(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
         errno == EADDRINUSE;
}

void CheckPortIsFree(const INTERFACE_DESCRIPTOR& descriptor, POSITION place, FINDINGS& findings) {
  if (descriptor.port < kLowestPort ||
      descriptor.port > std::numeric_limits<std::uint16_t>::max()) {
    return;  // told elsewhere
  }
  if (IsTaken(descriptor.port)) {
    findings.Add(KIND::kPortTaken, place, {ITOA(descriptor.port), ITOA(descriptor.port)});
  }
}

void CheckLogFolder(const std::string& file, const USER& user, POSITION place, FINDINGS& findings) {
  const std::string folder = std::filesystem::path(file).parent_path().string();
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error) && error.value() != EACCES) {
    findings.Add(KIND::kLogFolderMissing, place, {Quoted(folder)});
  } else if (!MayAccess(user, folder, W_OK | X_OK)) {
    findings.Add(KIND::kLogFolderNotWritable, place, {Shown(user.name), Quoted(folder)});
  }
}

void CheckLog(const std::string& file, const USER& user, POSITION place, FINDINGS& findings) {
  if (file.empty() || file.front() != '/') {
    return;  // told elsewhere
  }
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    CheckLogFolder(file, user, place, findings);
  } else if (S_ISDIR(status.st_mode)) {
    findings.Add(KIND::kLogFileIsFolder, place, {Quoted(file)});
  } else if (!MayAccess(user, file, W_OK)) {
    findings.Add(KIND::kLogFileNotWritable, place, {Shown(user.name), Quoted(file)});
  }
}

}  // namespace

void CheckMachine(const CONFIG_DESCRIPTOR& config, const USER& user, const PLACES& places,
                  FINDINGS& findings) {
  CheckLog(config.logFileName, user, places.logFile, findings);
  CheckPortIsFree(config.cae, places.cae, findings);
  CheckPortIsFree(config.io, places.io, findings);
  CheckPortIsFree(config.mon, places.mon, findings);
}

}  // namespace vorn::checkconf
