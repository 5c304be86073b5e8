// Messages of the IO client. The input: a byte of choices, a byte that turns the rack, then reads,
// apart by zero bytes. Each command of a read gets its one frame, or its one report to the
// operator; no frame is longer than the cards take.

#include "tests/fuzz/support/Check.h"
#include "tests/fuzz/support/Input.h"
#include "tests/fuzz/support/Rack.h"
#include "vorn/master/OutCommandParser.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

namespace {

using fuzz::Require;

/// A frame without its length byte is 38 bytes at most: that is what the cards' buffers hold.
constexpr std::size_t kLongestBody = 38;
constexpr std::size_t kConsoleLimit = 327680;  // bytes of message, one more for each
constexpr std::size_t kLongestReport = 2000;

// --- what the manual says -----------------------------------------------------------------------

char At(const std::string& text, std::size_t position) {
  return position < text.size() ? text[position] : '\0';
}

int Digit(char digit) {
  const std::size_t value = std::string_view("0123456789ABCDEF").find(digit);
  return value == std::string_view::npos ? 0 : static_cast<int>(value);
}

/// Two digits; of one alone, that digit.
char Byte(const std::string& text, std::size_t position) {
  if (position + 1 < text.size()) {
    return static_cast<char>(Digit(text[position]) * 16 + Digit(text[position + 1]));
  }
  return static_cast<char>(Digit(At(text, position)));
}

std::size_t OutputBytes(std::uint8_t cardType) {
  switch (cardType) {
    case 3:
      return 2;
    case 5:
      return 6;
    case 6:
      return 4;
    default:
      return 0;
  }
}

/// What a command is to have led to.
struct RESULT {
  bool refused = true;
  std::size_t address = 0;
  std::string body;
};

/// The bus as the IO client may picture it.
class MANUAL {
 public:
  explicit MANUAL(std::uint8_t turn) {
    for (std::size_t i = 0; i < m_cards.size(); ++i) {
      m_cards.at(i) = fuzz::CardAt(i, turn);
      const char preset = m_cards.at(i) == 3 ? '\xFF' : m_cards.at(i) == 5 ? '\x80' : '\0';
      m_values.at(i) = std::string(OutputBytes(m_cards.at(i)), preset);
      m_values.at(i).resize(16);
    }
  }

  RESULT Take(const std::string& command) {
    const auto address = static_cast<std::size_t>(Digit(At(command, 1)));
    if (At(command, 0) != 'a') {
      return {};
    }
    if (At(command, 2) == 'b' && At(command, 4) == 'd') {
      return Block(command, address);
    }
    if (At(command, 2) == 's' && m_cards.at(address) == 10) {
      return Stream(command, address);
    }
    if (At(command, 2) == 'l' && m_cards.at(address) == 9) {
      return Lcd(command, address);
    }
    return {};
  }

 private:
  static RESULT Frame(std::size_t address, const std::string& data) {
    const std::string head = {'\x10', static_cast<char>(address), static_cast<char>(data.size())};
    return {false, address, head + data};
  }

  RESULT Block(const std::string& command, std::size_t address) {
    if (command.size() < 6) {
      return {};
    }
    std::string& values = m_values.at(address);
    values.at(static_cast<std::size_t>(Digit(command[3]))) = Byte(command, 5);
    const std::size_t count = OutputBytes(m_cards.at(address));
    return count == 0 ? RESULT{false, address, ""} : Frame(address, values.substr(0, count));
  }

  static RESULT Stream(const std::string& command, std::size_t address) {
    const std::size_t count = command.size() < 5 ? 0 : (command.size() - 5) / 2;
    if (command.substr(3, 2) != "HS" || count > 23) {
      return {};
    }
    std::string data = {static_cast<char>(count)};
    for (std::size_t i = 0; i < count; ++i) {
      data += Byte(command, 5 + 2 * i);
    }
    return Frame(address, data);
  }

  static RESULT Lcd(const std::string& command, std::size_t address) {
    if (command.find("PAp") != std::string::npos) {
      if (command.size() < 11 || command.size() > 11 + 31) {
        return {};
      }
      const std::string text = command.substr(11);
      return Frame(address, std::string{'\x09', Byte(command, 6), Byte(command, 8)} + text + '\0');
    }
    constexpr std::array<std::string_view, 7> kControls = {"CL", "LO", "LF", "CO",
                                                           "CF", "BO", "BF"};
    const std::string control = command.size() > 3 ? command.substr(3, 2) : "";
    const auto* const found = std::find(kControls.begin(), kControls.end(), control);
    if (found == kControls.end()) {
      return {};
    }
    return Frame(address, {static_cast<char>(found - kControls.begin())});
  }

  std::array<std::uint8_t, bus::kAddresses> m_cards{};
  std::array<std::string, bus::kAddresses> m_values;
};

// --- one run ------------------------------------------------------------------------------------

class CLIENT {
 public:
  CLIENT(std::uint8_t choices, std::uint8_t turn)
      : m_separator(Separators().at(choices & 3U)),
        m_operatorListens((choices & 4U) == 0),
        m_manual(turn) {
    fuzz::Fill(m_cards, turn);
  }

  void Send(const std::string& read) {
    Require(m_parser.ParseOutCommand(fuzz::ListOf(read)) == 1, "a message is always taken");
    for (const std::string& command : Commands(read)) {
      const RESULT result = m_manual.Take(command);
      if (result.refused) {
        m_reports.push_back(
            ("COE:Illegal command -> " + command + m_separator).substr(0, kTextLimit));
        m_reportBytes += m_reports.back().size() + m_separator.size() + 3;
        continue;
      }
      RequireFrame(result, command);
    }
    for (VOQUEUE& queue : m_bus) {
      Require(queue.IsEmpty(), "a command makes one frame", read);
    }
    Require(m_console.Bytes() <= kConsoleLimit + kLongestReport, "reports do not pile up");
    if (m_operatorListens) {
      ReadReports();
    }
  }

  void ReadReports() {
    while (!m_console.IsEmpty()) {
      const std::string report = fuzz::TextOf(m_console.DeQueue());
      Require(!m_reports.empty() && report == m_reports.front(), "a report is as documented",
              report);
      m_reports.pop_front();
      Require(fuzz::TextOf(m_console.DeQueue()) == ">" + m_separator, "a prompt follows it");
    }
    Require(m_reports.empty() || m_reportBytes > kConsoleLimit, "every refusal is reported");
    m_reports.clear();
    m_reportBytes = 0;
  }

 private:
  static const std::array<std::string, 4>& Separators() {
    static const std::array<std::string, 4> kSeparators = {"\r\n", "\n", "", "a5"};
    return kSeparators;
  }

  std::vector<std::string> Commands(std::string text) const {
    std::vector<std::string> commands;
    while (!text.empty()) {
      const std::size_t end = m_separator.empty() ? std::string::npos : text.find(m_separator);
      if (end != 0) {
        commands.push_back(text.substr(0, end));
      }
      text.erase(0, end == std::string::npos ? end : end + m_separator.size());
    }
    return commands;
  }

  void RequireFrame(const RESULT& result, const std::string& command) {
    VOQUEUE& queue = m_bus.at(result.address);
    Require(!queue.IsEmpty(), "a good command makes a frame", command);
    const std::string body = fuzz::TextOf(queue.DeQueue());
    Require(body == result.body, "the frame is as documented",
            command + " -> " + body + " not " + result.body);
    Require(body.size() <= kLongestBody, "a frame fits a card's buffer", body);
    Require(body.empty() || static_cast<std::size_t>(body[2]) == body.size() - 3,
            "a frame's count is right", body);
  }

  const std::string m_separator;
  const bool m_operatorListens;
  MANUAL m_manual;
  CARD_TABLE m_cards;
  std::array<VOQUEUE, bus::kAddresses> m_bus;
  VOQUEUE m_console;
  LOGGER m_logger;
  std::deque<std::string> m_reports;  // to come
  std::size_t m_reportBytes = 0;      // since the operator has read
  OUT_COMMAND_PARSER m_parser{
      m_separator, m_separator,
      m_cards,     [this](std::size_t address, QList body) { m_bus.at(address).ToQueue(body); },
      m_console,   m_logger};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::INPUT input(data, size);
  // '0' in both, as the seeds have it: the default separators, the rack as it is.
  const auto choices = static_cast<std::uint8_t>(input.Byte() - '0');
  CLIENT client(choices, static_cast<std::uint8_t>(input.Byte() - '0'));
  for (const std::string& read : fuzz::Reads(input.Rest())) {
    client.Send(read);
  }
  client.ReadReports();
  return 0;
}

}  // namespace vorn
