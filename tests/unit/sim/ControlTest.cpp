#include "sim/tool/Control.h"
#include "tests/unit/sim/SimSupport.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>

namespace sim {
namespace {

using namespace std::chrono_literals;

/// A server that answers each line with the line in brackets, in a loop of its own until it goes.
class Control : public ::testing::Test {
 protected:
  Control() : path(folder.File("control")) {
    const RESULT result = server.Listen(path);
    EXPECT_TRUE(result.ok) << result.text;
    loop = std::thread([this] { Loop(); });
  }
  ~Control() override {
    stop = true;
    loop.join();
  }

  void Loop() {
    std::vector<pollfd> watched;
    while (!stop) {
      watched.clear();
      server.Watch(watched);
      poll(watched.data(), watched.size(), 5);
      server.Handle(watched.data(), watched.size(), [this](const std::string& line) {
        return line == "long" ? std::string(longAnswer, 'x') : "[" + line + "]\nOK\n";
      });
      clients = server.Clients();
    }
  }

  DESCRIPTOR Connect() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    DESCRIPTOR client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience{30, 0};
    setsockopt(client.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    EXPECT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    return client;
  }
  static bool Send(const DESCRIPTOR& socket, const std::string& text) {
    return send(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
  }
  /// So many bytes, or fewer when the other side closes before.
  static std::string Receive(const DESCRIPTOR& socket, std::size_t count) {
    std::string text(count, '\0');
    const ssize_t got = recv(socket.Get(), text.data(), count, MSG_WAITALL);
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return text;
  }
  bool WaitForClients(std::size_t count) {
    return support::WaitUntil([&] { return clients == count; });
  }

  vorn::unit::FOLDER folder;
  const std::string path;
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> clients{0};
  std::atomic<std::size_t> longAnswer{100000};
  CONTROL_SERVER server;
  std::thread loop;
};

TEST_F(Control, AnswersEachLineAlsoALastOneWithoutAnEnd) {
  const DESCRIPTOR client = Connect();
  ASSERT_TRUE(Send(client, "one\ntwo\nthr"));
  EXPECT_EQ(Receive(client, 18), "[one]\nOK\n[two]\nOK\n");
  ASSERT_TRUE(Send(client, "ee\nfour"));
  shutdown(client.Get(), SHUT_WR);
  EXPECT_EQ(Receive(client, 100), "[three]\nOK\n[four]\nOK\n");
  EXPECT_TRUE(WaitForClients(0));
}

TEST_F(Control, ServesManyClientsAtOnceUpToALimit) {
  std::vector<DESCRIPTOR> many;
  for (std::size_t i = 0; i < CONTROL_SERVER::kMaximumClients + 3; ++i) {
    many.push_back(Connect());
  }
  EXPECT_TRUE(WaitForClients(CONTROL_SERVER::kMaximumClients));
  ASSERT_TRUE(Send(many.front(), "x\n"));
  EXPECT_EQ(Receive(many.front(), 7), "[x]\nOK\n");
  ASSERT_TRUE(Send(many.back(), "late\n"));
  many.erase(many.begin(), many.begin() + 3);  // room for those who waited
  EXPECT_EQ(Receive(many.back(), 10), "[late]\nOK\n");
}

TEST_F(Control, ForgetsAClientThatVanishes) {
  {
    const DESCRIPTOR client = Connect();
    ASSERT_TRUE(WaitForClients(1));
    ASSERT_TRUE(Send(client, "long\nlong\nhalf a li"));
  }
  EXPECT_TRUE(WaitForClients(0));
}

TEST_F(Control, RefusesAMegabyteWithoutALineEnd) {
  const DESCRIPTOR client = Connect();
  const std::string flood(1 << 20, 'x');
  static_cast<void>(Send(client, flood));  // closed in the middle of it
  EXPECT_EQ(Receive(client, 100), "error: the line is too long\n");
  EXPECT_TRUE(WaitForClients(0));
}

TEST_F(Control, DropsAClientThatNeverReads) {
  longAnswer = CONTROL_SERVER::kMaximumUnread * 2;
  const DESCRIPTOR deaf = Connect();
  ASSERT_TRUE(WaitForClients(1));
  ASSERT_TRUE(Send(deaf, "long\n"));
  EXPECT_TRUE(WaitForClients(0));
}

TEST_F(Control, KeepsServingOthersWhileOneDoesNotRead) {
  const DESCRIPTOR deaf = Connect();
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(Send(deaf, "long\n"));
  }
  const DESCRIPTOR other = Connect();
  ASSERT_TRUE(Send(other, "x\n"));
  EXPECT_EQ(Receive(other, 7), "[x]\nOK\n");
}

TEST_F(Control, IsForThisUserOnlyAndRemovedInTheEnd) {
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  const std::string other = folder.File("other");
  {
    CONTROL_SERVER second;
    ASSERT_TRUE(second.Listen(other).ok);
    EXPECT_TRUE(std::filesystem::exists(other));
  }
  EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_F(Control, RefusesANameThatExistsOrDoesNotFit) {
  CONTROL_SERVER second;
  EXPECT_EQ(second.Listen(path).text,
            "cannot listen at " + path +
                ": Address already in use (if no vornsim runs there any more, remove it)");
  const std::string file = folder.File("file");
  std::ofstream(file) << "precious";
  EXPECT_FALSE(second.Listen(file));
  EXPECT_TRUE(std::filesystem::is_regular_file(file));
  EXPECT_FALSE(second.Listen(std::string(200, 'x')));
  EXPECT_FALSE(second.Listen(""));
}

}  // namespace
}  // namespace sim
