// The assembler against every way in which a socket can cut a stream.
#include "host/socket/frame_assembler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/wire/message_frame.h"

namespace valmere::test {
using namespace host;
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string Frame(const std::string& text) {
  std::string frame;
  BeginFrame(frame);
  frame += text;
  EndFrame(frame);
  return frame;
}

std::string HeaderFor(std::uint32_t length) {
  std::string header = Frame("").substr(0, kStreamFormatIdentifier.size());
  for (int shift = 0; shift < 32; shift += 8) {
    header += static_cast<char>(length >> shift & 0xff);
  }
  return header;
}

FrameAssembler::Bytes BytesOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

void Feed(FrameAssembler& assembler, const std::string& bytes, std::vector<std::string>& pieces) {
  assembler.Add(BytesOf(bytes));
  while (const auto piece = assembler.Next()) {
    pieces.emplace_back(piece->begin(), piece->end());
  }
}

// What comes out when the stream arrives in these reads.
std::vector<std::string> Pieces(const std::vector<std::string>& reads) {
  FrameAssembler assembler;
  std::vector<std::string> pieces;
  for (const std::string& read : reads) {
    Feed(assembler, read, pieces);
  }
  return pieces;
}

TEST(FrameAssembler, HandsAWholeFrameOnWithoutCopyingIt) {
  const std::string frame = Frame("{}");
  FrameAssembler assembler;
  assembler.Add(BytesOf(frame));
  const auto piece = assembler.Next();
  ASSERT_TRUE(piece);
  EXPECT_EQ(piece->data(), BytesOf(frame).data());
  EXPECT_EQ(piece->size(), frame.size());
  EXPECT_FALSE(assembler.Next());
}

TEST(FrameAssembler, PutsAFrameTogetherWhereverItWasCut) {
  const std::string frame = Frame(R"({"GetAllProperties": true})");
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    EXPECT_THAT(Pieces({frame.substr(0, cut), frame.substr(cut)}), ElementsAre(frame)) << cut;
  }
}

TEST(FrameAssembler, PutsFramesTogetherWhereverTheirStreamWasCutTwice) {
  const std::string a = Frame("{}");
  const std::string b = Frame(R"({"a": "b"})");
  const std::string c = Frame("{ }");
  const std::string stream = a + b + c;
  for (std::size_t first = 0; first <= stream.size(); ++first) {
    for (std::size_t second = first; second <= stream.size(); ++second) {
      ASSERT_THAT(Pieces({stream.substr(0, first), stream.substr(first, second - first),
                          stream.substr(second)}),
                  ElementsAre(a, b, c))
          << first << " " << second;
    }
  }
}

TEST(FrameAssembler, PutsAFrameTogetherThatComesByteByByte) {
  const std::string frame = Frame(R"({"Disconnect": true})");
  std::vector<std::string> reads;
  for (const char byte : frame + frame) {
    reads.emplace_back(1, byte);
  }
  EXPECT_THAT(Pieces(reads), ElementsAre(frame, frame));
}

TEST(FrameAssembler, HandsEachOfManyFramesInOneReadOnByItself) {
  const std::string frame = Frame("{}");
  std::string read;
  for (int i = 0; i < 100; ++i) {
    read += frame;
  }
  EXPECT_EQ(Pieces({read}), std::vector<std::string>(100, frame));
}

TEST(FrameAssembler, HandsAFrameOfNoTextOn) {
  EXPECT_THAT(Pieces({Frame(""), Frame("{}")}), ElementsAre(Frame(""), Frame("{}")));
}

TEST(FrameAssembler, HandsBytesThatBeginNoFrameOnAsTheyCome) {
  FrameAssembler assembler;
  std::vector<std::string> pieces;
  Feed(assembler, "garbage", pieces);
  EXPECT_FALSE(assembler.in_frames());
  Feed(assembler, Frame("{}").substr(0, 5), pieces);
  EXPECT_THAT(pieces, ElementsAre("garbage", Frame("{}").substr(0, 5)));
}

TEST(FrameAssembler, HandsKeptBytesOnWhenAnIdentifierTurnsOutWrongAtAnyByte) {
  for (std::size_t wrong = 1; wrong < kStreamFormatIdentifier.size(); ++wrong) {
    std::string stream = Frame("{}");
    stream[wrong] = static_cast<char>(~stream[wrong]);
    std::string together;
    for (const std::string& piece : Pieces({stream.substr(0, wrong), stream.substr(wrong)})) {
      together += piece;
    }
    EXPECT_EQ(together, stream) << wrong;
  }
}

TEST(FrameAssembler, HandsAWholeFrameOnBeforeTheGarbageBehindIt) {
  EXPECT_THAT(Pieces({Frame("{}") + "garbage"}), ElementsAre(Frame("{}"), "garbage"));
}

TEST(FrameAssembler, KeepsAFrameOfTheGreatestLength) {
  const std::string frame = Frame(std::string(kMaximumMessageBytes, 'x'));
  const std::size_t half = frame.size() / 2;
  const auto pieces = Pieces({frame.substr(0, half), frame.substr(half)});
  ASSERT_EQ(pieces.size(), 1U);
  EXPECT_TRUE(pieces[0] == frame);
}

TEST(FrameAssembler, HandsTheHeaderOfAnOverlongFrameOnAtOnceAndThenWhatComes) {
  const std::string header = HeaderFor(kMaximumMessageBytes + 1);
  for (std::size_t cut = 0; cut < header.size(); ++cut) {
    std::string together;
    FrameAssembler assembler;
    std::vector<std::string> pieces;
    Feed(assembler, header.substr(0, cut), pieces);
    Feed(assembler, header.substr(cut), pieces);
    for (const std::string& piece : pieces) {
      together += piece;
    }
    EXPECT_EQ(together, header) << cut;
    pieces.clear();
    Feed(assembler, "body", pieces);
    EXPECT_THAT(pieces, ElementsAre("body"));
  }
}

TEST(FrameAssembler, KeepsNoMoreThanWhatHasCome) {
  FrameAssembler assembler;
  std::vector<std::string> pieces;
  Feed(assembler, HeaderFor(kMaximumMessageBytes), pieces);
  EXPECT_EQ(assembler.kept(), kFrameHeaderBytes);
  Feed(assembler, "abc", pieces);
  EXPECT_EQ(assembler.kept(), kFrameHeaderBytes + 3);
  EXPECT_THAT(pieces, IsEmpty());
  EXPECT_TRUE(assembler.in_frames());
}

TEST(FrameAssembler, KeepsNothingBetweenFrames) {
  FrameAssembler assembler;
  std::vector<std::string> pieces;
  const std::string frame = Frame("{}");
  Feed(assembler, frame.substr(0, 7), pieces);
  Feed(assembler, frame.substr(7), pieces);
  EXPECT_EQ(assembler.kept(), 0U);
}

}  // namespace
}  // namespace valmere::test
