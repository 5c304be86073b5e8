#include "tests/soak/RackProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace soak {

namespace {

constexpr std::chrono::seconds kStartLimit{10};

/// A connection that closes itself.
class CONNECTION {
 public:
  explicit CONNECTION(const std::string& path)
      : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    constexpr timeval kPatience{10, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    m_isConnected =
        connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~CONNECTION() { close(m_socket); }
  CONNECTION(const CONNECTION&) = delete;
  CONNECTION& operator=(const CONNECTION&) = delete;

  std::string Ask(const std::string& line) const {
    const std::string text = line + "\n";
    std::string response;
    if (!m_isConnected || send(m_socket, text.data(), text.size(), MSG_NOSIGNAL) !=
                              static_cast<ssize_t>(text.size())) {
      return response;
    }
    shutdown(m_socket, SHUT_WR);
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = recv(m_socket, buffer.data(), buffer.size(), 0)) > 0) {
      response.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return response;
  }

 private:
  const int m_socket;
  bool m_isConnected = false;
};

}  // namespace

RACK_PROCESS::RACK_PROCESS(const std::string& folder) : m_socketPath(folder + "/rack.sock") {
  std::array<int, 2> out{-1, -1};
  if (pipe2(out.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe for the rack's events");
  }
  std::vector<std::string> arguments = {VORNSIM_PROGRAM, "--stay", "--control", m_socketPath};
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  const int error =
      posix_spawn(&m_pid, VORNSIM_PROGRAM, &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  m_output = out[0];
  if (error != 0) {
    close(m_output);
    throw std::runtime_error(std::string("cannot start " VORNSIM_PROGRAM ": ") +
                             std::strerror(error));
  }
  m_reader = std::thread([this] { ReadEvents(); });
  std::unique_lock lock(m_mutex);
  if (!m_changed.wait_for(lock, kStartLimit, [this] { return m_isReady; })) {
    lock.unlock();
    kill(m_pid, SIGKILL);
    m_reader.join();
    throw std::runtime_error("the rack does not get ready");
  }
}

RACK_PROCESS::~RACK_PROCESS() {
  if (Running()) {
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
  }
  m_reader.join();
  close(m_output);
}

void RACK_PROCESS::ReadEvents() {
  std::array<char, 65536> buffer{};
  std::string partial;
  ssize_t count = 0;
  while ((count = read(m_output, buffer.data(), buffer.size())) > 0) {
    partial.append(buffer.data(), static_cast<std::size_t>(count));
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = partial.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
      Take(partial.substr(begin, end - begin));
    }
    partial.erase(0, begin);
  }
}

void RACK_PROCESS::Take(const std::string& line) {
  constexpr std::string_view kIs = " = ";
  const std::lock_guard lock(m_mutex);
  if (line.ends_with(" ready")) {
    m_isReady = true;
  } else if (const std::size_t at = line.find(kIs); at != std::string::npos) {
    m_values[line.substr(0, at)] = line.substr(at + kIs.size());
  }
  m_changed.notify_all();
}

std::string RACK_PROCESS::Command(const std::string& line) const {
  const std::string response = CONNECTION(m_socketPath).Ask(line);
  if (!response.ends_with("OK\n") && !response.starts_with("error: ")) {
    throw std::runtime_error("the rack does not answer '" + line + "'");
  }
  return response;
}

void RACK_PROCESS::Order(const std::string& line) const {
  const std::string response = Command(line);
  if (!response.ends_with("OK\n")) {
    throw std::runtime_error("the rack refuses '" + line + "': " + response);
  }
}

bool RACK_PROCESS::WaitForValue(const std::string& name, const std::string& value,
                                std::chrono::milliseconds limit) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, limit, [&] { return m_values[name] == value; });
}

bool RACK_PROCESS::Running() {
  if (m_pid > 0 && waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
    m_pid = -1;
  }
  return m_pid > 0;
}

}  // namespace soak
