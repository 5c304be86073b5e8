// The floor: what a machine takes at least to carry bytes between a TCP client and a serial line. A
// bare relay, written as in C: it waits in epoll, and hands on what has come, in both directions.
//
// usage: bench_relay PORT DEVICE
//
// Serves one client, and ends when that has left.

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

[[noreturn]] void RelayFailed(const char* what) {
  perror(what);
  exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fputs("usage: bench_relay PORT DEVICE\n", stderr);
    return 2;
  }
  const int device = open(argv[2], O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings;
  if (device < 0 || tcgetattr(device, &settings) != 0) {
    RelayFailed(argv[2]);
  }
  cfmakeraw(&settings);
  tcsetattr(device, TCSANOW, &settings);

  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(strtol(argv[1], nullptr, 10)));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listener < 0 ||
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 1) != 0) {
    RelayFailed("listen");
  }
  const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) {
    RelayFailed("accept");
  }
  setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);

  const int events = epoll_create1(EPOLL_CLOEXEC);
  const int ends[2] = {client, device};
  for (const int end : ends) {
    epoll_event wanted = {};
    wanted.events = EPOLLIN;
    wanted.data.fd = end;
    epoll_ctl(events, EPOLL_CTL_ADD, end, &wanted);
  }
  for (;;) {
    epoll_event ready[2];
    const int count = epoll_wait(events, ready, 2, -1);
    for (int i = 0; i < count; ++i) {
      const int from = ready[i].data.fd;
      char buffer[4096];
      const ssize_t size = read(from, buffer, sizeof buffer);
      if (size <= 0 ||
          write(from == client ? device : client, buffer, static_cast<size_t>(size)) != size) {
        return 0;
      }
    }
  }
}
