// What a client's far end may say and do. The input: a byte of choices, then steps, each a byte
// (its low three bits count, so a seed has letters) and what belongs to it. Nothing is delivered
// ahead of the greeting, what is written is what was sent, each request has one result, nothing
// grows, and the session asks for no time that is over already without doing something then.

#include "client/CaeSession.h"
#include "tests/fuzz/ClientSessionNetwork.h"
#include "tests/fuzz/support/Check.h"
#include "tests/fuzz/support/Input.h"

#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>

namespace client {

namespace {

using fuzz::CONNECTING;
using fuzz::NETWORK;
using vorn::fuzz::INPUT;
using vorn::fuzz::Require;
using STATE = SESSION_STATE;

/// More than any time and any readable piece makes the session need to come to rest.
constexpr int kMostHandles = 100;
constexpr std::size_t kMostReadAtOnce = std::size_t{64} * 1024;
constexpr std::size_t kMostAsked = 200;

struct COMMAND {
  CAE_COMMAND command;
  const char* line;
  const char* answer;
};
constexpr std::array<COMMAND, 8> kCommands = {{
    {CAE_COMMAND::kDriverVersion, "DRVVER", "CIA: DRIVER VERSION 1.20\r\n\r>\r\n\r"},
    {CAE_COMMAND::kPollState, "POLLSTATE",
     "CIA: GLOBAL POLLING IS ENABLED\r\n\rPTI:0x3:ON\r\n\r>\r\n\r"},
    {CAE_COMMAND::kGetMask, "GETANMASK:F",
     "CIA: MASK is GOT from card\r\n\rAMV:0xF:0x2A\r\n\r>\r\n\r"},
    {CAE_COMMAND::kListCards, "DISCOVER", "DISCOVER LIST:\r\n\rDTI:0x0:EMPTY\r\n\r>\r\n\r"},
    {CAE_COMMAND::kTyped, "HELLO", "CIE: UNKNOWN COMMAND \r\n>\r\n\r"},
    {CAE_COMMAND::kExit, "EXIT", "VORN: Bye Bye...\r\n\r"},
    {CAE_COMMAND::kTyped, "EXIT", ">\r\n\r"},
    {CAE_COMMAND::kReboot, "REBOOT:5", "COE:Illegal command -> aElXX\r\n\r>\r\n\r"},
}};

ENDPOINT SomeEndpoint() {
  ENDPOINT endpoint;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(5001);
  std::memcpy(&endpoint.address, &address, sizeof(address));
  endpoint.size = sizeof(address);
  return endpoint;
}

SESSION_SETTINGS SettingsOf(std::uint8_t choices) {
  SESSION_SETTINGS settings;
  settings.endpoints.assign((choices & 4U) != 0 ? 2 : 1, SomeEndpoint());
  settings.givesUp = (choices & 8U) != 0;
  if ((choices & 16U) != 0) {
    settings.outSeparators = {"\n", ";"};
  }
  return settings;
}

INTERFACE InterfaceOf(std::uint8_t choices) {
  return kInterfaces[std::min<std::size_t>(choices & 3U, 2)];
}

/// A session of any interface, and its owner.
class OWNER {
 public:
  explicit OWNER(std::uint8_t choices)
      : m_cae(InterfaceOf(choices) == INTERFACE::kCae
                  ? std::make_unique<CAE_SESSION>(SettingsOf(choices))
                  : nullptr),
        m_plain(m_cae ? nullptr
                      : std::make_unique<SESSION>(InterfaceOf(choices), SettingsOf(choices))) {
    Connection().OnState([this](STATE state) {
      if (state == STATE::kReady) {
        m_sent.clear();
      }
      Act();
    });
    if (m_cae) {
      m_cae->OnRefusal([this](const REFUSAL& refusal) {
        TakeText(refusal.line);
        Act();
      });
    } else {
      m_plain->OnLine([this](std::string_view line) {
        TakeText(line);
        Act();
      });
    }
    Connection().Start(m_now);
    Settle();
  }

  ~OWNER() {
    m_acts = 0;
    Connection().Start(m_now);  // what is asked of an idle one waits for that
    Connection().End();
    Require(m_results == m_asked, "each request has its result in the end");
  }
  OWNER(const OWNER&) = delete;
  OWNER& operator=(const OWNER&) = delete;

  void Step(INPUT& input) {
    switch (input.Byte() & 7U) {
      case 1:  // a
        m_network.Say(input.Text(input.Byte()));
        break;
      case 2:  // b
        m_network.Say(GreetingOf(InterfaceOf(input.Byte())));
        break;
      case 3:  // c
        m_network.Close((input.Byte() & 1U) != 0);
        break;
      case 4: {  // d
        constexpr std::chrono::milliseconds kUnit(100);
        m_now += input.Byte() * kUnit;
        break;
      }
      case 5:  // e
        Send(input.Byte());
        break;
      case 6:  // f
        m_network.TakeOfAWrite(input.Byte() * std::size_t{8});
        break;
      case 7: {  // g
        const std::uint8_t choice = input.Byte();
        m_network.Let(static_cast<CONNECTING>((choice & 15U) % 7));
        m_acts = choice >> 4U;
        break;
      }
      default:  // h
        m_network.Say(kCommands.at(input.Byte() & 7U).answer);
    }
    Settle();
  }

 private:
  SESSION& Connection() { return m_cae ? m_cae->Connection() : *m_plain; }
  TIME Deadline() { return m_cae ? m_cae->Deadline() : m_plain->Deadline(); }

  /// Handles all that there is to handle at this time.
  void Settle() {
    int handles = 0;
    do {
      Require(++handles < kMostHandles, "it comes to rest");
      const std::size_t before = m_network.Read().size();
      if (m_cae) {
        m_cae->Handle(m_now);
      } else {
        m_plain->Handle(m_now);
      }
      // Another connection has its own count.
      Require(m_network.Read().size() <= before + kMostReadAtOnce, "a read is bounded");
      Look();
    } while (Deadline() <= m_now || HasEvents());
  }

  bool HasEvents() {
    const short events = Connection().Events();
    return m_network.IsOpen() && m_network.HasEvents(events);
  }

  void Look() {
    const STATE state = Connection().State();
    const bool isOpen =
        state != STATE::kIdle && state != STATE::kFailed && state != STATE::kPausing;
    Require(isOpen == m_network.IsOpen() && isOpen == (Connection().Descriptor() != -1),
            "it is open as its state says");
    Require((state == STATE::kFailed) <= (Connection().Trouble() != TROUBLE::kNone),
            "a failure has a reason");
    Require(Connection().Unsent() < SESSION::kMostUnsent + 256, "what waits is bounded");
    Require(m_results + (m_cae ? m_cae->Waiting() : 0) == m_asked, "each request has one result");
    if (!m_cae) {
      const std::string& written = m_network.Written();
      Require(m_sent.compare(0, written.size(), written) == 0, "what is written was sent", written);
    }
    static_cast<void>(Connection().Explain());
  }

  void TakeText(std::string_view text) {
    Require(Connection().State() == STATE::kReady, "nothing is delivered that is not ready");
    Require(!text.empty() && text.size() <= LINE_SPLITTER::kLongestLine, "a line has its bounds");
    Require(m_network.Read().find(GreetingOf(Connection().Interface())) != std::string::npos,
            "nothing is delivered ahead of the greeting", text);
  }

  void Send(std::uint8_t choice) {
    const COMMAND& command = kCommands.at(choice & 7U);
    if (!m_cae) {
      // The last is a flood.
      for (int i = 0; i < ((choice & 7U) == 7 ? 10000 : 1); ++i) {
        if (Connection().Send(command.line)) {
          m_sent += command.line;
          m_sent += "\r\n";
        }
      }
      return;
    }
    if (m_asked >= kMostAsked) {
      return;
    }
    ++m_asked;
    m_cae->Ask(
        {command.command, command.line},
        [this, isGiven = false](const CAE_RESULT&) mutable {
          Require(!isGiven, "a request has one result");
          isGiven = true;
          ++m_results;
          Act();
        },
        std::chrono::milliseconds(100) * (choice >> 3U));
  }

  /// What a handler does, in turn, as often as it was told to.
  void Act() {
    if (m_acts == 0) {
      return;
    }
    --m_acts;
    switch (m_acts % 5) {
      case 0:
        Connection().End();
        break;
      case 1:
        Connection().Start(m_now);
        break;
      case 2:
        Connection().Finish(m_now);
        break;
      default:
        Send(static_cast<std::uint8_t>(m_acts + 8));
    }
  }

  NETWORK m_network;
  TIME m_now{std::chrono::hours(1)};
  std::unique_ptr<CAE_SESSION> m_cae;
  std::unique_ptr<SESSION> m_plain;
  std::string m_sent;  // since it is ready
  std::size_t m_asked = 0;
  std::size_t m_results = 0;
  int m_acts = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  INPUT input(data, size);
  // '0', as the seeds have it: CAE, one endpoint, for good.
  OWNER owner(static_cast<std::uint8_t>(input.Byte() - '0'));
  while (!input.IsEmpty()) {
    owner.Step(input);
  }
  return 0;
}

}  // namespace client
