// The old lines are read into one buffer that has room for the new line. The line is inserted
// there, and the buffer is written by one call. The file may be written in place: the checksum,
// which comes last, tells a finished rewrite from one that was interrupted.
#include "persist/file/property_file_writer.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "persist/file/crc16.h"
#include "persist/file/file_stream.h"
#include "persist/file/property_file.h"

namespace valmere {
namespace {

struct Body {
  std::unique_ptr<char[]> bytes;
  std::size_t size = 0;

  std::string_view View() const { return {bytes.get(), size}; }
};

// kWritten when there is a body to go on with, which is empty for a file that is missing or too
// short. There is no body where the new file would be too long to be read again.
RewriteResult ReadBody(platform::FileSystem& files, platform::WidePathView path, std::size_t room,
                       Body& body) {
  FileStream stream(files, path, platform::OpenFlags::kRead);
  // A file that can't be opened just now, or whose size can't be read, must not be replaced by this
  // one line.
  if (!stream.IsOpen() && files.Exists(path)) return RewriteResult::kNotOpened;
  const std::optional<std::uint64_t> file_size = stream.IsOpen() ? stream.Size() : 0;
  if (!file_size) return RewriteResult::kShortRead;
  if (room > FileStream::kLargestWhole || *file_size > FileStream::kLargestWhole - room)
    return RewriteResult::kTooLong;
  if (*file_size > kPropertyFileTrailer)
    body.size = static_cast<std::size_t>(*file_size) - kPropertyFileTrailer;
  body.bytes.reset(new (std::nothrow) char[body.size + room]);
  if (!body.bytes) return RewriteResult::kShortRead;
  if (body.size > 0 && !stream.ReadAll(body.bytes.get(), body.size))
    return RewriteResult::kShortRead;
  return RewriteResult::kWritten;
}

// Where the first line begins that starts with the prefix, or the body's end.
std::size_t FindLine(std::string_view body, std::string_view prefix) {
  std::size_t start = 0;
  while (start < body.size()) {
    const std::size_t end = body.find('\n', start);
    if (body.substr(start, end - start).starts_with(prefix)) break;
    start = end + 1;
  }
  return start;
}

void PutLine(Body& body, std::string_view prefix, std::string_view line) {
  char* const bytes = body.bytes.get();
  if (body.size > 0 && bytes[body.size - 1] != '\n') bytes[body.size++] = '\n';

  const std::size_t start = FindLine(body.View(), prefix);
  std::size_t old_end = start;
  if (start < body.size) old_end = body.View().find('\n', start) + 1;
  const std::size_t new_end = start + line.size() + 1;
  std::memmove(bytes + new_end, bytes + old_end, body.size - old_end);
  line.copy(bytes + start, line.size());
  bytes[new_end - 1] = '\n';
  body.size = body.size - old_end + new_end;
}

RewriteResult WriteFile(platform::FileSystem& files, platform::WidePathView path,
                        std::string_view body, const MayWrite& may_write) {
  if (may_write && !may_write()) return RewriteResult::kOvertaken;
  FileStream stream(files, path, platform::OpenFlags::kWrite | platform::OpenFlags::kTruncate);
  if (!stream.IsOpen()) return RewriteResult::kNotOpened;
  if (!stream.WriteAll(body)) return RewriteResult::kBodyTorn;
  if (may_write && !may_write()) return RewriteResult::kOvertaken;
  const unsigned crc = Crc16(body);
  const char trailer[kPropertyFileTrailer] = {static_cast<char>(crc & 0xFF),
                                              static_cast<char>(crc >> 8)};
  if (!stream.WriteAll({trailer, sizeof trailer})) return RewriteResult::kTrailerTorn;
  return stream.Complete() ? RewriteResult::kWritten : RewriteResult::kNotReplaced;
}

}  // namespace

WriteRequest MakeWriteRequest(std::string_view left_side, std::string_view value,
                              platform::WidePathView path) {
  WriteRequest request;
  request.prefix = left_side;
  request.line.reserve(left_side.size() + 1 + value.size());
  request.line.append(left_side).append(1, '=').append(value);
  request.path = path;
  return request;
}

bool StopsDraining(RewriteResult result) noexcept {
  return result == RewriteResult::kShortRead || result == RewriteResult::kTrailerTorn;
}

bool MayGoBetter(RewriteResult result) noexcept {
  return result != RewriteResult::kTooLong;
}

std::string_view Describe(RewriteResult result) noexcept {
  switch (result) {
    case RewriteResult::kWritten:
      return "it was written";
    case RewriteResult::kShortRead:
      return "its old lines can't be read to their end";
    case RewriteResult::kNotOpened:
      return "it can't be opened";
    case RewriteResult::kBodyTorn:
      return "its lines can't all be written";
    case RewriteResult::kTrailerTorn:
      return "its checksum can't be written";
    case RewriteResult::kTooLong:
      return "it would be too long";
    case RewriteResult::kNotReplaced:
      return "it can't take the place of the old one";
    case RewriteResult::kOvertaken:
      return "it took so long that another went on with the file";
  }
  return "";
}

RewriteResult RewriteLine(platform::FileSystem& files, const WriteRequest& request,
                          const MayWrite& may_write) {
  // Besides the line: its "\n", and one for a last line that lacks it.
  const std::size_t room = request.line.size() + 2;
  Body body;
  const RewriteResult read = ReadBody(files, request.path, room, body);
  if (read != RewriteResult::kWritten) return read;
  PutLine(body, request.prefix, request.line);
  return WriteFile(files, request.path, body.View(), may_write);
}

}  // namespace valmere
