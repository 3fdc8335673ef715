// Frames out of a file, one at a time.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace valmere::tools {

// Purpose: reads the frames of a file or a pipe as they come.
// Owner: the caller, which also closes the file.
// Threads: one.
// Errors: Next says kBad, and error() what is wrong and at which byte of the input; nothing can be
// read after it.
class FrameReader {
 public:
  enum class Outcome { kFrame, kEnd, kBad };

  explicit FrameReader(std::FILE* file) : file_(file) {}

  Outcome Next();

  // Of the frame that Next read, valid until the next call.
  const std::string& header() const { return header_; }
  const std::string& text() const { return text_; }
  std::uint64_t offset() const { return frame_; }
  const std::string& error() const { return error_; }

 private:
  bool Read(std::string& into, std::size_t count);
  Outcome Bad(std::uint64_t at, const std::string& what);
  Outcome Cut(const std::string& what);

  std::FILE* const file_;
  std::uint64_t frame_ = 0;  // where the frame begins
  std::uint64_t read_ = 0;   // bytes that were read in all
  std::string header_;
  std::string text_;
  std::string error_;
};

}  // namespace valmere::tools
