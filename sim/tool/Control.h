#pragma once

#include "sim/line/Descriptor.h"
#include "sim/rack/Result.h"
#include "sim/tool/LineBuffer.h"

#include <poll.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

namespace sim {

/// The control socket of a running rack: takes command lines from any number of clients up to a
/// limit and gives each the response that the command line would show. Belongs to the program's
/// thread and never waits: what a client does not read is kept for it up to a limit, then it is
/// dropped.
class CONTROL_SERVER {
 public:
  static constexpr std::size_t kMaximumClients = 32;
  static constexpr std::size_t kMaximumUnread = 1 << 20;

  /// Answers a command line with the whole response.
  using EXECUTE = std::function<std::string(const std::string& line)>;

  CONTROL_SERVER() = default;
  ~CONTROL_SERVER();
  CONTROL_SERVER(const CONTROL_SERVER&) = delete;
  CONTROL_SERVER& operator=(const CONTROL_SERVER&) = delete;

  /// Makes the socket, for this user only. A name that exists is refused.
  RESULT Listen(const std::string& path);

  /// Appends what poll must watch.
  void Watch(std::vector<pollfd>& watched) const;

  /// Does what poll found; watched as Watch left it, from its first own entry on.
  void Handle(const pollfd* watched, std::size_t count, const EXECUTE& execute);

  std::size_t Clients() const { return m_clients.size(); }

 private:
  struct CLIENT {
    DESCRIPTOR socket;
    LINE_BUFFER input;
    std::string output;
    bool ending = false;  // closed when the output is through
  };

  void Accept();
  /// False: the client is gone.
  static bool Read(CLIENT& client, const EXECUTE& execute);
  static bool Flush(CLIENT& client);

  DESCRIPTOR m_listener;
  std::string m_path;
  std::list<CLIENT> m_clients;
};

/// Sends one command line to the rack that listens at the path and prints what it says: to the
/// standard output, or for an error to the standard error. Returns an exit status: 0 good, 1 the
/// command's error, 2 nobody there or no answer.
int RunControlClient(const std::string& path, const std::vector<std::string>& words);

}  // namespace sim
