// A client's byte stream, split at will, both ways. The input: a byte of choices, then steps, each
// a byte (its low three bits count, so a seed has letters) and what belongs to it. No byte is lost,
// doubled or moved, whatever arrives in pieces and whatever is taken in pieces; and where what
// arrives runs together, as it does for a reader that is behind, a read that is full ends with a
// line.

#include "tests/fuzz/support/Check.h"
#include "tests/fuzz/support/Input.h"
#include "tests/fuzz/support/Sockets.h"
#include "tests/fuzz/support/System.h"
#include "vorn/base/Budget.h"
#include "vorn/tcp/SocketInterface.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <memory>
#include <string>
#include <utility>

namespace vorn {

namespace {

using fuzz::Require;

constexpr std::size_t kLongestSend = 256;
constexpr std::size_t kLongestRead = 255;
constexpr const char* kSeparator = "\r\n";
/// More than any input makes the worker need to come to rest.
constexpr int kMostPasses = 20000;

struct ROLE {
  const char* name;
  const char* greeting;
  std::size_t inputLimit;  // bytes of message, one more for each
};
constexpr std::array<ROLE, 4> kRoles = {{
    {"CAE", "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n", 4096},
    {"IO", "VORN IO interface is ready\r\n", 40960},
    {"MON", "VORN MON interface is ready\r\n", 4096},
    {"other", "", 4096},
}};

class NETWORK : public fuzz::SYSTEM, public fuzz::SOCKETS {
 public:
  explicit NETWORK(std::uint8_t choices)
      : m_role(kRoles.at(choices & 3U)),
        m_binary((choices & 4U) != 0),
        m_runsTogether((choices & 8U) != 0) {
    INTERFACE_DESCRIPTOR descriptor;
    descriptor.name = m_role.name;
    descriptor.port = 5000;
    m_worker = std::make_unique<SOCKET_INTERFACE>(descriptor, LOGGER(), m_input, *this);
    m_worker->SetTransferMode(m_binary ? kBinaryMode : kTextMode);
    Require(m_worker->Init() == 1, "it listens");
  }
  ~NETWORK() override {
    LetWorkersEnd();
    m_worker.reset();
  }
  NETWORK(const NETWORK&) = delete;
  NETWORK& operator=(const NETWORK&) = delete;

  void Step(fuzz::INPUT& input) {
    switch (input.Byte() & 7U) {
      case 1:  // a: arrives
        if (!m_left) {
          Arrive(input.Text(input.Byte()));
        }
        return;
      case 2:  // b: passes
        for (int i = input.Byte() % 100; i >= 0; --i) {
          Pass();
        }
        return;
      case 3:  // c: the master loop takes one
        return TakeInput();
      case 4:  // d: for the client
        return Queue(input.Text(input.Byte()));
      case 5:  // e: the client takes so much at a time
        m_takes = input.Byte() + 1U;
        return;
      case 6:  // f: it leaves
        m_left = true;
        return;
      case 7:  // g: it does not read any more
        m_stalled = true;
        return;
      default:  // h: the next connection fails
        m_refused = true;
        return;
    }
  }

  /// What waits reaches a client in the end.
  void Settle() {
    m_refused = false;
    m_takes = kLongestSend;
    const auto settled = [&] {
      return m_expected.empty() && m_segments.empty() && !m_left && !m_stalled &&
             m_worker->IsConnected();
    };
    for (int i = 0; i < kMostPasses && !settled(); ++i) {
      m_left = m_left || m_stalled;  // one that does not read is given up in the end
      Pass();
      TakeInput();
    }
    Require(m_expected.empty() && m_offset == 0, "all that waited is written");
    Require(m_worker->IsConnected(), "a client is served again");
    while (!m_input.IsEmpty()) {
      TakeInput();
    }
    Require(m_received.empty(), "all that was read is queued");
  }

 private:
  void Pass() { m_worker->OnTask(); }

  void Arrive(const std::string& text) {
    if (m_runsTogether && !m_segments.empty()) {
      m_segments.back() += text;
    } else if (!text.empty()) {
      m_segments.push_back(text);
    }
  }

  void Queue(const std::string& text) {
    m_worker->OutputQueue().ToQueue(fuzz::ListOf(text));
    m_expected.push_back(Wire(text));
  }

  /// A message as it goes over the line.
  std::string Wire(const std::string& text) const {
    if (!m_binary) {
      return text + '\r';
    }
    std::string wire;
    std::size_t at = 0;
    do {
      const std::string part = text.substr(at, 255);
      wire += static_cast<char>(part.size()) + part;
      at += part.size();
    } while (at < text.size());
    return wire;
  }

  void TakeInput() {
    if (m_input.IsEmpty()) {
      return;
    }
    const std::string message = fuzz::TextOf(m_input.DeQueue());
    if (m_received.empty()) {
      Expect(std::exchange(m_rest, {}));  // its time is over
    }
    Require(!m_received.empty() && message == m_received.front(), "a read is a message", message);
    m_received.pop_front();
  }

  bool Accept(int) override {
    if (m_refused) {
      m_refused = false;
      return false;
    }
    m_segments.clear();
    m_rest.clear();
    m_streams = false;
    m_left = false;
    m_stalled = false;
    if (m_role.greeting[0] != '\0') {
      m_expected.push_back(Wire(m_role.greeting));
    }
    return true;
  }

  bool IsReadable(int) override { return m_left || !m_segments.empty(); }
  bool HasLeft(int) override { return m_left; }

  ssize_t Peek(int, char*, std::size_t) override { return m_segments.empty() ? 0 : 1; }

  ssize_t Receive(int, char* bytes, std::size_t count) override {
    Require(m_input.Bytes() < m_role.inputLimit || m_left, "a client is held back");
    if (count == kLongestRead) {
      Expect(std::exchange(m_rest, {}));  // its time is over
    }
    Require(count == kLongestRead - m_rest.size(), "a message has room for 255");
    if (m_segments.empty()) {
      Expect(std::exchange(m_rest, {}));
      if (!m_expected.empty()) {
        m_expected.pop_front();  // the one whose write tells that the client has left
      }
      return 0;
    }
    std::string& segment = m_segments.front();
    const std::string read = segment.substr(0, count);
    std::copy(read.begin(), read.end(), bytes);
    segment.erase(0, read.size());
    if (segment.empty()) {
      m_segments.pop_front();
    }
    Take(read);
    return static_cast<ssize_t>(read.size());
  }

  /// What is read becomes a message; of 255 bytes, what ends with a line. What ends in mid-line
  /// soon after such a read may wait.
  void Take(const std::string& read) {
    m_rest += read;
    const std::size_t last = m_rest.rfind(kSeparator);
    if (!m_binary && m_rest.size() == kLongestRead) {
      const std::size_t end = last == std::string::npos ? kLongestRead : last + 2;
      Expect(m_rest.substr(0, end));
      m_rest.erase(0, end);
      m_streams = true;
    } else if (m_binary || !m_streams || (last != std::string::npos && last + 2 == m_rest.size())) {
      Expect(std::exchange(m_rest, {}));
    }
  }

  void Expect(const std::string& message) {
    if (!message.empty() && m_role.name != std::string("MON")) {
      m_received.push_back(m_binary ? message.substr(1, static_cast<std::uint8_t>(message[0]))
                                    : message.substr(0, message.find('\0')));
    }
  }

  ssize_t Send(int, const char* bytes, std::size_t count) override {
    Require(count > 0 && count <= kLongestSend, "a write is of at most 256");
    Require(!m_expected.empty(), "nothing is written that was not queued");
    const std::string& message = m_expected.front();
    Require(message.compare(m_offset, count, bytes, count) == 0, "what is written was queued, once",
            std::string(bytes, count));
    if (m_left || m_stalled) {
      m_expected.pop_front();  // lost with the client
      m_offset = 0;
      errno = m_left ? EPIPE : EAGAIN;
      return -1;
    }
    const std::size_t taken = std::min(count, m_takes);
    m_offset += taken;
    if (m_offset == message.size()) {
      m_expected.pop_front();
      m_offset = 0;
    }
    return static_cast<ssize_t>(taken);
  }

  const ROLE m_role;
  const bool m_binary;
  const bool m_runsTogether;
  std::deque<std::string> m_segments;  // on their way to the worker
  std::deque<std::string> m_received;  // to be queued by it
  std::string m_rest;                  // read by it and, perhaps, kept for the next message
  bool m_streams = false;              // there was a full read
  std::deque<std::string> m_expected;  // to be written by it
  std::size_t m_offset = 0;            // of the first of them, so much is
  std::size_t m_takes = kLongestSend;
  bool m_left = false;
  bool m_stalled = false;
  bool m_refused = false;
  VOQUEUE m_input;
  std::unique_ptr<SOCKET_INTERFACE> m_worker;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::INPUT input(data, size);
  NETWORK network(input.Byte());
  while (!input.IsEmpty()) {
    network.Step(input);
  }
  network.Settle();
  return 0;
}

}  // namespace vorn
