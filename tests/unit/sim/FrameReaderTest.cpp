#include "sim/line/FrameReader.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

/// The frames that reads of the pieces ("03 20|03 02") give, with '|' where one ends, and behind a
/// '+' what is unfinished.
std::string Frames(const std::string& pieces) {
  FRAME_READER reader;
  std::string text;
  std::size_t at = 0;
  while (at <= pieces.size()) {
    const std::size_t end = std::min(pieces.find('|', at), pieces.size());
    const Bytes piece = FromHex(pieces.substr(at, end - at)).value();
    for (const Bytes& frame : reader.Feed(piece.data(), piece.size())) {
      text += ToHex(frame) + "|";
    }
    at = end + 1;
  }
  return reader.Waiting() > 0 ? text + "+" + ToHex(reader.Drop()) : text;
}

TEST(FrameReader, CutsFramesWhateverPiecesTheyComeIn) {
  EXPECT_EQ(Frames("01 30 03 20 03 02"), "01 30|03 20 03 02|");
  EXPECT_EQ(Frames("03|20|03|02"), "03 20 03 02|");
  EXPECT_EQ(Frames("01 30 03 40|6F 9A"), "01 30|03 40 6F 9A|");
  EXPECT_EQ(Frames("00 01 30"), "00|01 30|");
  EXPECT_EQ(Frames("05 10 05"), "+05 10 05");
  const std::string longest = ToHex(Bytes(256, 0xFF));
  EXPECT_EQ(Frames(longest), longest + "|");
}

TEST(FrameReader, BeginsAnewAfterADrop) {
  FRAME_READER reader;
  const Bytes identify{0x01, 0x30};
  EXPECT_TRUE(reader.Feed(identify.data(), 1).empty());
  reader.Drop();
  EXPECT_EQ(reader.Feed(identify.data(), 2), std::vector<Bytes>{identify});
}

}  // namespace
}  // namespace sim
