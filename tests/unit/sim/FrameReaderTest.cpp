#include "sim/line/FrameReader.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

std::vector<Bytes> Feed(FRAME_READER& reader, const Bytes& bytes) {
  return reader.Feed(bytes.data(), bytes.size());
}

TEST(FrameReader, CutsTwoFramesOfOneRead) {
  FRAME_READER reader;
  EXPECT_EQ(Feed(reader, {0x01, 0x30, 0x03, 0x20, 0x03, 0x02}),
            (std::vector<Bytes>{{0x01, 0x30}, {0x03, 0x20, 0x03, 0x02}}));
  EXPECT_EQ(reader.Waiting(), 0U);
}

TEST(FrameReader, JoinsAFrameThatComesInSingleBytes) {
  FRAME_READER reader;
  EXPECT_TRUE(Feed(reader, {0x03}).empty());
  EXPECT_TRUE(Feed(reader, {0x20}).empty());
  EXPECT_TRUE(Feed(reader, {0x03}).empty());
  EXPECT_EQ(Feed(reader, {0x02}), (std::vector<Bytes>{{0x03, 0x20, 0x03, 0x02}}));
}

TEST(FrameReader, KeepsTheBeginningOfTheNextFrame) {
  FRAME_READER reader;
  EXPECT_EQ(Feed(reader, {0x01, 0x30, 0x03, 0x40}), (std::vector<Bytes>{{0x01, 0x30}}));
  EXPECT_EQ(reader.Waiting(), 2U);
  EXPECT_EQ(Feed(reader, {0x6F, 0x9A}), (std::vector<Bytes>{{0x03, 0x40, 0x6F, 0x9A}}));
}

TEST(FrameReader, TakesALengthOfZeroAsAFrameOfItsOwn) {
  FRAME_READER reader;
  EXPECT_EQ(Feed(reader, {0x00, 0x01, 0x30}), (std::vector<Bytes>{{0x00}, {0x01, 0x30}}));
}

TEST(FrameReader, TakesTheLongestFrame) {
  FRAME_READER reader;
  Bytes frame(256, 0x55);
  frame[0] = 0xFF;
  EXPECT_EQ(Feed(reader, frame), std::vector<Bytes>{frame});
}

TEST(FrameReader, DropsWhatIsUnfinished) {
  FRAME_READER reader;
  Feed(reader, {0x05, 0x10, 0x05});
  EXPECT_EQ(reader.Drop(), (Bytes{0x05, 0x10, 0x05}));
  EXPECT_EQ(Feed(reader, {0x01, 0x30}), (std::vector<Bytes>{{0x01, 0x30}}));
}

}  // namespace
}  // namespace sim
