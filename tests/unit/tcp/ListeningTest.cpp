#include "tests/support/ProcessInfo.h"
#include "tests/unit/tcp/SocketFixture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorn {

using support::kSilence;
using support::TCP_CLIENT;
using support::WaitUntil;

namespace {

int Option(int socket, int level, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  getsockopt(socket, level, option, &value, &size);
  return value;
}

/// How many connections may wait at the listening socket of that port; nothing where the kernel, or
/// an emulator, does not tell, and -1 where there is no such socket.
std::optional<int> Backlog(int port) {
  for (const auto& [number, target] : support::OpenDescriptors(getpid())) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(number, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        address.sin_family == AF_INET && ntohs(address.sin_port) == port &&
        Option(number, SOL_SOCKET, SO_ACCEPTCONN) == 1) {
      tcp_info info{};
      size = sizeof info;
      if (getsockopt(number, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 || size < sizeof info) {
        return std::nullopt;
      }
      return static_cast<int>(info.tcpi_sacked);  // the field's meaning for a socket that listens
    }
  }
  return -1;
}

}  // namespace

// --- Init -------------------------------------------------------------------------------------

TEST_F(SocketInterface, HasTheStatesThatAreDocumented) {
  EXPECT_EQ(static_cast<int>(kIdle), 0);
  EXPECT_EQ(static_cast<int>(kListening), 1);
  EXPECT_EQ(static_cast<int>(kAccepting), 2);
  EXPECT_EQ(static_cast<int>(kConnected), 3);
  EXPECT_EQ(static_cast<int>(kClosed), 4);
  EXPECT_EQ(static_cast<int>(kBinaryMode), 1);
  EXPECT_EQ(static_cast<int>(kTextMode), 2);
}

TEST_F(SocketInterface, OpensNothingBeforeInit) {
  Make();
  EXPECT_EQ(m_worker->State(), kIdle);
  EXPECT_EQ(Port(), 0);
  EXPECT_FALSE(m_worker->IsConnected());
  EXPECT_TRUE(m_worker->OutputQueue().IsEmpty());
  EXPECT_EQ(m_worker->ThreadDelayUs(), 100);
  EXPECT_TRUE(Log().empty());
}

TEST_F(SocketInterface, ListensAndSaysSo) {
  const RESERVED_PORT reserved;
  const int port = reserved.Port();
  Start("CAE", port);
  EXPECT_EQ(Port(), port);
  EXPECT_EQ(Log().front(), "[INF] CAE interface listening on port " + std::to_string(port));
}

TEST_F(SocketInterface, ListensWithABacklogOfOne) {
  Start();
  const std::optional<int> backlog = Backlog(Port());
  if (!backlog) {
    GTEST_SKIP() << "the backlog is not told here";
  }
  EXPECT_EQ(backlog, 1);
}

TEST_F(SocketInterface, SaysThatItListensBeforeItSaysThatItWaits) {
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds; ++round) {
    INTERFACE_DESCRIPTOR descriptor;
    descriptor.name = "IO";
    descriptor.threadDelayUs = 0;
    LOGGER logger;
    logger.SetFileName(m_folder.File("log" + std::to_string(round)));
    SOCKET_INTERFACE worker(descriptor, logger, m_input, m_pauses);
    ASSERT_TRUE(worker.Init());
    const support::LOG_FILE log(logger.FileName());
    ASSERT_TRUE(log.WaitForLine("[INF] IO interface is waiting for incoming connection"));
    ASSERT_EQ(log.AllLines().front(), "[INF] IO interface listening on port 0");
  }
}

TEST_F(SocketInterface, FailsWhenNoSocketCanBeMade) {
  Make();
  socketCalls.socket.FailOutsideTheWorker(EMFILE);
  EXPECT_FALSE(m_worker->Init());
  EXPECT_EQ(m_worker->State(), kIdle);
  EXPECT_EQ(Log(), (std::vector<std::string>{"[ERR] couldn't open socket forCAE interface"}));
}

TEST_F(SocketInterface, ListensAlthoughTheAddressCannotBeReused) {
  Make();
  socketCalls.reuseAddress.FailOutsideTheWorker(EINVAL);
  EXPECT_TRUE(m_worker->Init());
  EXPECT_EQ(Log().front(), "[ERR] couldn't set socket options forCAE interface");
  EXPECT_EQ(Count("[INF] CAE interface listening on port 0"), 1);
}

TEST_F(SocketInterface, ListensElsewhereWhenThePortIsTaken) {
  const RESERVED_PORT taken;
  taken.Listen();
  Make("MON", taken.Port());
  EXPECT_TRUE(m_worker->Init());
  const std::vector<std::string> log = Log();
  ASSERT_GE(log.size(), 2U);
  EXPECT_EQ(log[0], "[ERR] couldn't bind socket forMON interface");
  EXPECT_EQ(log[1], "[INF] MON interface listening on port " + std::to_string(taken.Port()));
  EXPECT_NE(Port(), taken.Port());
}

/// In a quarter of a second, with 5 ms between them.
constexpr int kBindTries = 51;

TEST_F(SocketInterface, HasItsPortWhenThatIsGivenFreeInTheNextMoment) {
  const RESERVED_PORT reserved;
  Make("IO", reserved.Port());
  socketCalls.bind.FailOutsideTheWorker(EADDRINUSE, kBindTries - 1);
  EXPECT_TRUE(m_worker->Init());
  EXPECT_EQ(Port(), reserved.Port());
  EXPECT_EQ(Log().front(),
            "[INF] IO interface listening on port " + std::to_string(reserved.Port()));
}

TEST_F(SocketInterface, ListensElsewhereWhenThePortStaysTakenForAQuarterOfASecond) {
  const RESERVED_PORT reserved;
  Make("IO", reserved.Port());
  socketCalls.bind.FailOutsideTheWorker(EADDRINUSE, kBindTries);  // another try would get it
  EXPECT_TRUE(m_worker->Init());
  EXPECT_EQ(Log().front(), "[ERR] couldn't bind socket forIO interface");
  EXPECT_NE(Port(), reserved.Port());
}

TEST_F(SocketInterface, ListensElsewhereAtOnceWhenThePortIsRefusedForAnotherReason) {
  const RESERVED_PORT reserved;
  Make("IO", reserved.Port());
  socketCalls.bind.FailOutsideTheWorker(EACCES, 1);  // which a second try would not meet
  EXPECT_TRUE(m_worker->Init());
  EXPECT_EQ(Log().front(), "[ERR] couldn't bind socket forIO interface");
  EXPECT_NE(Port(), reserved.Port());
}

TEST_F(SocketInterface, FailsWhenItCannotListen) {
  const RESERVED_PORT reserved;
  const int port = reserved.Port();
  Make("IO", port);
  socketCalls.listen.FailOutsideTheWorker(EADDRINUSE);
  EXPECT_FALSE(m_worker->Init());
  EXPECT_EQ(m_worker->State(), kIdle);
  EXPECT_EQ(Log(), (std::vector<std::string>{"[ERR] IO interface listening error on port " +
                                             std::to_string(port)}));
  EXPECT_TRUE(TCP_CLIENT::IsRefused(port));
}

TEST_F(SocketInterface, StaysIdleForGoodAfterAFailedInit) {
  Make();
  socketCalls.socket.FailOutsideTheWorker(EMFILE);
  ASSERT_FALSE(m_worker->Init());
  EXPECT_FALSE(WaitUntil([&] { return m_worker->State() != kIdle; }, kSilence));
  EXPECT_EQ(Log().size(), 1U);
  EXPECT_TRUE(m_pauses.Begun().empty());
}

TEST_F(SocketInterface, UsesTheLow16BitsOfAPortAbove65535) {
  const RESERVED_PORT reserved;
  const int port = reserved.Port();
  Start("CAE", 65536 + port);
  EXPECT_EQ(Port(), port);
}

// --- accepting --------------------------------------------------------------------------------

TEST_F(SocketInterface, GreetsACaeClient) {
  Start("CAE");
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.Receives("VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, GreetsAnIoClient) {
  Start("IO");
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.Receives("VORN IO interface is ready\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, GreetsAMonClient) {
  Start("MON");
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.Receives("VORN MON interface is ready\r\n\r"));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, GreetsNobodyUnderAnotherName) {
  for (const std::string name : {"", "cae", "CAE2"}) {
    Start(name);
    TCP_CLIENT client = Connect();
    ASSERT_TRUE(WaitForState(kConnected));
    EXPECT_TRUE(client.ReceivesNothing());
    m_worker.reset();
  }
}

TEST_F(SocketInterface, LogsTheWholeWayOfAClient) {
  Start();
  TCP_CLIENT client = ConnectAndGreet();
  const std::string connected = ConnectedLine(client);
  client.Close();
  ASSERT_TRUE(m_log.WaitForLine("[INF] CAE interface is waiting for incoming connection", 2));
  EXPECT_EQ(Log(), (std::vector<std::string>{
                       "[INF] CAE interface listening on port 0",
                       "[INF] CAE interface is waiting for incoming connection", connected,
                       "[INF] connection is closed by client on CAE interface",
                       "[INF] CAE interface listening on port 0",
                       "[INF] CAE interface is waiting for incoming connection"}));
}

TEST_F(SocketInterface, PausesThreeSecondsBeforeItAccepts) {
  m_pauses.Hold(3);
  Start();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(3));
  EXPECT_EQ(m_worker->State(), kAccepting);
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.ReceivesNothing());
  EXPECT_EQ(m_worker->State(), kAccepting);
  m_pauses.Release(3);
  EXPECT_TRUE(client.Receives(kCaeGreeting));
  EXPECT_EQ(m_worker->State(), kConnected);
  EXPECT_TRUE(m_worker->IsConnected());
  EXPECT_EQ(m_pauses.Begun(), (std::vector<int>{3}));
}

TEST_F(SocketInterface, ServesOneClientAtATime) {
  TCP_CLIENT first = StartWithClient();
  TCP_CLIENT second = Connect();
  EXPECT_TRUE(second.ReceivesNothing());
  Send("for the first");
  EXPECT_TRUE(first.Receives("for the first\r"));
  EXPECT_TRUE(second.ReceivesNothing());
  first.Close();
  EXPECT_TRUE(WaitUntilListening(2));
  TCP_CLIENT third = ConnectAndGreet();
}

TEST_F(SocketInterface, AcceptedSocketAnswersAtOnceAndNoticesADeadPeerWithin30Seconds) {
  const TCP_CLIENT client = StartWithClient();
  const int socket = DescriptorTo(client.LocalPort());
  ASSERT_GE(socket, 0);
  EXPECT_EQ(Option(socket, IPPROTO_TCP, TCP_NODELAY), 1);
  EXPECT_EQ(Option(socket, SOL_SOCKET, SO_KEEPALIVE), 1);
  const int probing =
      Option(socket, IPPROTO_TCP, TCP_KEEPIDLE) +
      Option(socket, IPPROTO_TCP, TCP_KEEPINTVL) * Option(socket, IPPROTO_TCP, TCP_KEEPCNT);
  EXPECT_EQ(probing, 30);  // seconds
  // The kernel would count from the first time that a reader's window was closed.
  EXPECT_EQ(Option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
  timeval sendTimeout{};
  socklen_t size = sizeof sendTimeout;
  ASSERT_EQ(getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, &size), 0);
  EXPECT_EQ(sendTimeout.tv_sec, 10);
  EXPECT_EQ(sendTimeout.tv_usec, 0);
}

TEST_F(SocketInterface, AcceptedSocketHolds16KiBOfWhatAClientSendsAhead) {
  const TCP_CLIENT client = StartWithClient();
  const int socket = DescriptorTo(client.LocalPort());
  ASSERT_GE(socket, 0);
  EXPECT_EQ(Option(socket, SOL_SOCKET, SO_RCVBUF),
            2 * 16384);  // the kernel doubles what it is told
}

TEST_F(SocketInterface, HandsNoSocketToAChild) {
  Start();
  TCP_CLIENT client = ConnectAndGreet();
  for (const int socket : {DescriptorOfListener(Port()), DescriptorTo(client.LocalPort())}) {
    ASSERT_GE(socket, 0);
    EXPECT_EQ(fcntl(socket, F_GETFD), FD_CLOEXEC);
  }
}

TEST_F(SocketInterface, IsNotDisturbedByAnInterruptedAccept) {
  socketCalls.accept.Fail(EINTR, 3);
  Start();
  TCP_CLIENT client = ConnectAndGreet();
  EXPECT_TRUE(m_log.LinesWith("[ERR]").empty());
  EXPECT_EQ(socketCalls.accept.Begun(), 4);
}

TEST_F(SocketInterface, ClosesAndReopensAfterAFailedAccept) {
  socketCalls.accept.Fail(EMFILE);
  m_pauses.Hold(3);
  Start();
  TCP_CLIENT refused = Connect();  // before that accept, which waits for nobody
  m_pauses.Release(3);
  ASSERT_TRUE(m_log.WaitForLine("[INF] CAE interface is waiting for incoming connection", 2));
  EXPECT_TRUE(refused.IsClosed());
  EXPECT_EQ(Log(),
            (std::vector<std::string>{"[INF] CAE interface listening on port 0",
                                      "[INF] CAE interface is waiting for incoming connection",
                                      "[ERR] socket accept error on CAE interface",
                                      "[INF] client is connected on CAE interface from 0.0.0.0:0",
                                      "[ERR] socket select error on CAE interface",
                                      "[INF] connection is closed by client on CAE interface",
                                      "[INF] CAE interface listening on port 0",
                                      "[INF] CAE interface is waiting for incoming connection"}));
  TCP_CLIENT client = ConnectAndGreet();
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, LosesNoMessageToAFailedAccept) {
  socketCalls.accept.Fail(ECONNABORTED);
  Make();
  Send("waiting");
  ASSERT_TRUE(m_worker->Init());
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.Receives("waiting\r" + std::string(kCaeGreeting)));
  EXPECT_TRUE(client.ReceivesNothing());
}

TEST_F(SocketInterface, ServesAgainAfterDescriptorsHadRunOut) {
  m_pauses.Hold(3);
  Start();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(3));
  TCP_CLIENT refused = Connect();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit none = before;
  none.rlim_cur = 0;
  unit::GATE accepted;
  socketCalls.accept.HoldAt(&accepted);
  setrlimit(RLIMIT_NOFILE, &none);
  m_pauses.Release(3);
  const bool isReached = accepted.WaitUntilReached();
  setrlimit(RLIMIT_NOFILE, &before);
  socketCalls.accept.HoldAt(nullptr);
  accepted.Open();
  ASSERT_TRUE(isReached);
  EXPECT_TRUE(m_log.WaitForLine("[ERR] socket accept error on CAE interface"));
  EXPECT_TRUE(refused.IsClosed());
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT client = ConnectAndGreet();
}

TEST_F(SocketInterface, NeverPutsADescriptorIntoASetThatCannotHoldIt) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit many = before;
  many.rlim_cur = FD_SETSIZE + 200;
  if (many.rlim_max < many.rlim_cur || setrlimit(RLIMIT_NOFILE, &many) != 0) {
    GTEST_SKIP() << "no more than " << before.rlim_max << " descriptors allowed here";
  }
  m_pauses.Hold(3);
  Start();
  ASSERT_TRUE(m_pauses.WaitUntilBegun(3));
  TCP_CLIENT client = Connect();
  std::vector<int> taken;
  for (int number = 0; number < FD_SETSIZE;) {
    number = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(number, 0);
    taken.push_back(number);
  }
  m_pauses.Release(3);
  EXPECT_TRUE(m_log.WaitForLine("[INF] connection is closed by client on CAE interface"));
  EXPECT_EQ(client.ReadToEnd(), kCaeGreeting);
  EXPECT_EQ(m_log.LinesWith("[ERR]"),
            (std::vector<std::string>{"[ERR] socket select error on CAE interface"}));
  for (const int number : taken) {
    close(number);
  }
  ASSERT_TRUE(WaitUntilListening(2));
  TCP_CLIENT next = ConnectAndGreet();
  setrlimit(RLIMIT_NOFILE, &before);
}

// --- the pass ---------------------------------------------------------------------------------

TEST_F(SocketInterface, ParksAWorkerNamedDmi) {
  Make("DMI");
  EXPECT_TRUE(m_log.WaitForLine("[INF] On task DMI interface"));
  EXPECT_TRUE(m_worker->Init());  // in vain
  TCP_CLIENT client = Connect();
  EXPECT_TRUE(client.ReceivesNothing());
  EXPECT_EQ(Log(), (std::vector<std::string>{"[INF] On task DMI interface",
                                             "[INF] DMI interface listening on port 0"}));
}

TEST_F(SocketInterface, LogsASignalAndGoesOn) {
  TCP_CLIENT client = StartWithClient("MON");
  m_worker->mf_SIGhandler(15);
  EXPECT_EQ(Log().back(), "[INF] signal 15 on MON interface");
  Send("still there");
  EXPECT_TRUE(client.Receives("still there\r"));
}

TEST_F(SocketInterface, ServesAtAnyThreadDelay) {
  TCP_CLIENT client = StartWithClient();
  for (const int delayUs : {5000, 1, 0, -49}) {
    m_worker->SetThreadDelayUs(delayUs);
    EXPECT_EQ(m_worker->ThreadDelayUs(), delayUs);
    Send(std::to_string(delayUs));
    EXPECT_TRUE(client.Receives(std::to_string(delayUs) + "\r"));
  }
}

}  // namespace vorn
