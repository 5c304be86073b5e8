// A whole session of the daemon: its master loop and its four workers, the bus, three clients, and
// a clock that runs by itself. The input is a script, a step on each line; see SESSION::Step. What
// each client receives is made of the documented messages of its own interface, the bus gets whole
// requests, and when the faults are over the daemon answers and stops, with everything closed.

#include "tests/fuzz/SessionMessages.h"
#include "tests/fuzz/support/Bus.h"
#include "tests/fuzz/support/Input.h"
#include "tests/fuzz/support/Rack.h"
#include "tests/fuzz/support/Sockets.h"
#include "vorn/base/Budget.h"
#include "vorn/bus/SerialInterface.h"
#include "vorn/master/Vorn.h"
#include "vorn/tcp/SocketInterface.h"

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

namespace {

using fuzz::Require;

constexpr int kCae = 5000;
constexpr int kIo = 5001;
constexpr int kMon = 5002;

constexpr std::string_view kConfiguration =
    R"(<VORNConfig>
<Speed Percent="100"/><InitPollState Action="TRUE"/><AutoDiscover Action="TRUE"/>
<Interfaces>
<Interface Name="CAE" Port="5000"/><Interface Name="IO" Port="5001"/><Interface Name="MON" Port="5002"/>
</Interfaces>
</VORNConfig>)";

constexpr std::int64_t kSecond = 1'000'000'000;
/// Passes of each worker in a second's pause of the master loop.
constexpr int kPassesInASecond = 12;
/// A reply that does not come costs 150000 reads: a session may have one.
constexpr int kMostSilences = 1;
constexpr std::size_t kMostSteps = 300;
/// For the daemon to answer again: it works off one line each pass, and each of 64 may be HELP.
constexpr int kMostPassesToAnAnswer = 40000;
/// Passes after which a question that may have gone down with its connection is put again.
constexpr int kPassesBetweenQuestions = 400;

/// The configuration, in memory: one file for all runs.
std::string ConfigurationPath() {
  static const int kFile = [] {
    const int descriptor = memfd_create("configuration", MFD_CLOEXEC);
    Require(write(descriptor, kConfiguration.data(), kConfiguration.size()) ==
                static_cast<ssize_t>(kConfiguration.size()),
            "there is a configuration");
    return descriptor;
  }();
  return "/proc/self/fd/" + std::to_string(kFile);
}

/// "\r", "\n" and "\xHH" of a step become the bytes that they stand for.
std::string Unescaped(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char next = i + 1 < text.size() ? text[i + 1] : '\0';
    if (text[i] != '\\' || (next != 'r' && next != 'n' && next != 'x')) {
      bytes += text[i];
      continue;
    }
    ++i;
    if (next == 'x') {
      bytes += static_cast<char>(HexNum2Byte(i + 1 < text.size() ? text[i + 1] : '0',
                                             i + 2 < text.size() ? text[i + 2] : '0'));
      i += 2;
    } else {
      bytes += next == 'r' ? '\r' : '\n';
    }
  }
  return bytes;
}

// --- the session --------------------------------------------------------------------------------

class SESSION : public fuzz::BUS, public fuzz::SOCKETS {
 public:
  explicit SESSION(fuzz::INPUT input) {
    std::string script = input.Rest();
    for (std::size_t end = 0; !script.empty() && m_steps.size() < kMostSteps;) {
      end = std::min(script.find('\n'), script.size());
      m_steps.push_back(script.substr(0, end));
      script.erase(0, end + 1);
    }
    m_daemon = std::make_unique<VORN>(m_signal, *this, *this, ConfigurationPath());
    Require(m_daemon->InitProgramData(), "the configuration is good");
    m_daemon->InitInterfaces();
    Require(Workers().size() == 4, "there are four workers");
    m_serial = dynamic_cast<SERIAL_INTERFACE*>(Workers().back());
  }
  ~SESSION() override {
    LetWorkersEnd();
    m_daemon.reset();
  }
  SESSION(const SESSION&) = delete;
  SESSION& operator=(const SESSION&) = delete;

  void Run() {
    m_running = true;
    m_daemon->MasterThread();
    m_running = false;
    Require(m_answered, "it answers when the faults are over");
    for (auto& [port, client] : m_clients) {
      RequireReceived(port, client.received);
    }
  }

 private:
  struct CLIENT {
    bool waiting = false;  // for accept
    bool served = false;
    bool left = false;
    bool reset = false;
    bool stalled = false;
    std::deque<std::string> segments;
    fuzz::RECEIVED received;
  };

  // --- the clock ---

  /// All that happens elsewhere happens in a pause of the master loop; the pauses of workers only
  /// take time.
  void Pause(std::int64_t nanoseconds) override {
    if (!m_running || m_inPass) {
      return;
    }
    if (nanoseconds >= kSecond) {
      for (int i = 0; i < kPassesInASecond; ++i) {
        PassOfWorkers();
      }
      return;
    }
    PassOfWorkers();
    if (!m_steps.empty()) {
      const std::string step = m_steps.front();
      m_steps.pop_front();
      Step(step);
    } else {
      Settle();
    }
  }

  void PassOfWorkers() {
    m_inPass = true;
    for (CThread* const worker : Workers()) {
      if (MayRun(*worker)) {
        Require(worker->OnTask(), "a worker goes on");
      }
    }
    m_inPass = false;
    for (std::size_t number = 0; number < SERIAL_INTERFACE::kBusQueues; ++number) {
      // A message's commands may go over the mark.
      Require(m_serial->BusQueue(number).Bytes() <= BytesAt(MARK::kBusIsBehind) + 1024,
              "the bus is not behind without a bound");
    }
  }

  /// A worker that listens is blocked until a client comes.
  bool MayRun(const CThread& worker) {
    const auto* const socket = dynamic_cast<const SOCKET_INTERFACE*>(&worker);
    if (socket == nullptr || socket->State() != kListening) {
      return true;
    }
    const auto number = std::find(Workers().begin(), Workers().end(), &worker) - Workers().begin();
    return m_clients[kCae + static_cast<int>(number)].waiting;
  }

  // --- the script ---

  /// C, I, M and a text: the client of CAE, IO or MON connects unless it has, and sends it. c, i,
  /// m: it leaves; with a text behind: by a reset. X, Y, Z: it stops reading; x, y, z: it goes on.
  /// B and bytes: the bus's next answer, as it stands. b: no answer. U: the adapter is pulled, P:
  /// it is back. T and a character: the rack's cards are exchanged. D and bytes: what input cards
  /// say from now on.
  void Step(const std::string& step) {
    if (step.empty()) {
      return;
    }
    const std::string rest = Unescaped(std::string_view(step).substr(1));
    switch (step[0]) {
      case 'C':
        return ClientSends(kCae, rest);
      case 'I':
        return ClientSends(kIo, rest);
      case 'M':
        return ClientSends(kMon, rest);
      case 'c':
        return ClientLeaves(kCae, !rest.empty());
      case 'i':
        return ClientLeaves(kIo, !rest.empty());
      case 'm':
        return ClientLeaves(kMon, !rest.empty());
      case 'X':
      case 'Y':
      case 'Z':
        m_clients[kCae + (step[0] - 'X')].stalled = true;
        return;
      case 'x':
      case 'y':
      case 'z':
        m_clients[kCae + (step[0] - 'x')].stalled = false;
        return;
      case 'B':
        m_replies.push_back(rest);
        return;
      case 'b':
        m_replies.emplace_back();
        return;
      case 'U':
        m_pulled = ++m_silences <= kMostSilences;
        return;
      case 'P':
        m_pulled = false;
        return;
      case 'T':
        m_turn = static_cast<std::uint8_t>(rest.empty() ? 0 : rest[0]);
        return;
      case 'D':
        m_inputs = rest + std::string(6, '\0');
        return;
      default:
        return;
    }
  }

  /// The script is over: all is well again, and the daemon must answer. Then it is told to stop.
  void Settle() {
    m_pulled = false;
    m_replies.clear();
    for (auto& [port, client] : m_clients) {
      client.stalled = false;
    }
    const CLIENT& client = m_clients[kCae];
    if (m_settling % kPassesBetweenQuestions == 0) {
      m_askedAt = client.received.bytes.size();
      ClientSends(kCae, "DRVVER\r\n");
    }
    ++m_settling;
    m_answered = client.received.bytes.find("CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r",
                                            std::min(m_askedAt, client.received.bytes.size())) !=
                     std::string::npos &&
                 m_serial->LinkStatus() == kControllerFound;
    if (m_answered || m_settling > kMostPassesToAnAnswer) {
      m_signal = SIGTERM;
    }
  }

  // --- the clients ---

  void ClientSends(int port, const std::string& text) {
    CLIENT& client = m_clients[port];
    if (!client.waiting && !client.served) {
      client.segments.clear();
      client.waiting = true;
      client.left = false;
      client.reset = false;
    }
    if (!text.empty() && !client.left) {
      client.segments.push_back(text);
    }
  }

  void ClientLeaves(int port, bool reset) {
    CLIENT& client = m_clients[port];
    client.left = true;
    client.reset = reset;
  }

  bool Accept(int port) override {
    CLIENT& client = m_clients[port];
    Require(!client.served, "one client at a time");
    RequireReceived(port, client.received);
    client.received = {};
    client.served = client.waiting;
    client.waiting = false;
    return client.served;
  }

  bool IsReadable(int port) override {
    return m_clients[port].left || !m_clients[port].segments.empty();
  }
  bool HasLeft(int port) override { return m_clients[port].left; }
  void OnClosed(int port) override { m_clients[port].served = false; }

  ssize_t Peek(int port, char*, std::size_t) override {
    return m_clients[port].segments.empty() ? 0 : 1;
  }

  ssize_t Receive(int port, char* bytes, std::size_t count) override {
    CLIENT& client = m_clients[port];
    if (client.reset) {
      errno = ECONNRESET;
      return -1;
    }
    if (client.segments.empty()) {
      return 0;
    }
    std::string& segment = client.segments.front();
    const std::string read = segment.substr(0, count);
    std::copy(read.begin(), read.end(), bytes);
    segment.erase(0, read.size());
    if (segment.empty()) {
      client.segments.pop_front();
    }
    if (port == kIo) {
      m_ioBytes += read;
    }
    return static_cast<ssize_t>(read.size());
  }

  ssize_t Send(int port, const char* bytes, std::size_t count) override {
    CLIENT& client = m_clients[port];
    if (client.left || client.stalled) {
      client.received.torn = true;
      errno = client.left ? EPIPE : EAGAIN;
      return -1;
    }
    client.received.bytes.append(bytes, count);
    return static_cast<ssize_t>(count);
  }

  void RequireReceived(int port, const fuzz::RECEIVED& received) const {
    switch (port) {
      case kCae:
        return fuzz::RequireAnswers(received);
      case kIo:
        return fuzz::RequireInputs(received);
      default:
        return fuzz::RequireCopies(received, m_ioBytes);
    }
  }

  // --- the bus ---

  std::list<std::string> Search() override {
    return m_pulled ? std::list<std::string>() : BUS::Search();
  }
  bool Open(const std::string& path) override { return !m_pulled && BUS::Open(path); }
  ssize_t Write(const std::uint8_t* bytes, std::size_t count) override {
    if (m_pulled) {
      errno = EIO;
      return -1;
    }
    return BUS::Write(bytes, count);
  }
  ssize_t Read(std::uint8_t* bytes, std::size_t count) override {
    if (m_pulled) {
      errno = EIO;
      return -1;
    }
    return BUS::Read(bytes, count);
  }

  void Answer(const std::string& body) override {
    if (!m_replies.empty()) {
      const std::string reply = m_replies.front();
      m_replies.pop_front();
      const bool whole = !reply.empty() && reply.size() > static_cast<std::uint8_t>(reply[0]);
      if (whole || ++m_silences <= kMostSilences) {
        return Reply(reply);
      }
    }
    switch (body[0]) {
      case '@':
        return Reply(Frame("o1.07"));
      case '0': {
        std::string cards;
        for (std::size_t i = 0; i < bus::kAddresses; ++i) {
          cards += static_cast<char>(fuzz::CardAt(i, m_turn));
        }
        return Reply(Frame("1" + cards));
      }
      case ' ':
        return Reply(Frame("!" + body.substr(1, 1) +
                           m_inputs.substr(0, static_cast<std::uint8_t>(body[2]))));
      case 'P':
        return Reply(Frame("Q" + body.substr(1, 1) + body.substr(3, 1) + "\x2A"));
      default:
        return Reply(Frame("A"));
    }
  }

  SIGNAL_FLAG m_signal{kNoSignal};
  std::deque<std::string> m_steps;
  std::map<int, CLIENT> m_clients;
  std::string m_ioBytes;  // all that IO has sent
  std::deque<std::string> m_replies;
  std::string m_inputs = std::string(6, '\0');
  std::uint8_t m_turn = 0;
  int m_silences = 0;
  bool m_pulled = false;
  bool m_running = false;
  bool m_inPass = false;
  bool m_answered = false;
  int m_settling = 0;
  std::size_t m_askedAt = 0;
  SERIAL_INTERFACE* m_serial = nullptr;
  std::unique_ptr<VORN> m_daemon;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SESSION session(fuzz::INPUT(data, size));
  session.Run();
  return 0;
}

}  // namespace vorn
