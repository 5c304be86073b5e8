#include "bench/compare/Subjects.h"

#include <array>
#include <cstdio>
#include <fstream>

namespace bench {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kPort = 5010;  // of floor and stub
constexpr int kCaePort = 5000;
constexpr int kIoPort = 5001;
constexpr int kMonPort = 5002;

constexpr seconds kAnswerLimit{20};
/// What was under way when something was switched off has arrived then.
constexpr milliseconds kSettle{50};
constexpr milliseconds kLook{5};

const std::string kDevice = "/dev/ttyUSB0";  // NOLINT(cert-err58-cpp): a short text

// --- floor --------------------------------------------------------------------------------------

/// A relay knows no commands: what goes in at one end comes out at the other.
class FLOOR : public SUBJECT {
 public:
  explicit FLOOR(const PLACES& places) {
    m_bus = std::make_unique<BUS_END>(m_loop, kDevice);
    const std::vector<std::string> words = {places.relay, std::to_string(kPort), kDevice};
    m_process = std::make_unique<PROCESS>(m_loop, words);
    m_client = std::make_unique<CLIENT>(m_loop, kPort);
    m_bus->SetAnswering(false);
  }

  const char* Name() const override { return "floor"; }
  void PrepareCommands() override {
    m_bus->SetAnswering(false);
    m_bus->SetBaud(0);
  }
  void PreparePolling(std::size_t cards) override {
    m_bus->SetCards(BUS_END::kDigitalInput, cards);
    m_bus->SetAnswering(true);
    m_bus->SetBaud(kBaud);
  }
  void PrepareIdling() override {}
  std::string Command(std::uint8_t card, std::uint32_t number) const override {
    const std::array<std::uint32_t, 8> frame = {7, 0x10,          card,         4,
                                                3, number >> 16U, number >> 8U, number};
    std::string bytes;
    for (const std::uint32_t byte : frame) {
      bytes += static_cast<char>(byte & 0xFFU);
    }
    return bytes;
  }
  void Change(std::uint8_t value) override {
    std::array<char, 16> line{};
    const int size =
        std::snprintf(line.data(), line.size(), "a0b0d%02X\r\n\r", static_cast<unsigned>(value));
    m_sentAt = m_bus->Send({line.data(), static_cast<std::size_t>(size)});
  }
  TIME ChangeSentAt() override { return m_sentAt; }
  bool Polls() const override { return false; }

 private:
  TIME m_sentAt{};
};

// --- stub ---------------------------------------------------------------------------------------

/// It is started anew for each number of cards.
class STUB_RUN : public SUBJECT {
 public:
  explicit STUB_RUN(const PLACES& places) : m_program(places.stub) { Start(0); }

  const char* Name() const override { return "stub"; }
  void PrepareCommands() override { Start(0); }
  void PreparePolling(std::size_t cards) override { Start(cards); }
  void PrepareIdling() override { Start(0); }

 private:
  void Start(std::size_t cards) {
    m_client.reset();
    m_process.reset();
    m_bus.reset();
    m_bus = std::make_unique<BUS_END>(m_loop, kDevice);
    if (cards > 0) {
      m_bus->SetCards(BUS_END::kDigitalInput, cards);
      m_bus->SetBaud(kBaud);
    }
    const std::vector<std::string> words = {m_program, std::to_string(kPort), kDevice,
                                            std::to_string(cards)};
    m_process = std::make_unique<PROCESS>(m_loop, words);
    m_client = std::make_unique<CLIENT>(m_loop, kPort);
  }

  const std::string m_program;
};

// --- daemon -------------------------------------------------------------------------------------

/// All that is set while it runs is set as an operator does it.
class DAEMON : public SUBJECT {
 public:
  DAEMON(const PLACES& places, double& othersPercent) {
    m_bus = std::make_unique<BUS_END>(m_loop, kDevice);
    m_bus->SetCards(BUS_END::kInfrared, BUS_END::kSlots);
    Configure(places.folder + "/vorn.log");
    std::remove(kPidFile);
    PROCESS(m_loop, {places.daemon}).Await(kAnswerLimit);
    m_process = std::make_unique<PROCESS>(m_loop, BackgroundNumber());
    const OTHERS others(m_process.get());
    m_operator = std::make_unique<CLIENT>(m_loop, kCaePort);
    m_client = std::make_unique<CLIENT>(m_loop, kIoPort);
    m_operator->Await("CAE interface is ready", kAnswerLimit);
    m_client->Await("IO interface is ready", kAnswerLimit);
    // With the answer it knows that all its cards take commands.
    m_loop.Run(CLOCK::now() + kAnswerLimit, [this] { return m_bus->Identifications() > 0; });
    m_loop.RunFor(kSettle);
    othersPercent = others.Percent();
  }

  const char* Name() const override { return "vorn"; }
  void PrepareCommands() override {}  // it begins with that
  void PreparePolling(std::size_t cards) override {
    SetSpeed(100);  // the rest is done sooner then
    Ask("DISABLEPOLL", "POLLING IS DISABLED");
    m_loop.RunFor(kSettle);
    m_bus->SetCards(BUS_END::kDigitalInput, cards);
    m_bus->SetBaud(kBaud);
    Ask("FORCEDISCOVER", "DTI:0xF:");
    Ask("ENABLEPOLL", "POLLING IS ENABLED");
    m_loop.RunFor(kSettle);
  }
  void PrepareIdling() override {
    Ask("DISABLEPOLL", "POLLING IS DISABLED");
    if (!m_monitor) {
      m_monitor = std::make_unique<CLIENT>(m_loop, kMonPort);
      m_monitor->Await("MON interface is ready", kAnswerLimit);
    }
    m_loop.RunFor(kSettle);
  }
  void SetSpeed(int percent) override {
    Ask("SPEED=" + std::to_string(percent), "SPEED IS SET");
    m_loop.RunFor(kSettle);
  }

 private:
  static constexpr const char* kPidFile = "/run/vorn/vorn.pid";

  static void Configure(const std::string& log) {
    std::ofstream("/etc/vorn/vornconf.xml")
        << "<?xml version=\"1.0\"?>\n<VORNConfig>\n  <Debuglog File=\"" << log
        << "\" Loglevel=\"0\"/>\n  <Speed Percent=\"100\"/>\n  <InitPollState Action=\"FALSE\"/>\n"
           "  <AutoDiscover Action=\"TRUE\"/>\n  <Interfaces>\n"
        << Interface("CAE", kCaePort) << Interface("IO", kIoPort) << Interface("MON", kMonPort)
        << "  </Interfaces>\n</VORNConfig>\n";
  }

  static std::string Interface(const std::string& name, int port) {
    return "    <Interface Name=\"" + name + "\" Port=\"" + std::to_string(port) +
           R"(" InpSeparator="\r\n" OutSeparator="\r\n"/>)" + "\n";
  }

  pid_t BackgroundNumber() {
    pid_t number = 0;
    const TIME limit = CLOCK::now() + kAnswerLimit;
    while (!(std::ifstream(kPidFile) >> number) && CLOCK::now() < limit) {
      m_loop.RunFor(kLook);
    }
    if (number == 0) {
      throw FAILURE("the daemon has left no pid file");
    }
    return number;
  }

  void Ask(const std::string& command, const std::string& answer) {
    m_operator->DropAll();
    m_operator->Send(command + "\r\n");
    m_operator->Await(answer, kAnswerLimit);
    // The prompt ends it.
    m_operator->Await(">\r\n", kAnswerLimit);
  }

  std::unique_ptr<CLIENT> m_operator;
  std::unique_ptr<CLIENT> m_monitor;
};

}  // namespace

std::string SUBJECT::Command(std::uint8_t card, std::uint32_t number) const {
  std::array<char, 16> line{};
  const int size =
      std::snprintf(line.data(), line.size(), "a%XsHS%06X\r\n", static_cast<unsigned>(card),
                    static_cast<unsigned>(number & 0xFFFFFFU));
  return {line.data(), static_cast<std::size_t>(size)};
}

std::unique_ptr<SUBJECT> MakeFloor(const PLACES& places) {
  return std::make_unique<FLOOR>(places);
}

std::unique_ptr<SUBJECT> MakeStub(const PLACES& places) {
  return std::make_unique<STUB_RUN>(places);
}

std::unique_ptr<SUBJECT> MakeDaemon(const PLACES& places, double& othersPercent) {
  return std::make_unique<DAEMON>(places, othersPercent);
}

std::uint32_t NumberOf(const BUS_END::OUTPUT& output) {
  std::uint32_t number = 0;
  for (std::size_t at = 1; at < output.data.size(); ++at) {
    number = number << 8U | output.data[at];
  }
  return number;
}

}  // namespace bench
