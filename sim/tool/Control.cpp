#include "sim/tool/Control.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace sim {

namespace {

std::string ErrorText(int number) {
  return std::generic_category().message(number);
}

/// False when the path does not fit.
bool SetPath(sockaddr_un& address, const std::string& path) {
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    return false;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return true;
}

const sockaddr* Generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

/// A word as it must be written in a command line.
std::string Quoted(const std::string& word) {
  return word.empty() || word.find_first_of(" \t") != std::string::npos ? '"' + word + '"' : word;
}

}  // namespace

CONTROL_SERVER::~CONTROL_SERVER() {
  for (CLIENT& client : m_clients) {
    Flush(client);
  }
  if (m_listener) {
    unlink(m_path.c_str());
  }
}

RESULT CONTROL_SERVER::Listen(const std::string& path) {
  sockaddr_un address{};
  if (!SetPath(address, path)) {
    return RESULT::Error("cannot listen at '" + path + "': the name must have 1 to 107 characters");
  }
  DESCRIPTOR listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const mode_t before = umask(S_IRWXG | S_IRWXO);
  const bool bound = listener && bind(listener.Get(), Generic(address), sizeof address) == 0;
  const int error = errno;
  umask(before);
  if (!bound) {
    std::string why = "cannot listen at " + path + ": " + ErrorText(error);
    if (error == EADDRINUSE) {
      why += " (if no vornsim runs there any more, remove it)";
    }
    return RESULT::Error(why);
  }
  m_listener = std::move(listener);
  m_path = path;
  if (listen(m_listener.Get(), SOMAXCONN) != 0) {
    return RESULT::Error("cannot listen at " + path + ": " + ErrorText(errno));
  }
  return RESULT::Good();
}

void CONTROL_SERVER::Watch(std::vector<pollfd>& watched) const {
  if (!m_listener) {
    return;
  }
  watched.push_back({m_clients.size() < kMaximumClients ? m_listener.Get() : -1, POLLIN, 0});
  for (const CLIENT& client : m_clients) {
    const auto events =
        static_cast<short>((client.ending ? 0 : POLLIN) | (client.output.empty() ? 0 : POLLOUT));
    watched.push_back({client.socket.Get(), events, 0});
  }
}

void CONTROL_SERVER::Handle(const pollfd* watched, std::size_t count, const EXECUTE& execute) {
  if (!m_listener || count == 0) {
    return;
  }
  std::size_t at = 1;
  for (auto client = m_clients.begin(); client != m_clients.end() && at < count; ++at) {
    const short events = watched[at].revents;
    bool alive = true;
    if ((events & POLLIN) != 0 && !client->ending) {
      alive = Read(*client, execute);
    } else if ((events & (POLLHUP | POLLERR)) != 0) {
      alive = false;
    }
    alive = alive && Flush(*client);
    client = alive ? std::next(client) : m_clients.erase(client);
  }
  if (watched[0].revents != 0) {
    Accept();
  }
}

void CONTROL_SERVER::Accept() {
  DESCRIPTOR socket(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket) {
    m_clients.push_back({std::move(socket), {}, {}, false});
  }
}

bool CONTROL_SERVER::Read(CLIENT& client, const EXECUTE& execute) {
  std::array<char, 4096> buffer{};
  const ssize_t count = recv(client.socket.Get(), buffer.data(), buffer.size(), 0);
  if (count < 0) {
    return errno == EAGAIN || errno == EINTR;
  }
  const bool ended = count == 0;
  const auto lines = ended ? client.input.Finish()
                           : client.input.Feed({buffer.data(), static_cast<std::size_t>(count)});
  for (const LINE_BUFFER::LINE& line : lines) {
    if (line.tooLong) {
      client.output += "error: the line is too long\n";
      client.ending = true;
      return true;
    }
    client.output += execute(line.text);
  }
  client.ending = client.ending || ended;
  return true;
}

bool CONTROL_SERVER::Flush(CLIENT& client) {
  while (!client.output.empty()) {
    const ssize_t count = send(client.socket.Get(), client.output.data(), client.output.size(),
                               MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0 && errno == EAGAIN) {
      return client.output.size() <= kMaximumUnread;
    }
    if (count < 0) {
      return false;
    }
    client.output.erase(0, static_cast<std::size_t>(count));
  }
  return !client.ending;
}

int RunControlClient(const std::string& path, const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    if (word.find_first_of("\n\"") != std::string::npos) {
      std::fputs("error: a command is one line, and no word of it holds a double quote\n", stderr);
      return 1;
    }
  }
  constexpr time_t kPatienceSeconds = 10;
  const auto fail = [&path](int error) {
    std::fprintf(stderr, "vornsim: no rack answers at %s: %s\n", path.c_str(),
                 ErrorText(error).c_str());
    return 2;
  };
  sockaddr_un address{};
  if (!SetPath(address, path)) {
    return fail(ENAMETOOLONG);
  }
  const DESCRIPTOR peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (peer.Get() < 0) {
    return fail(errno);
  }
  const timeval patience{kPatienceSeconds, 0};
  setsockopt(peer.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(peer.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (connect(peer.Get(), Generic(address), sizeof address) != 0) {
    return fail(errno);
  }
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + Quoted(word);
  }
  line += '\n';
  if (send(peer.Get(), line.data(), line.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(line.size())) {
    return fail(errno);
  }
  shutdown(peer.Get(), SHUT_WR);
  std::string response;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = recv(peer.Get(), buffer.data(), buffer.size(), 0)) > 0) {
    response.append(buffer.data(), static_cast<std::size_t>(count));
  }
  constexpr std::string_view kError = "error: ";
  constexpr std::string_view kGood = "OK\n";
  if (response.starts_with(kError)) {
    std::fputs(response.c_str(), stderr);
    return 1;
  }
  if (count < 0 || !response.ends_with(kGood)) {
    return fail(count < 0 ? errno : ECONNRESET);
  }
  std::fputs(response.c_str(), stdout);
  return 0;
}

}  // namespace sim
