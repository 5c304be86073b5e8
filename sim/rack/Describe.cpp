#include "sim/rack/Describe.h"

#include "sim/rack/Card.h"
#include "sim/rack/Protocol.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

/// "" for a complete frame, else what is wrong with its length.
std::string LengthRemark(const Bytes& frame) {
  const std::size_t announced = frame[0] + std::size_t{1};
  if (frame.size() < announced) {
    return " (" + std::to_string(announced - frame.size()) + " bytes missing)";
  }
  if (frame.size() > announced) {
    return " (" + std::to_string(frame.size() - announced) + " bytes too many)";
  }
  return {};
}

std::string Rest(const Bytes& frame, std::size_t from) {
  return frame.size() <= from
             ? std::string("nothing")
             : ToHex(Bytes(frame.begin() + static_cast<std::ptrdiff_t>(from), frame.end()));
}

std::string CardText(std::uint8_t address) {
  return "card " + (address < kSlots ? AddressText(address) : ToHex(address));
}

std::string ParameterText(const Bytes& frame) {
  const std::string card = CardText(frame[2]);
  if (frame.size() < 5) {
    return "parameter request to " + card + ", unfinished";
  }
  if (frame[3] == request::kRead) {
    return "read parameter " + ToHex(frame[4]) + " of " + card;
  }
  if (frame[3] != request::kWrite) {
    return "unknown parameter request " + Rest(frame, 3) + " to " + card;
  }
  if (frame.size() > 5) {
    return "write parameter " + ToHex(frame[4]) + " of " + card + ": " + Rest(frame, 5);
  }
  for (const ACTION& action : kActions) {
    if (action.code == frame[4] && action.kind == ACTION_KIND::kReboot) {
      return "reboot " + card;
    }
  }
  return "action " + ToHex(frame[4]) + " of " + card;
}

std::string RequestText(const Bytes& frame) {
  const std::uint8_t code = frame[1];
  if (code == request::kIdentify) {
    return "identify";
  }
  if (code == request::kHandshake) {
    const bool right =
        frame.size() > kHandshakeBody.size() &&
        std::equal(kHandshakeBody.begin(), kHandshakeBody.end(), std::next(frame.begin()));
    return right ? "handshake" : "wrong handshake";
  }
  if (frame.size() < 3) {
    return "unknown request";
  }
  switch (code) {
    case request::kOutput:
      return "output to " + CardText(frame[2]) + ": " + Rest(frame, 4);
    case request::kPoll:
      return "poll " + CardText(frame[2]) + ", " +
             (frame.size() > 3 ? std::to_string(frame[3]) : "?") + " bytes";
    case request::kParameter:
      return ParameterText(frame);
    default:
      return "unknown request";
  }
}

std::string AnswerText(const Bytes& bytes) {
  const std::uint8_t code = bytes[1];
  for (const ERROR_CODE& row : kErrorCodes) {
    if (row.code == code) {
      return std::string("error ") + row.keyword;
    }
  }
  switch (code) {
    case reply::kIdentified:
      return "cards " + Rest(bytes, 2);
    case reply::kVersion: {
      std::string version;
      for (std::size_t i = 2; i < bytes.size(); ++i) {
        version += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '?';
      }
      return "controller version '" + version + "'";
    }
    default:
      break;
  }
  if (bytes.size() < 3) {
    return "unknown answer";
  }
  switch (code) {
    case reply::kInput:
      return CardText(bytes[2]) + " input " + Rest(bytes, 3);
    case reply::kQuery:
      return CardText(bytes[2]) + " parameter " + Rest(bytes, 3);
    case reply::kDone:
      return CardText(bytes[2]) + " done";
    default:
      return "unknown answer";
  }
}

}  // namespace

std::string DescribeRequest(const Bytes& frame) {
  if (frame.empty()) {
    return "nothing";
  }
  if (frame.size() == 1) {
    return frame[0] == 0 ? "empty frame" : "beginning of a request";
  }
  return RequestText(frame) + LengthRemark(frame);
}

std::string DescribeAnswer(const Bytes& bytes) {
  if (bytes.empty()) {
    return "nothing";
  }
  if (bytes.size() == 1) {
    return "single byte";
  }
  return AnswerText(bytes) + LengthRemark(bytes);
}

}  // namespace sim
