#include "sim/line/Descriptor.h"
#include "tests/system/ClientFaults.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

/// A client whose machine is no longer to be reached.

namespace {

/// A second machine: a network namespace of its own at the other end of a cable.
class OTHER_MACHINE {
 public:
  OTHER_MACHINE() {
    std::thread([this] {
      if (unshare(CLONE_NEWNET) != 0) {
        return;
      }
      m_namespace = sim::DESCRIPTOR(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
      m_isThere = Run("ip link add vorn-far type veth peer name vorn-near netns " +
                      std::to_string(getpid())) &&
                  Run("ip addr add 10.111.0.2/24 dev vorn-far") && Run("ip link set vorn-far up");
    }).join();
    m_isThere = m_isThere && Run("ip addr add 10.111.0.1/24 dev vorn-near") &&
                Run("ip link set vorn-near up");
  }
  /// False where the system does not let it be.
  bool IsThere() const { return m_isThere; }

  /// A connection from there to the daemon, once it has got the greeting.
  sim::DESCRIPTOR Connect(int port, const std::string& greeting) {
    sim::DESCRIPTOR client;
    From([&] { client = ConnectHere(port, greeting); });
    return client;
  }

  void PullTheCable() {
    From([] { EXPECT_TRUE(Run("ip link set vorn-far down")); });
  }

 private:
  static bool Run(const std::string& command) { return std::system(command.c_str()) == 0; }

  static sim::DESCRIPTOR ConnectHere(int port, const std::string& greeting) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, "10.111.0.1", &address.sin_addr);
    sim::DESCRIPTOR client;
    const auto isGreeted = [&] {
      client = sim::DESCRIPTOR(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
      if (connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return false;
      }
      std::string received(greeting.size(), ' ');
      return recv(client.Get(), received.data(), received.size(), MSG_WAITALL) ==
                 static_cast<ssize_t>(greeting.size()) &&
             received == greeting;
    };
    EXPECT_TRUE(support::WaitUntil(isGreeted));
    return client;
  }

  void From(const std::function<void()>& task) {
    std::thread([&] {
      ASSERT_EQ(setns(m_namespace.Get(), CLONE_NEWNET), 0);
      task();
    }).join();
  }

  sim::DESCRIPTOR m_namespace;
  bool m_isThere = false;
};

TEST_F(ClientFaults, APeerWhoseLinkGoesDownWithoutAWordIsGivenUpWithinAMinute) {
  config.speedPercent = "50";
  StartForFaults();
  OTHER_MACHINE other;
  if (!other.IsThere()) {
    GTEST_SKIP() << "no second network namespace here";
  }
  BeginFault({.touched = {PART::kCae, PART::kMon}});
  cae.reset();
  mon.reset();
  const sim::DESCRIPTOR idle = other.Connect(config.cae.port, kCaeGreeting);
  const sim::DESCRIPTOR writtenTo = other.Connect(config.mon.port, kMonGreeting);
  other.PullTheCable();
  io->Send("a5b0d00\n");  // a copy is on its way, and will not be acknowledged
  ExpectService();
  for (const char* name : {"CAE", "MON"}) {
    EXPECT_TRUE(log.WaitForLine(ClosedByClient(name), 2, kMinute)) << name;
  }
  EndFault();
}

}  // namespace
