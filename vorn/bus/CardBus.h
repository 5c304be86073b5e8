#pragma once

#include "vorn/base/QList.h"

#include <cstddef>
#include <cstdint>

namespace vorn {

/// The words of the card bus: what a request's and a reply's body is made of. The frame around a
/// body, its length byte, is the exchange's. Everything here is in docs/card-bus.md, which a test
/// compares with it.
namespace bus {

constexpr std::size_t kAddresses = 16;  ///< 0 to F
/// The longest request body: with its length byte a frame is built in 255 bytes.
constexpr std::size_t kLongestRequest = 254;

/// First byte of a request's body.
namespace request {
constexpr std::uint8_t kOutput = 0x10;          // address, count, so many data bytes
constexpr std::uint8_t kPoll = 0x20;            // address, count of input bytes
constexpr std::uint8_t kIdentification = 0x30;  // nothing else
constexpr std::uint8_t kHandshake = 0x40;       // 6F 9A
constexpr std::uint8_t kParameter = 0x50;       // address, one of the two below, what it needs
constexpr std::uint8_t kWrite = 0x01;           // parameter and value, or an action
constexpr std::uint8_t kRead = 0x40;            // parameter
}  // namespace request

/// First byte of a reply's body.
namespace reply {
constexpr std::uint8_t kIdentification = 0x31;  // a type code for each address
constexpr std::uint8_t kInputData = 0x21;       // address, data
constexpr std::uint8_t kQueryData = 0x51;       // address, parameter, value
}  // namespace reply

/// Where the parts of a reply stand, counted from its code.
constexpr std::size_t kReplyAddressAt = 1;
constexpr std::size_t kReplyDataAt = 2;
constexpr std::size_t kReplyValueAt = 3;  ///< of what a read request has asked for

/// A card's parameter: its numbers; those of the first channel where each channel has one, from
/// which those of the others count on.
struct PARAMETER {
  std::uint8_t write;
  std::uint8_t read;  ///< 0: it cannot be read
  bool perChannel;
};
namespace parameter {
constexpr PARAMETER kLcdSelfTest = {0x01, 0, false};
constexpr PARAMETER kLcdInitLight = {0x02, 0, false};
constexpr PARAMETER kAnalogueMask = {0x01, 0x01, false};
constexpr PARAMETER kServoEndA = {0xC0, 0x21, true};
constexpr PARAMETER kServoEndB = {0xD0, 0x27, true};
constexpr PARAMETER kSilentRange = {0xC0, 0x01, true};
}  // namespace parameter

/// What a card can be told to do.
namespace action {
constexpr std::uint8_t kReboot = 0xAB;
constexpr std::uint8_t kStoreAnalogueMask = 0x02;
constexpr std::uint8_t kStoreServoPositions = 0x74;
constexpr std::uint8_t kMoveToStoredPositions = 0x3F;
constexpr std::uint8_t kStoreSilentRanges = 0xCD;
}  // namespace action

/// First data byte of an output request to an LCD controller.
namespace lcd {
constexpr std::uint8_t kClear = 0;
constexpr std::uint8_t kLightOn = 1;
constexpr std::uint8_t kLightOff = 2;
constexpr std::uint8_t kCursorOn = 3;
constexpr std::uint8_t kCursorOff = 4;
constexpr std::uint8_t kBlinkingOn = 5;
constexpr std::uint8_t kBlinkingOff = 6;
constexpr std::uint8_t kText = 9;  // column, row, the characters, 00
}  // namespace lcd

/// A card's buffer holds an output request of 38 bytes: length, request, address, count, LCD code,
/// column, row and the closing zero leave this for a text.
constexpr std::size_t kLongestLcdText = 31;
constexpr std::size_t kLongestIrStream = 23;  ///< bytes

// --- request bodies; `address` is 0 to 15 -------------------------------------------------------

QList HandshakeRequest();
QList IdentificationRequest();
/// `count`: the card's input bytes.
QList PollRequest(std::uint8_t address, std::uint8_t count);
/// At most 251 data bytes.
QList OutputRequest(std::uint8_t address, const QList& data);
/// `channel` counts only for a parameter that each channel has.
QList WriteRequest(std::uint8_t address, const PARAMETER& parameter, std::uint8_t channel,
                   std::uint8_t value);
QList ReadRequest(std::uint8_t address, const PARAMETER& parameter, std::uint8_t channel);
QList ActionRequest(std::uint8_t address, std::uint8_t action);

/// A poll or a request to identify: another one asks for the same.
bool IsQuestion(const QList& body);
/// The controller asks all cards, or wakes up: its reply may take twice the time of others.
bool IsSlow(const QList& body);

}  // namespace bus

/// What GetQListError makes of a reply.
enum QLIST_ERROR : std::uint8_t {
  kNoError = 0,
  kTimeout = 1,            ///< "TME": no complete reply within the limit
  kControlRefused = 2,     ///< control byte 0x12
  kControllerRefused = 3,  ///< '#' or '$'
  kNotAccepted = 4,        ///< 'N'
  kEmptyReply = 5,
  kBusRefused = 6,  ///< 'B' or 'C'
};

/// Classifies a reply by its first byte.
QLIST_ERROR GetQListError(const QList& message);

}  // namespace vorn
