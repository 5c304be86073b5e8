#include "tests/fuzz/SessionMessages.h"

#include "tests/fuzz/support/Bus.h"
#include "vorn/base/QList.h"
#include "vorn/master/DaemonControl.h"
#include "vorn/master/HelpTexts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <string_view>
#include <vector>

namespace vorn {

namespace fuzz {

namespace {

/// The end of every line from the daemon, but for the copies on MON.
constexpr std::string_view kEnd = "\r\n\r";

bool IsOperatorsText(std::string_view text) {
  static const std::set<std::string_view> kWhole = [] {
    std::set<std::string_view> texts = {">", "DISCOVER LIST:", "FORCED DISCOVER LIST:", kFarewell,
                                        "CIE: UNKNOWN COMMAND \r\n>"};
    for (const auto& lines : {QuickHelp(), IoExamples()}) {
      texts.insert(lines.begin(), lines.end());
    }
    return texts;
  }();
  constexpr std::array<std::string_view, 12> kBegins = {
      "CIA: ",  "CIE: ",  "COE:Illegal command -> ",
      "DTI:0x", "PTI:0x", "RBT:0x",
      "AMS:0x", "AMV:0x", "SPS:0x",
      "SPG:0x", "MPS:0x", "MSR"};
  return kWhole.count(text) != 0 ||
         std::any_of(kBegins.begin(), kBegins.end(),
                     [&](std::string_view begin) { return text.starts_with(begin); });
}

/// Whether the stream is made of messages: each position from which one begins is found, and from
/// it those behind every message that can begin there.
template <class LENGTHS>
void RequireMessages(const RECEIVED& received, std::string_view name, LENGTHS&& lengthsAt) {
  const std::string_view stream = received.bytes;
  std::vector<bool> begins(stream.size() + 1);
  begins[0] = true;
  for (std::size_t at = 0; at < stream.size(); ++at) {
    if (begins[at]) {
      for (const std::size_t length : lengthsAt(stream.substr(at))) {
        begins.at(at + length) = true;
      }
    }
  }
  Require(begins.back() || received.torn, name, stream);
}

/// An answer may hold what was typed, so every end is one.
std::vector<std::size_t> LengthOfAnswer(std::string_view stream) {
  constexpr std::string_view kGreeting =
      "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n\r";
  if (stream.starts_with(kGreeting)) {
    return {kGreeting.size()};
  }
  std::vector<std::size_t> lengths;
  for (std::size_t end = stream.find(kEnd); end != std::string_view::npos && end <= kTextLimit;
       end = stream.find(kEnd, end + 1)) {
    if (IsOperatorsText(stream.substr(0, end))) {
      lengths.push_back(end + kEnd.size());
      break;
    }
  }
  return lengths;
}

std::vector<std::size_t> LengthOfInput(std::string_view stream) {
  const std::size_t end = stream.find(kEnd);
  const std::string_view text = stream.substr(0, end);
  const bool good = end != std::string_view::npos && (text == "VORN IO interface is ready" ||
                                                      text == kFarewell || IsInputLine(text));
  return good ? std::vector<std::size_t>{end + kEnd.size()} : std::vector<std::size_t>{};
}

std::vector<std::size_t> LengthsOfCopies(std::string_view stream, const std::string& ioBytes) {
  std::vector<std::size_t> lengths;
  constexpr std::string_view kGreeting = "VORN MON interface is ready\r\n\r";
  if (stream.starts_with(kGreeting)) {
    lengths.push_back(kGreeting.size());
  }
  if (stream.size() >= 10 && IsInputLine(stream.substr(0, 7)) && stream.substr(7, 3) == kEnd) {
    lengths.push_back(10);
  }
  // Any piece of what IO has sent, with the closing carriage return.
  constexpr std::size_t kLongestCopy = 256;
  for (std::size_t end = stream.find('\r'); end < kLongestCopy; end = stream.find('\r', end + 1)) {
    if (ioBytes.find(stream.substr(0, end)) != std::string::npos) {
      lengths.push_back(end + 1);
    }
  }
  return lengths;
}

}  // namespace

void RequireAnswers(const RECEIVED& received) {
  RequireMessages(received, "the operator receives answers and reports", LengthOfAnswer);
}

void RequireInputs(const RECEIVED& received) {
  RequireMessages(received, "the IO client receives input lines", LengthOfInput);
}

void RequireCopies(const RECEIVED& received, const std::string& ioBytes) {
  RequireMessages(received, "the monitor receives copies",
                  [&](std::string_view stream) { return LengthsOfCopies(stream, ioBytes); });
}

}  // namespace fuzz

}  // namespace vorn
