// The stub: what the daemon would be if nothing ever went wrong and nobody asked anything. One
// epoll loop that polls digital input cards, sends block and IR commands on to their cards, and
// tells the client what has changed. One request is on its way at a time; a command goes before the
// next poll. No time-out, no refusal, no pause.
//
// usage: bench_stub PORT DEVICE CARDS
//
// Polls the cards at 0 to CARDS - 1. Serves one client, and ends when that has left.

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <initializer_list>
#include <string>

namespace {

using std::uint8_t;
using FRAME = std::basic_string<uint8_t>;

struct STUB {
  int client = -1;
  int device = -1;
  std::size_t cards = 0;
  std::size_t nextCard = 0;
  bool isAwaitingReply = false;
  std::string text;           // from the client, up to a whole line
  FRAME reply;                // from the line, up to a whole frame
  std::deque<FRAME> waiting;  // for the line
  std::array<std::array<uint8_t, 2>, 16> inputs{};
  std::array<std::array<uint8_t, 6>, 16> blocks{};
};

int Digit(char character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  return character >= 'A' && character <= 'F' ? character - 'A' + 10 : 0;
}

uint8_t TwoDigits(const char* text) {
  return static_cast<uint8_t>(Digit(text[0]) * 16 + Digit(text[1]));
}

/// "a5b1dFB", of which the card gets all its six blocks, and "a9sHS0102".
void TakeCommand(STUB& stub, const std::string& line) {
  if (line.size() < 7) {
    return;
  }
  const auto card = static_cast<uint8_t>(Digit(line[1]));
  FRAME data;
  if (line[2] == 'b') {
    std::array<uint8_t, 6>& blocks = stub.blocks.at(card);
    blocks.at(static_cast<std::size_t>(Digit(line[3]) % 6)) = TwoDigits(&line[5]);
    data.assign(blocks.begin(), blocks.end());
  } else {
    for (std::size_t at = 5; at + 1 < line.size(); at += 2) {
      data += TwoDigits(&line[at]);
    }
    data.insert(data.begin(), static_cast<uint8_t>(data.size()));
  }
  const FRAME frame = {static_cast<uint8_t>(data.size() + 3), 0x10, card,
                       static_cast<uint8_t>(data.size())};
  stub.waiting.push_back(frame + data);
}

/// The next request, if the line is free for one.
bool Ask(STUB& stub) {
  if (stub.isAwaitingReply) {
    return true;
  }
  FRAME frame;
  if (!stub.waiting.empty()) {
    frame = stub.waiting.front();
    stub.waiting.pop_front();
  } else if (stub.cards > 0) {
    frame = {3, 0x20, static_cast<uint8_t>(stub.nextCard), 2};
    stub.nextCard = (stub.nextCard + 1) % stub.cards;
  } else {
    return true;
  }
  stub.isAwaitingReply = true;
  return write(stub.device, frame.data(), frame.size()) == static_cast<ssize_t>(frame.size());
}

bool ReadClient(STUB& stub) {
  std::array<char, 4096> buffer;  // NOLINT: filled by read
  const ssize_t size = read(stub.client, buffer.data(), buffer.size());
  if (size <= 0) {
    return false;
  }
  stub.text.append(buffer.data(), static_cast<std::size_t>(size));
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = stub.text.find("\r\n", begin)) != std::string::npos;) {
    TakeCommand(stub, stub.text.substr(begin, end - begin));
    begin = end + 2;
  }
  stub.text.erase(0, begin);
  return true;
}

bool TellChanges(STUB& stub, const FRAME& frame) {
  const std::size_t card = frame[2] & 0x0FU;
  for (std::size_t block = 0; block < 2; ++block) {
    const uint8_t value = frame[3 + block];
    if (value == stub.inputs.at(card).at(block)) {
      continue;
    }
    stub.inputs.at(card).at(block) = value;
    std::array<char, 24> line{};
    const int size =
        std::snprintf(line.data(), line.size(), "a%Xb%Xd%02X\r\n\r", static_cast<unsigned>(card),
                      static_cast<unsigned>(block), static_cast<unsigned>(value));
    if (write(stub.client, line.data(), static_cast<std::size_t>(size)) != size) {
      return false;
    }
  }
  return true;
}

bool ReadLine(STUB& stub) {
  std::array<uint8_t, 256> buffer;  // NOLINT: filled by read
  const ssize_t size = read(stub.device, buffer.data(), buffer.size());
  if (size <= 0) {
    return false;
  }
  stub.reply.append(buffer.data(), static_cast<std::size_t>(size));
  if (stub.reply.size() < stub.reply[0] + std::size_t{1}) {
    return true;
  }
  const FRAME frame = stub.reply;
  stub.reply.clear();
  stub.isAwaitingReply = false;
  // The line is kept busy first: the client does not wait any longer for that.
  return Ask(stub) && (frame.size() < 5 || frame[1] != 0x21 || TellChanges(stub, frame));
}

bool OpenDevice(STUB& stub, const char* path) {
  stub.device = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings{};
  if (stub.device < 0 || tcgetattr(stub.device, &settings) != 0) {
    return false;
  }
  cfmakeraw(&settings);
  return tcsetattr(stub.device, TCSANOW, &settings) == 0;
}

bool AcceptClient(STUB& stub, const char* port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(std::strtol(port, nullptr, 10)));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listener < 0 ||
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 1) != 0) {
    return false;
  }
  stub.client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  setsockopt(stub.client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return stub.client >= 0;
}

int Serve(STUB& stub) {
  const int events = epoll_create1(EPOLL_CLOEXEC);
  for (const int each : {stub.client, stub.device}) {
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.fd = each;
    epoll_ctl(events, EPOLL_CTL_ADD, each, &wanted);
  }
  while (Ask(stub)) {
    std::array<epoll_event, 2> ready{};
    const int count = epoll_wait(events, ready.data(), static_cast<int>(ready.size()), -1);
    for (int i = 0; i < count; ++i) {
      const bool isClient = ready.at(static_cast<std::size_t>(i)).data.fd == stub.client;
      if (!(isClient ? ReadClient(stub) : ReadLine(stub))) {
        return 0;
      }
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: bench_stub PORT DEVICE CARDS\n", stderr);
    return 2;
  }
  STUB stub;
  stub.cards = static_cast<std::size_t>(std::strtol(argv[3], nullptr, 10));
  if (stub.cards > 16 || !OpenDevice(stub, argv[2]) || !AcceptClient(stub, argv[1])) {
    std::perror("bench_stub");
    return 1;
  }
  return Serve(stub);
}
