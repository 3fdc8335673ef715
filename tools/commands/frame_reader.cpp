#include "tools/commands/frame_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "protocol/wire/message_frame.h"

namespace valmere::tools {
namespace {

// Memory is taken as the bytes come, not as a header announces them.
constexpr std::size_t kStep = 65536;

// As far as there are bytes of a header.
bool AgreesWithIdentifier(std::string_view header) {
  header = header.substr(0, kStreamFormatIdentifier.size());
  return std::equal(
      header.begin(), header.end(), kStreamFormatIdentifier.begin(),
      [](char byte, unsigned char wanted) { return static_cast<unsigned char>(byte) == wanted; });
}

std::string Counted(std::size_t count, std::size_t of, const char* what) {
  return std::to_string(count) + " of " + std::to_string(of) + " " + what;
}

}  // namespace

bool FrameReader::Read(std::string& into, std::size_t count) {
  into.clear();
  while (into.size() < count) {
    const std::size_t start = into.size();
    const std::size_t step = std::min(count - start, kStep);
    into.resize(start + step);
    const std::size_t got = std::fread(into.data() + start, 1, step, file_);
    into.resize(start + got);
    read_ += got;
    if (got < step) return false;
  }
  return true;
}

FrameReader::Outcome FrameReader::Bad(std::uint64_t at, const std::string& what) {
  error_ = "byte " + std::to_string(at) + ": " + what;
  return Outcome::kBad;
}

FrameReader::Outcome FrameReader::Cut(const std::string& what) {
  if (std::ferror(file_) != 0) return Bad(read_, std::string("cannot read: ") + strerror(errno));
  return Bad(read_, "the input ends within the frame that begins at byte " +
                        std::to_string(frame_) + ": " + what);
}

FrameReader::Outcome FrameReader::Next() {
  frame_ = read_;
  const bool whole = Read(header_, kFrameHeaderBytes);
  if (header_.empty() && std::ferror(file_) == 0) return Outcome::kEnd;
  if (!AgreesWithIdentifier(header_))
    return Bad(frame_, "no frame begins here: the identifier is wrong");
  if (!whole) return Cut(Counted(header_.size(), kFrameHeaderBytes, "bytes of the header"));
  const std::uint32_t length = DecodeLength(reinterpret_cast<const unsigned char*>(header_.data()) +
                                            kStreamFormatIdentifier.size());
  if (length > kMaximumMessageBytes)
    return Bad(frame_ + kStreamFormatIdentifier.size(),
               "the length is " + std::to_string(length) + ", more than a text may have (" +
                   std::to_string(kMaximumMessageBytes) + ")");
  if (!Read(text_, length)) return Cut(Counted(text_.size(), length, "bytes of the text"));
  return Outcome::kFrame;
}

}  // namespace valmere::tools
