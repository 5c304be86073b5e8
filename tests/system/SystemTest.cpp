#include "tests/system/SystemTest.h"

#include "sim/line/Descriptor.h"
#include "tests/support/ListeningPorts.h"
#include "tests/support/Text.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

std::string MakeFolder() {
  std::string folder = "/tmp/vorn-test-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    throw std::runtime_error("cannot make a folder in /tmp");
  }
  fs::create_directory(folder + "/pauses");
  return folder;
}

/// A test before this one in the same process may have left something.
void ClearPrivateFolders() {
  fs::create_directories("/run/vorn");
  for (const char* folder : {"/etc/vorn", "/run/vorn"}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      fs::remove_all(entry.path());
    }
  }
}

/// As a line comes up for a person at a terminal: whatever passes it unchanged later does so
/// because the daemon has seen to it.
void SetForTyping(const std::string& line) {
  const sim::DESCRIPTOR terminal(open(line.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios settings{};
  if (tcgetattr(terminal.Get(), &settings) == 0) {
    settings.c_iflag = BRKINT | ICRNL | INLCR | ISTRIP | IXON | IXOFF | IXANY | PARMRK;
    settings.c_oflag = OPOST | ONLCR | OCRNL;
    settings.c_lflag = ISIG | ICANON | IEXTEN | ECHO | ECHOE | ECHOK | TOSTOP;
    cfsetispeed(&settings, B9600);
    cfsetospeed(&settings, B9600);
  }
  if (tcsetattr(terminal.Get(), TCSANOW, &settings) != 0) {
    throw std::runtime_error("cannot set " + line);
  }
}

/// What a test builds on. The exception ends the test and fails it.
void Require(bool holds, const std::string& what) {
  if (!holds) {
    throw std::runtime_error("not so: " + what);
  }
}

}  // namespace

SYSTEM_TEST::SYSTEM_TEST()
    : m_folder(MakeFolder()),
      log(m_folder + "/vorn.log"),
      pauses(m_folder + "/pauses"),
      adapter(&rack),
      daemon(m_folder + "/output") {
  ClearPrivateFolders();
  rack.PopulateDefault();
  adapter.AddTap([this](sim::DIRECTION direction, sim::TIME when, const sim::Bytes& bytes) {
    constexpr std::size_t kKept = 60;
    const std::lock_guard lock(m_crossingsMutex);
    m_crossings.push_back({direction, when, bytes});
    if (m_crossings.size() > kKept) {
      m_crossings.pop_front();
    }
  });
  const std::vector<int> ports = support::FreePorts(3);
  config.logFile = log.Path();
  config.cae.port = ports[0];
  config.io.port = ports[1];
  config.mon.port = ports[2];
}

SYSTEM_TEST::~SYSTEM_TEST() {
  daemon.Kill();
  std::error_code ignored;
  fs::remove_all(m_folder, ignored);
}

void SYSTEM_TEST::TearDown() {
  for (const int seconds : {1, 2, 3}) {
    pauses.Release(seconds);
  }
  if (daemon.Running()) {
    Stop(SIGTERM);
  } else if (daemon.Pid() > 0 && isEndExpected) {
    ExpectEnd();
  }
  if (expectedOutput) {
    EXPECT_EQ(daemon.Output(), *expectedOutput) << "standard output and standard error";
  }
  if (HasFailure()) {
    Print();
  }
}

void SYSTEM_TEST::Print() {
  std::cout << "--- log\n" << log.Text() << "--- output\n" << daemon.Output();
  std::cout << "--- line (ms; " << (adapter.RealTime() ? "real time" : "no real time") << ")\n";
  const std::lock_guard lock(m_crossingsMutex);
  for (const CROSSING& crossing : m_crossings) {
    const std::chrono::duration<double, std::milli> time = crossing.when - m_crossings.front().when;
    std::cout << time.count() << (crossing.direction == sim::DIRECTION::kRequest ? " > " : " < ")
              << sim::ToHex(crossing.bytes) << "\n";
  }
  std::cout << "---" << std::endl;
}

void SYSTEM_TEST::Start(const support::START& start) {
  StartWith(config.Text(), start);
}

void SYSTEM_TEST::StartWith(const std::string& configText, const support::START& start) {
  support::WriteFile(support::kConfigPath, configText);
  support::START withPauses = start;
  withPauses.environment.emplace("PATH", support::PAUSES::Path());
  withPauses.environment.emplace("VORN_TEST_PAUSES", pauses.Folder());
  const int status = daemon.Start(withPauses);
  Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the daemon starts with status 0");
  Require(daemon.Pid() > 0, "a process goes on");
  daemon.LowerPriority();
  pauses.AllowSearch();
}

void SYSTEM_TEST::StartLinked(const support::START& start) {
  Plug(0);
  SetForTyping(adapter.NearPath());
  Start(start);
  Require(support::WaitUntil(
              [&] { return !log.LinesWith("[INF] hardware found on /dev/ttyUSB0").empty(); }),
          "the controller is found");
}

void SYSTEM_TEST::StartIdentified(const support::START& start) {
  config.autoDiscover = "TRUE";
  StartLinked(start);
  Require(WaitForFrame("01 30"), "the cards are asked for");
  cae.emplace(ConnectCae());
  // The daemon has the reply a moment after the request went out.
  const auto isIdentified = [&] {
    cae->Send("DISCOVER" + config.cae.inpSeparator);
    const std::string list = cae->ReadUntil("\r>" + config.cae.outSeparator + "\r");
    return list.find(" CONTROLLER") != std::string::npos ||
           list.find(" channel ") != std::string::npos;
  };
  Require(support::WaitUntil(isIdentified), "the cards are in the table");
}

void SYSTEM_TEST::Plug(int number) {
  const sim::RESULT result = adapter.Plug(number);
  Require(result.ok, result.text);
}

void SYSTEM_TEST::Unplug() {
  const sim::RESULT result = adapter.Unplug();
  Require(result.ok, result.text);
}

void SYSTEM_TEST::Stop(int signal) {
  daemon.Signal(signal);
  ExpectEnd();
}

void SYSTEM_TEST::ExpectEnd() {
  const std::optional<int> status = daemon.WaitForEnd();
  ASSERT_TRUE(status) << "the daemon does not end";
  EXPECT_TRUE(WIFEXITED(*status)) << "ended by signal " << WTERMSIG(*status);
  EXPECT_EQ(WEXITSTATUS(*status), 0);
}

TCP_CLIENT SYSTEM_TEST::Connect(const support::INTERFACE& interface, const std::string& greeting) {
  for (;;) {
    TCP_CLIENT client(interface.port);
    // Until it sees the client before this one leave, the daemon listens for no one: who connects
    // in that moment is dropped with the listening socket.
    if (client.WaitForFirstByte()) {
      EXPECT_TRUE(client.Receives(greeting));
      return client;
    }
  }
}

TCP_CLIENT SYSTEM_TEST::ConnectCae() {
  return Connect(config.cae, kCaeGreeting);
}

TCP_CLIENT SYSTEM_TEST::ConnectIo() {
  return Connect(config.io, kIoGreeting);
}

TCP_CLIENT SYSTEM_TEST::ConnectMon() {
  return Connect(config.mon, kMonGreeting);
}

std::string SYSTEM_TEST::CaeLine(const std::string& text) const {
  return text + config.cae.outSeparator + "\r";
}

std::string SYSTEM_TEST::IoLine(const std::string& text) const {
  return text + config.io.outSeparator + "\r";
}

std::string SYSTEM_TEST::CaeReply(const std::vector<std::string>& texts) const {
  std::string reply;
  for (const std::string& text : texts) {
    reply += CaeLine(text);
  }
  return reply + CaeLine(">");
}

std::string SYSTEM_TEST::UnknownReply() const {
  return CaeLine("CIE: UNKNOWN COMMAND " + config.cae.outSeparator + ">");
}

testing::AssertionResult SYSTEM_TEST::Answers(TCP_CLIENT& client, const std::string& command,
                                              const std::vector<std::string>& texts) const {
  client.Send(command + config.cae.inpSeparator);
  return client.Receives(CaeReply(texts)) << "\nto " << command;
}

void SYSTEM_TEST::Synchronise(TCP_CLIENT& client) const {
  EXPECT_TRUE(Answers(client, "DRVVER", {"CIA: DRIVER VERSION 1.20"}));
}

std::vector<std::string> SYSTEM_TEST::Frames(std::uint64_t after) {
  std::vector<std::string> frames;
  for (const sim::REQUEST& request : adapter.Requests().Since(after)) {
    const std::string hex = sim::ToHex(request.frame);
    if (hex != "03 40 6F 9A") {
      frames.push_back(hex);
    }
  }
  return frames;
}

bool SYSTEM_TEST::WaitForFrame(const std::string& hex, std::uint64_t after) {
  return adapter.Requests().WaitForFrame(sim::FromHex(hex).value(), kLimit, after).has_value();
}

std::string SYSTEM_TEST::Listening(const support::INTERFACE& interface) const {
  return "[INF] " + interface.name + " interface listening on port " +
         std::to_string(interface.port);
}

std::string SYSTEM_TEST::Waiting(const std::string& name) {
  return "[INF] " + name + " interface is waiting for incoming connection";
}

std::string SYSTEM_TEST::Connected(const std::string& name, const TCP_CLIENT& client) {
  // The port is logged with its two bytes as they travel, low byte first.
  const int port = client.LocalPort();
  const int logged = ((port & 0xFF) << 8) | (port >> 8);
  return "[INF] client is connected on " + name +
         " interface from 127.0.0.1:" + std::to_string(logged);
}

std::string SYSTEM_TEST::ClosedByClient(const std::string& name) {
  return "[INF] connection is closed by client on " + name + " interface";
}

std::string SYSTEM_TEST::ClosedByCommand(const std::string& name) {
  return "[INF] connection is closed by command on " + name + " interface";
}
