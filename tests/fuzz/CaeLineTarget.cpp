// Lines of the operator. The input: a byte of choices, a byte that turns the rack, then lines,
// apart by zero bytes. Every line gets exactly the documented kind of answer, and the bus only
// whole requests.

#include "tests/fuzz/support/Check.h"
#include "tests/fuzz/support/Input.h"
#include "tests/fuzz/support/Rack.h"
#include "tests/support/CaeVectors.h"
#include "vorn/master/CaeInterpreter.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

namespace {

using fuzz::Require;
using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words
using LINES = std::vector<std::string>;

bool Matches(const VECTOR& command, const std::string& line, const std::string& separator) {
  const bool contains = line.find(command.keyword) != std::string::npos;
  switch (command.match) {
    case MATCH::kExact:
      return line == command.keyword + separator;
    case MATCH::kContains:
      return contains && line.find(separator) != std::string::npos;
    case MATCH::kAlone:
      return contains;
    case MATCH::kNever:
      break;
  }
  return false;
}

/// The hexadecimal digit behind the first `mark`.
std::size_t DigitBehind(const std::string& line, char mark) {
  const std::size_t at = line.find(mark);
  if (at == std::string::npos || at + 1 == line.size()) {
    return 0;
  }
  const std::string_view digits = "0123456789ABCDEF";
  const std::size_t digit = digits.find(line[at + 1]);
  return digit == std::string_view::npos ? 0 : digit;
}

// --- one run ------------------------------------------------------------------------------------

/// How cards answer, by a choice of the input.
enum class CARDS_SAY { kYes, kNothing, kShort, kAnotherAddress };

class OPERATOR final : private DAEMON_CONTROL {
 public:
  /// `choices`: two bits each for the separators of input and of output, and for CARDS_SAY.
  OPERATOR(std::uint8_t choices, std::uint8_t turn)
      : m_descriptor(Descriptor(choices)),
        m_cardsSay(static_cast<CARDS_SAY>(choices >> 4U & 3U)),
        m_turn(turn) {
    fuzz::Fill(m_cards, m_turn);
  }

  void Type(const std::string& line) {
    m_pauses = 0;
    const LINES expected = Expected(line);
    m_interpreter.InterpretCaeCommand(line);
    std::size_t at = 0;
    while (!m_output.IsEmpty()) {
      const std::string message = fuzz::TextOf(m_output.DeQueue());
      Require(message.size() <= kTextLimit, "no text is longer than 999", message);
      Require(at < expected.size(), "no answer but the documented ones", message);
      RequireAnswer(message, expected[at], line);
      ++at;
    }
    Require(at == expected.size(), "every documented answer comes", line);
    Require(m_general.IsEmpty(), "no request without a pause for its answer", line);
    while (!m_inputLines.IsEmpty()) {
      const std::string repeated = fuzz::TextOf(m_inputLines.DeQueue());
      Require(
          repeated.size() == 7 && repeated[0] == 'a' && repeated[2] == 'b' && repeated[4] == 'd',
          "an input line is one", repeated);
    }
  }

 private:
  static INTERFACE_DESCRIPTOR Descriptor(std::uint8_t choices) {
    constexpr std::array<const char*, 4> kSeparators = {"\r\n", "\n", "", "|#"};
    INTERFACE_DESCRIPTOR descriptor;
    descriptor.inpSeparator = kSeparators.at(choices & 3U);
    descriptor.outSeparator = kSeparators.at(choices >> 2U & 3U);
    return descriptor;
  }

  /// The answers to come, whole ones; "*" at the end: and whatever follows.
  LINES Expected(const std::string& line) {
    LINES expected;
    bool known = false;
    for (const VECTOR& command : kVectors) {
      if (IsFirst(command) && Matches(command, line, m_descriptor.inpSeparator)) {
        known = true;
        AddAnswers(command, line, expected);
      }
    }
    expected.push_back(known ? ">" + m_descriptor.outSeparator
                             : kUnknown + m_descriptor.outSeparator + ">" +
                                   m_descriptor.outSeparator);
    return expected;
  }

  void AddAnswers(const VECTOR& command, const std::string& line, LINES& expected) {
    const std::size_t address = DigitBehind(line, ':');
    const std::uint8_t code =
        m_cards.With(address, [](const PERIFCARD& card) { return card.typeCode; });
    const INPUT_CARD* const input = FindInputCard(code);
    const auto bad = [&](const char* text) {
      expected.push_back(text + m_descriptor.outSeparator);
    };
    const auto good = [&] {
      for (const char* const text : {command.answer, command.result}) {
        if (text != nullptr) {
          expected.push_back(std::string(text).substr(0, std::string(text).find('|')) + '*');
        }
      }
    };
    switch (command.does) {
      case DOES::kAsksCard:
        if (command.cardType != 0 && command.cardType != code) {
          return bad(command.refusal);
        }
        return m_cardsSay == CARDS_SAY::kYes || m_cardsSay == CARDS_SAY::kShort
                   ? good()
                   : bad(command.failure);
      case DOES::kSwitchesCard:
        return input != nullptr ? good() : bad(command.refusal);
      case DOES::kRepeatsInput:
        if (input == nullptr || input->blocks == 0) {
          return bad(command.refusal);
        }
        return DigitBehind(line, '=') < input->blocks ? good() : bad(command.failure);
      case DOES::kSetsSpeed:
        expected.emplace_back("?SPEED");
        return;
      default:
        break;
    }
    good();
    switch (command.does) {
      case DOES::kListsCards:
        return AddAddresses(
            "DTI:0x", [](std::size_t) { return true; }, expected);
      case DOES::kListsPolls:
        return AddAddresses(
            "PTI:0x",
            [&](std::size_t each) {
              return FindInputCard(m_cards.With(
                         each, [](const PERIFCARD& card) { return card.typeCode; })) != nullptr;
            },
            expected);
      case DOES::kShowsHelp:
        expected.insert(expected.end(), kHelpLines - 1, "*");
        return;
      case DOES::kShowsExamples:
        expected.insert(expected.end(), kExampleLines - 1, "*");
        return;
      default:
        return;
    }
  }

  template <class WANTED>
  static void AddAddresses(const std::string& begin, WANTED&& wanted, LINES& expected) {
    for (std::size_t address = 0; address < bus::kAddresses; ++address) {
      if (wanted(address)) {
        expected.push_back(begin + "0123456789ABCDEF"[address] + ":*");
      }
    }
  }

  void RequireAnswer(const std::string& message, const std::string& expected,
                     const std::string& line) const {
    const std::string& end = m_descriptor.outSeparator;
    if (expected == "?SPEED") {
      Require(message == kOutOfRange + end || message.starts_with("CIA: SPEED IS SET to "),
              "SPEED is set or refused", line + " -> " + message);
    } else if (expected.ends_with('*')) {
      Require(message.starts_with(expected.substr(0, expected.size() - 1)),
              "the documented answer comes", line + " -> " + message);
      Require(message.ends_with(end) || message.size() == kTextLimit,
              "an answer ends with the separator", message);
    } else {
      Require(message == expected, "the documented answer comes", line + " -> " + message);
    }
  }

  // The daemon.
  void SetThreadDelays(std::int32_t delayUs) override {
    Require(delayUs >= 1 && delayUs <= 5000, "a speed of 1 to 100 is a delay of 5000 to 1 us");
  }
  bool Polling() override { return m_polling; }
  void SetPolling(bool on) override { m_polling = on; }
  void CloseCaeConnection() override { Require(m_pauses > 0, "the farewell has time to go out"); }

  /// The bus has its turn.
  void PauseSeconds(int seconds) override {
    ++m_pauses;
    Require(seconds == 1, "pauses are of one second");
    while (!m_general.IsEmpty()) {
      TakeRequest(fuzz::TextOf(m_general.DeQueue()));
    }
  }

  void TakeRequest(const std::string& body) {
    if (body == "0") {
      fuzz::Fill(m_cards, m_turn);
      return;
    }
    Require(body.size() >= 4 && body.size() <= 5 && body[0] == 'P', "a whole request", body);
    const auto address = static_cast<std::size_t>(body[1]);
    Require(address < bus::kAddresses, "an address is 0 to 15", body);
    Require(body[2] == '\x01' || body[2] == '\x40', "a write or a read", body);
    if (m_cardsSay == CARDS_SAY::kNothing) {
      return;
    }
    const std::size_t answering =
        m_cardsSay == CARDS_SAY::kAnotherAddress ? (address + 1) % bus::kAddresses : address;
    m_cards.With(answering, [&](PERIFCARD& card) {
      card.queryBytes.fill(0);
      card.queryBytes[0] = 'Q';
      card.queryBytes[1] = static_cast<std::uint8_t>(answering);
      card.queryBytes[3] = m_cardsSay == CARDS_SAY::kShort ? 0 : 0xA5;
    });
  }

  const INTERFACE_DESCRIPTOR m_descriptor;
  const CARDS_SAY m_cardsSay;
  const std::uint8_t m_turn;
  VOQUEUE m_output;
  VOQUEUE m_general;
  VOQUEUE m_inputLines;
  CARD_TABLE m_cards;
  bool m_polling = false;
  int m_pauses = 0;
  CAE_INTERPRETER m_interpreter{
      m_descriptor, m_output, [this](QList body) { m_general.ToQueue(std::move(body)); },
      m_inputLines, m_cards,  static_cast<DAEMON_CONTROL&>(*this)};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::INPUT input(data, size);
  // '0' in both, as the seeds have it: the default separators, cards that answer, the rack as it
  // is.
  const auto choices = static_cast<std::uint8_t>(input.Byte() - '0');
  OPERATOR console(choices, static_cast<std::uint8_t>(input.Byte() - '0'));
  for (const std::string& line : fuzz::Reads(input.Rest())) {
    console.Type(line);
  }
  return 0;
}

}  // namespace vorn
