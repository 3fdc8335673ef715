#include "protocol/wire/message_frame.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/frames.h"

namespace valmere::test {
namespace {

TEST(MessageFrame, StartsWithTheSixteenIdentifierBytesAndRoomForTheLength) {
  std::string frame;
  BeginFrame(frame);
  const std::string expected(
      "\xb3\xec\x09\x9a\x22\x92\x48\xfa\x83\xd0\x06\x84\x0b\xc9\x91\x02\0\0\0\0", 20);
  EXPECT_EQ(expected, frame);
  EXPECT_EQ(20u, kFrameHeaderBytes);
}

TEST(MessageFrame, GetsTheLengthOfItsTextInLittleEndianOrder) {
  std::string frame;
  BeginFrame(frame);
  frame.append(0x030201, 'x');
  EndFrame(frame);
  EXPECT_EQ(std::string("\x01\x02\x03\x00", 4), frame.substr(16, 4));
  EXPECT_EQ(IdentifierBytes(), frame.substr(0, 16));
  EXPECT_EQ(20u + 0x030201, frame.size());
}

TEST(MessageFrame, OfTheShortestObjectIsTwentyTwoBytes) {
  std::string frame;
  BeginFrame(frame);
  frame += "{}";
  EndFrame(frame);
  const std::string expected(
      "\xb3\xec\x09\x9a\x22\x92\x48\xfa\x83\xd0\x06\x84\x0b\xc9\x91\x02\x02\x00\x00\x00{}", 22);
  EXPECT_EQ(expected, frame);
}

TEST(MessageFrame, LengthIsReadFromAllFourBytesWithoutASign) {
  const unsigned char small[] = {0x04, 0x03, 0x02, 0x01};
  EXPECT_EQ(0x01020304u, DecodeLength(small));
  const unsigned char largest[] = {0xff, 0xff, 0xff, 0xff};
  EXPECT_EQ(0xffffffffu, DecodeLength(largest));
  const unsigned char limit[] = {0x00, 0x00, 0x40, 0x00};
  EXPECT_EQ(kMaximumMessageBytes, DecodeLength(limit));
  EXPECT_EQ(4'194'304u, kMaximumMessageBytes);
}

}  // namespace
}  // namespace valmere::test
