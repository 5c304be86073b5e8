#include "vorn/bus/CardBus.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace vorn {

namespace bus {
namespace {

QList Body(std::initializer_list<int> bytes) {
  QList body;
  for (const int byte : bytes) {
    body.push_back(static_cast<char>(byte));
  }
  return body;
}

int Number(std::uint8_t first, const PARAMETER& parameter, std::uint8_t channel) {
  return parameter.perChannel ? first + channel : first;
}

bool BeginsWith(const QList& body, std::uint8_t code) {
  return !body.empty() && static_cast<std::uint8_t>(body.front()) == code;
}

}  // namespace

QList HandshakeRequest() {
  return Body({request::kHandshake, 0x6F, 0x9A});
}

QList IdentificationRequest() {
  return Body({request::kIdentification});
}

QList PollRequest(std::uint8_t address, std::uint8_t count) {
  return Body({request::kPoll, address, count});
}

QList OutputRequest(std::uint8_t address, const QList& data) {
  QList body = Body({request::kOutput, address, static_cast<int>(data.size())});
  body.insert(body.end(), data.begin(), data.end());
  return body;
}

QList WriteRequest(std::uint8_t address, const PARAMETER& parameter, std::uint8_t channel,
                   std::uint8_t value) {
  return Body({request::kParameter, address, request::kWrite,
               Number(parameter.write, parameter, channel), value});
}

QList ReadRequest(std::uint8_t address, const PARAMETER& parameter, std::uint8_t channel) {
  return Body(
      {request::kParameter, address, request::kRead, Number(parameter.read, parameter, channel)});
}

QList ActionRequest(std::uint8_t address, std::uint8_t action) {
  return Body({request::kParameter, address, request::kWrite, action});
}

bool IsQuestion(const QList& body) {
  return BeginsWith(body, request::kPoll) || BeginsWith(body, request::kIdentification);
}

bool IsSlow(const QList& body) {
  return BeginsWith(body, request::kIdentification) || BeginsWith(body, request::kHandshake);
}

}  // namespace bus

namespace {

struct REPLY_CLASS {
  char firstByte;
  QLIST_ERROR code;
};

constexpr REPLY_CLASS kReplyClasses[] = {
    {'T', kTimeout},           {'\x12', kControlRefused}, {'#', kControllerRefused},
    {'$', kControllerRefused}, {'N', kNotAccepted},       {'B', kBusRefused},
    {'C', kBusRefused},
};

}  // namespace

QLIST_ERROR GetQListError(const QList& message) {
  if (message.empty()) {
    return kEmptyReply;
  }
  const auto* const found =
      std::find_if(std::begin(kReplyClasses), std::end(kReplyClasses),
                   [&](const REPLY_CLASS& row) { return row.firstByte == message.front(); });
  return found == std::end(kReplyClasses) ? kNoError : found->code;
}

}  // namespace vorn
