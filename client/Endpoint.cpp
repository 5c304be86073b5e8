#include "client/Endpoint.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace client {

namespace {

sockaddr_in Ipv4Of(const ENDPOINT& endpoint) {
  sockaddr_in address{};
  if (endpoint.address.ss_family == AF_INET) {
    std::memcpy(&address, &endpoint.address, sizeof(address));
  }
  return address;
}

}  // namespace

std::vector<ENDPOINT> Resolve(const std::string& host, int port) {
  constexpr int kHighestPort = 65535;
  if (port < 1 || port > kHighestPort) {
    throw std::runtime_error("port " + std::to_string(port) + ": ports are 1 to 65535");
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int failure = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  const int error = errno;
  if (failure != 0) {
    throw std::runtime_error(
        host + ": " + (failure == EAI_SYSTEM ? std::strerror(error) : gai_strerror(failure)));
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  std::vector<ENDPOINT> endpoints;
  for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
    ENDPOINT& endpoint = endpoints.emplace_back();
    std::memcpy(&endpoint.address, one->ai_addr, one->ai_addrlen);
    endpoint.size = one->ai_addrlen;
  }
  return endpoints;
}

std::string TextOf(const ENDPOINT& endpoint) {
  const sockaddr_in address = Ipv4Of(endpoint);
  std::array<char, INET_ADDRSTRLEN> number{};
  inet_ntop(AF_INET, &address.sin_addr, number.data(), number.size());
  return std::string(number.data()) + ":" + std::to_string(PortOf(endpoint));
}

int PortOf(const ENDPOINT& endpoint) {
  return ntohs(Ipv4Of(endpoint).sin_port);
}

}  // namespace client
