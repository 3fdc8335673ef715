// Where a frame ends, however the stream is cut.
#include "host/socket/frame_position.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/wire/message_frame.h"
#include "tests/support/frames.h"

namespace valmere::test {
using namespace host;
namespace {

void Take(FramePosition& position, std::string_view bytes) {
  position.Advance({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
}

TEST(FramePosition, IsAtAStartBeforeAndAfterAFrame) {
  FramePosition position;
  EXPECT_TRUE(position.at_start());
  Take(position, "");
  EXPECT_TRUE(position.at_start());
  Take(position, FrameOf("{}"));
  EXPECT_TRUE(position.at_start());
  EXPECT_FALSE(position.unframed());
}

TEST(FramePosition, IsWithinAFrameWhereverItWasCut) {
  const std::string frame = FrameOf("{\"a\":1}");
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    SCOPED_TRACE(cut);
    FramePosition position;
    Take(position, frame.substr(0, cut));
    EXPECT_FALSE(position.at_start());
    Take(position, frame.substr(cut));
    EXPECT_TRUE(position.at_start());
  }
}

TEST(FramePosition, IsWithinAFrameThatWasCutTwice) {
  const std::string frame = FrameOf("{\"a\":1}");
  for (std::size_t first = 1; first < frame.size(); ++first) {
    for (std::size_t second = first + 1; second < frame.size(); ++second) {
      FramePosition position;
      Take(position, frame.substr(0, first));
      Take(position, frame.substr(first, second - first));
      EXPECT_FALSE(position.at_start()) << first << " " << second;
      Take(position, frame.substr(second));
      EXPECT_TRUE(position.at_start()) << first << " " << second;
    }
  }
}

TEST(FramePosition, FollowsAStreamThatComesByteByByte) {
  const std::string frame = FrameOf("text");
  FramePosition position;
  for (int i = 0; i < 3; ++i) {
    for (std::size_t at = 0; at < frame.size(); ++at) {
      Take(position, frame.substr(at, 1));
      EXPECT_EQ(position.at_start(), at + 1 == frame.size()) << at;
    }
  }
}

TEST(FramePosition, FollowsManyFramesInOneRead) {
  const std::string frames = FrameOf("one") + FrameOf("") + FrameOf("three");
  FramePosition position;
  Take(position, frames);
  EXPECT_TRUE(position.at_start());
  Take(position, frames + FrameOf("fourth").substr(0, 3));
  EXPECT_FALSE(position.at_start());
  Take(position, FrameOf("fourth").substr(3));
  EXPECT_TRUE(position.at_start());
}

TEST(FramePosition, IsAtAStartBehindAFrameWithoutText) {
  FramePosition position;
  Take(position, FrameOf(""));
  EXPECT_TRUE(position.at_start());
}

TEST(FramePosition, FollowsTheLongestText) {
  FramePosition position;
  Take(position, IdentifierBytes() + LengthBytes(kMaximumMessageBytes));
  Take(position, std::string(kMaximumMessageBytes - 1, 'x'));
  EXPECT_FALSE(position.at_start());
  Take(position, "x");
  EXPECT_TRUE(position.at_start());
}

// What is too long is for the service to say; here nothing may overflow.
TEST(FramePosition, StaysWithinAFrameThatIsTooLong) {
  FramePosition position;
  Take(position, IdentifierBytes() + LengthBytes(UINT32_MAX));
  Take(position, std::string(kMaximumMessageBytes + 1, 'x'));
  EXPECT_FALSE(position.at_start());
  EXPECT_FALSE(position.unframed());
}

TEST(FramePosition, KnowsAtTheFirstWrongByteThatAStreamHasNoFrames) {
  for (std::size_t right = 0; right < kStreamFormatIdentifier.size(); ++right) {
    SCOPED_TRACE(right);
    FramePosition position;
    Take(position, IdentifierBytes().substr(0, right));
    EXPECT_FALSE(position.unframed());
    Take(position, "!");
    EXPECT_TRUE(position.unframed());
    EXPECT_FALSE(position.at_start());
    Take(position, FrameOf("{}"));
    EXPECT_TRUE(position.unframed());
    EXPECT_FALSE(position.at_start());
  }
}

// The service does not look at later identifiers either.
TEST(FramePosition, TakesAnyIdentifierBehindTheFirst) {
  FramePosition position;
  Take(position, FrameOf("{}"));
  Take(position, std::string(kStreamFormatIdentifier.size(), '!') + LengthBytes(2) + "{");
  EXPECT_FALSE(position.unframed());
  EXPECT_FALSE(position.at_start());
  Take(position, "}");
  EXPECT_TRUE(position.at_start());
}

}  // namespace
}  // namespace valmere::test
