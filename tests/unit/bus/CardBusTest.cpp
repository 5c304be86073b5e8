#include "tests/support/unit/Bytes.h"
#include "vorn/bus/CardBus.h"

#include <gtest/gtest.h>

namespace vorn {

namespace unit {
namespace {

TEST(CardBus, MakesTheRequestsThatTheBusKnows) {
  EXPECT_EQ(ToHex(bus::HandshakeRequest()), "40 6F 9A");
  EXPECT_EQ(ToHex(bus::IdentificationRequest()), "30");
  EXPECT_EQ(ToHex(bus::PollRequest(0xF, 6)), "20 0F 06");
  EXPECT_EQ(ToHex(bus::OutputRequest(5, HexList("FF FB"))), "10 05 02 FF FB");
  EXPECT_EQ(ToHex(bus::OutputRequest(5, {})), "10 05 00");
  EXPECT_EQ(ToHex(bus::WriteRequest(2, bus::parameter::kServoEndB, 3, 0x7F)), "50 02 01 D3 7F");
  EXPECT_EQ(ToHex(bus::ReadRequest(2, bus::parameter::kServoEndB, 3)), "50 02 40 2A");
  EXPECT_EQ(ToHex(bus::ActionRequest(2, bus::action::kReboot)), "50 02 01 AB");
}

TEST(CardBus, TellsQuestionsAndSlowRequestsByTheirFirstByte) {
  EXPECT_TRUE(bus::IsQuestion(bus::PollRequest(3, 2)));
  EXPECT_TRUE(bus::IsQuestion(bus::IdentificationRequest()));
  EXPECT_FALSE(bus::IsQuestion(bus::HandshakeRequest()));
  EXPECT_FALSE(bus::IsQuestion({}));
  EXPECT_TRUE(bus::IsSlow(bus::IdentificationRequest()));
  EXPECT_TRUE(bus::IsSlow(bus::HandshakeRequest()));
  EXPECT_FALSE(bus::IsSlow(bus::PollRequest(3, 2)));
  EXPECT_FALSE(bus::IsSlow({}));
}

TEST(GetQListError, ClassifiesByTheFirstByteAlone) {
  for (int code = 0; code < 256; ++code) {
    int expected = 0;
    switch (code) {
      case 'T':
        expected = 1;
        break;
      case 0x12:
        expected = 2;
        break;
      case '#':
      case '$':
        expected = 3;
        break;
      case 'N':
        expected = 4;
        break;
      case 'B':
      case 'C':
        expected = 6;
        break;
      default:
        break;
    }
    const auto first = static_cast<char>(code);
    EXPECT_EQ(static_cast<int>(GetQListError(QList{first})), expected) << code;
    EXPECT_EQ(static_cast<int>(GetQListError(QList{first, 'T', 'N'})), expected) << code;
  }
}

TEST(GetQListError, Gives5ForAnEmptyList) {
  EXPECT_EQ(static_cast<int>(GetQListError({})), 5);
}

}  // namespace
}  // namespace unit

}  // namespace vorn
