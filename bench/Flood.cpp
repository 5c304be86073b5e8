// Floods interfaces of the daemon on the loopback interface, for script/measure.
//
// usage: flood SECONDS PORT TRAFFIC MANNER [PORT TRAFFIC MANNER]...
//
// For each PORT one client at a time, which connects again whenever its connection ends:
//   TRAFFIC  commands   for every card, good, refused and for cards that are not there
//            questions  an operator's: long answers, refused lines, one that waits for a card
//            endless    one line without an end
//            bytes      lines of one byte, each byte in a write of its own
//            nothing    it only connects
//   MANNER   reads      what comes, all the time
//            deaf       never reads
//            visits     leaves after half a second, for the next one to come
//
// At the end it prints a line for each: the port, the bytes that were sent to it, the connections.

#include "sim/line/Descriptor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using CLOCK = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr milliseconds kVisit{500};
constexpr milliseconds kBeforeNextTry{100};
constexpr milliseconds kLook{100};
/// Shorter, and two bytes would share a read, also where the daemon's loops are as fast as may be.
constexpr microseconds kBetweenBytes{100};

// --- what is sent -------------------------------------------------------------------------------

std::string Line(const std::string& text) {
  return text + "\r\n";
}

/// A line that shares no read with another line: a read takes 255 bytes.
std::string LongLine(char filling) {
  return Line(std::string(250, filling));
}

std::string Commands() {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (int turn = 0; turn < 16; ++turn) {
    const std::string value = {kDigits[turn], kDigits[15 - turn]};
    for (const char card : std::string_view(kDigits)) {
      text += Line(std::string("a") + card + "b1d" + value);
      text += Line(std::string("a") + card + "l" + (turn % 2 == 0 ? "LO" : "LF"));
    }
    text += Line("aElPAp0001tturn " + value);
    text += Line("a9sHS434F434B524F414348" + value);
    text += Line("nonsense");
    text += Line("a5b1");
    text += LongLine('a');
  }
  return text;
}

/// Long lines between them keep the others in reads of their own, as commands must be.
std::string Questions() {
  std::string text;
  for (const char* question : {"HELP", "DISCOVER", "HELP", "POLLSTATE", "HELP", "IOEXAMPLES",
                               "HELP", "GETLASTINPST:F=3", "HELP", "DRVVER", "NONSENSE"}) {
    for (int i = 0; i < 4; ++i) {
      text += LongLine('q') + Line(question);
    }
  }
  return text + LongLine('q') + Line("GETANMASK:F");
}

struct TRAFFIC {
  const char* word;
  std::string (*text)();
  std::size_t piece;  // bytes a write
};
constexpr std::size_t kWhole = 65536;
constexpr TRAFFIC kTraffic[] = {
    {"commands", Commands, kWhole},
    {"questions", Questions, kWhole},
    {"endless", [] { return std::string(kWhole, 'e'); }, kWhole},
    {"bytes", [] { return Line("x"); }, 1},
    {"nothing", [] { return std::string(); }, 0},
};

struct MANNER {
  const char* word;
  bool reads;
  bool leaves;
};
constexpr MANNER kManners[] = {
    {"reads", true, false}, {"deaf", false, false}, {"visits", false, true}};

// --- a client -----------------------------------------------------------------------------------

/// One after the other of one port's clients, on a thread of its own.
class VISITORS {
 public:
  VISITORS(int port, const TRAFFIC& traffic, const MANNER& manner)
      : m_port(port), m_traffic(traffic), m_manner(manner), m_text(traffic.text()) {}

  void Start(CLOCK::time_point end) {
    m_end = end;
    m_thread = std::thread([this] { Run(); });
  }
  void Join() { m_thread.join(); }
  /// After Join.
  void Report() const { std::printf("%d %zu %d\n", m_port, m_sent, m_connections); }

 private:
  void Run() {
    while (CLOCK::now() < m_end) {
      if (const sim::DESCRIPTOR client = Connect(); client) {
        ++m_connections;
        Serve(client.Get());
      }
      std::this_thread::sleep_for(kBeforeNextTry);
    }
  }

  sim::DESCRIPTOR Connect() const {
    sim::DESCRIPTOR client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!m_manner.reads) {
      // The kernel is to take as little as possible of what this client does not read.
      const int segmentSize = 536;
      const int bufferSize = 2048;
      setsockopt(client.Get(), IPPROTO_TCP, TCP_MAXSEG, &segmentSize, sizeof segmentSize);
      setsockopt(client.Get(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
    }
    const int on = 1;
    setsockopt(client.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(m_port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (client.Get() < 0 ||
        connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      client.Close();
    }
    return client;
  }

  /// Up to the connection's end, the visit's or that of the flood.
  void Serve(int client) {
    const CLOCK::time_point end = m_manner.leaves ? std::min(m_end, CLOCK::now() + kVisit) : m_end;
    std::size_t at = 0;
    while (CLOCK::now() < end) {
      const auto events = static_cast<short>(POLLRDHUP | (m_manner.reads ? POLLIN : 0) |
                                             (m_text.empty() ? 0 : POLLOUT));
      pollfd state = {client, events, 0};
      poll(&state, 1, static_cast<int>(kLook.count()));
      if ((state.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        return;
      }
      if ((state.revents & POLLIN) != 0) {
        Read(client);
      }
      if ((state.revents & POLLOUT) != 0) {
        at = Send(client, at);
      }
    }
    Read(client);  // a connection that is closed over unread bytes is reset
  }

  static void Read(int client) {
    char buffer[65536];
    while (recv(client, buffer, sizeof buffer, MSG_DONTWAIT) > 0) {
    }
  }

  /// From that place of the text on; the place to go on from.
  std::size_t Send(int client, std::size_t at) {
    const std::size_t size = std::min(m_traffic.piece, m_text.size() - at);
    const ssize_t count = send(client, m_text.data() + at, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (m_traffic.piece == 1) {
      std::this_thread::sleep_for(kBetweenBytes);
    }
    if (count <= 0) {
      return at;
    }
    m_sent += static_cast<std::size_t>(count);
    return (at + static_cast<std::size_t>(count)) % m_text.size();
  }

  const int m_port;
  const TRAFFIC& m_traffic;
  const MANNER& m_manner;
  const std::string m_text;
  CLOCK::time_point m_end{};
  std::size_t m_sent = 0;  // bytes
  int m_connections = 0;
  std::thread m_thread;
};

// --- the command line ---------------------------------------------------------------------------

int Usage() {
  std::fputs("usage: flood SECONDS PORT TRAFFIC MANNER [PORT TRAFFIC MANNER]...\n", stderr);
  return 2;
}

/// 0 for what is no number above 0.
int Number(std::string_view word) {
  int value = 0;
  const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  return error == std::errc() && stop == word.data() + word.size() && value > 0 ? value : 0;
}

template <class ROW, std::size_t SIZE>
const ROW* Find(const ROW (&rows)[SIZE], std::string_view word) {
  const auto* const row =
      std::find_if(rows, rows + SIZE, [&](const ROW& each) { return word == each.word; });
  return row == rows + SIZE ? nullptr : row;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string_view> words(argv + 1, argv + argc);
  if (words.size() < 4 || words.size() % 3 != 1 || Number(words[0]) == 0) {
    return Usage();
  }
  std::vector<VISITORS> clients;
  clients.reserve(words.size() / 3);
  for (std::size_t i = 1; i < words.size(); i += 3) {
    const int port = Number(words[i]);
    const TRAFFIC* const traffic = Find(kTraffic, words[i + 1]);
    const MANNER* const manner = Find(kManners, words[i + 2]);
    if (port == 0 || port > UINT16_MAX || traffic == nullptr || manner == nullptr) {
      return Usage();
    }
    clients.emplace_back(port, *traffic, *manner);
  }
  const CLOCK::time_point end = CLOCK::now() + std::chrono::seconds(Number(words[0]));
  for (VISITORS& client : clients) {
    client.Start(end);
  }
  for (VISITORS& client : clients) {
    client.Join();
    client.Report();
  }
  return 0;
}
