#include "tests/soak/Operator.h"

#include "tests/soak/IoLines.h"

#include <stdexcept>
#include <string_view>

namespace soak {

namespace {

using std::chrono::milliseconds;

/// The operator's longest wait: a line behind one that waits for cards, each for a second or two.
constexpr milliseconds kOperatorLimit{30'000};

constexpr const char* kPrompt = ">\r\n\r";

struct QUESTION {
  std::uint64_t every;  // of so many turns it is asked in one
  const char* command;
  const char* expected;  // in the reply, whether or not a card answers
};
/// The first whose turn it is. Commands that wait for a card stop the master loop for a second.
constexpr QUESTION kQuestions[] = {
    {997, "REBOOT:E", "CI"},
    {499, "GETANMASK:F", "CI"},
    {251, "SETSCB3:0=7F", "CI"},
    {31, "HELP", "END OF CAE"},
    {13, "DISCOVER", "DTI:0xF:"},
    {7, "POLLSTATE", "CIA: GLOBAL POLLING IS"},
    {5, "NONSENSE", "CIE: UNKNOWN COMMAND"},
    {1, "DRVVER", "CIA: DRIVER VERSION"},
};

constexpr const char* kListedCards[] = {
    "DTI:0x0:6 channel RC", "DTI:0x1:3 channel DC", "DTI:0x3:16 channel", "DTI:0x5:16 channel",
    "DTI:0x8:KEYMX",        "DTI:0x9:IR",           "DTI:0xE:ALPHA",      "DTI:0xF:6 channel AN"};

constexpr std::string_view kReport = "COE:Illegal command -> ";

bool IsCaeLine(const std::string& line) {
  if (line.starts_with(kReport)) {
    return IsIoLine(line.substr(kReport.size()));
  }
  return line.find("COE:") == std::string::npos && line.find("flood") == std::string::npos;
}

}  // namespace

OPERATOR::OPERATOR(int port, const WEATHER& weather)
    : CLIENT(weather), m_port(port), m_lines(std::string(kReport), IsCaeLine) {
}

void OPERATOR::Connect() {
  std::string before;
  m_cae.emplace(ConnectTo(m_port, "(Type HELP for help)\r\n>\r\n\r", before));
  m_lines.Restart();
  m_lines.Take(before);
}

void OPERATOR::Reset() {
  if (m_cae) {
    m_cae->Reset();
  }
}

std::string OPERATOR::Ask(const std::string& command, const std::string& expected,
                          std::string& reply) {
  m_cae->Send(command + "\r\n");
  reply = ReadUntil(expected);
  if (!reply.ends_with(expected)) {
    throw std::runtime_error("CAE did not answer " + command);
  }
  const std::string rest = ReadUntil(kPrompt);
  reply += rest;
  if (!rest.ends_with(kPrompt)) {
    throw std::runtime_error("CAE did not end its answer to " + command);
  }
  return {};
}

std::string OPERATOR::ReadUntil(const std::string& expected) {
  std::string text = m_cae->ReadUntil(expected, kOperatorLimit);
  m_lines.Take(text);
  return text;
}

std::string OPERATOR::FindCards() {
  std::string reply;
  Ask("FORCEDISCOVER", "FORCED DISCOVER LIST:", reply);
  for (const char* card : kListedCards) {
    if (reply.find(card) == std::string::npos) {
      return std::string("the line ") + card;
    }
  }
  return {};
}

std::string OPERATOR::Exchange() {
  if (m_isRediscovery) {
    const std::string missing = FindCards();
    if (missing.empty()) {
      m_isRediscovery = false;
      ++m_rediscoveries;
    }
    return missing;
  }
  ++m_turn;
  std::string reply;
  for (const QUESTION& question : kQuestions) {
    if (m_turn % question.every == 0) {
      return Ask(question.command, question.expected, reply);
    }
  }
  return {};
}

}  // namespace soak
