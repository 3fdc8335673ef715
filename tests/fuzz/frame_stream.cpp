// One session of the driver. The input's first byte is the number of pieces but the last; the next
// bytes are their lengths; the rest is what the client writes.
#include <memory>
#include <string>

#include "tests/fuzz/frames_received.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/memory_service.h"

namespace valmere::test {
namespace {

constexpr unsigned kMostPieces = 8;

const std::string& Goodbye() {
  static const std::string frame = FrameOf(R"({"Disconnect": true})");
  return frame;
}

void Write(DriverSession& session, std::string_view bytes) {
  if (bytes.empty()) return;
  const int length = static_cast<int>(bytes.size());
  Require(session.Write(bytes.data(), length) == length, "a session takes all bytes");
}

// Whether a session that has read all of `bytes` field by field waits for a next one: for a frame,
// or for the length of one. One that finds too little for a field, or a length that no frame has,
// ends.
bool EndsBetweenFields(std::string_view bytes) {
  while (bytes.size() >= kFrameHeaderBytes) {
    const std::uint32_t length = DecodeLength(reinterpret_cast<const unsigned char*>(bytes.data()) +
                                              kStreamFormatIdentifier.size());
    if (length < 1 || length > bytes.size() - kFrameHeaderBytes) return false;
    bytes.remove_prefix(kFrameHeaderBytes + length);
  }
  return bytes.empty() || bytes.size() == kStreamFormatIdentifier.size();
}

std::string ReadToTheEnd(DriverSession& session) {
  std::string received;
  char buffer[16384];
  for (int count; (count = session.Read(buffer, sizeof buffer)) > 0;)
    received.append(buffer, static_cast<std::size_t>(count));
  return received;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryService service;
  service.BeginRun();
  Choices choices(data, size);
  std::string_view lengths = choices.Bytes(choices.Byte() % kMostPieces);
  const std::string stream(choices.Rest());

  const std::uint32_t handle = service->OpenSession();
  const std::shared_ptr<DriverSession> session = service->sessions().Find(handle);
  std::string_view left = stream;
  for (const char length : lengths) {
    const std::string_view piece = left.substr(0, static_cast<unsigned char>(length));
    Write(*session, piece);
    left.remove_prefix(piece.size());
  }
  Write(*session, left);
  // A stream of frames ends by a last one wherever it stopped: what waits for the rest of a field
  // is given too much or too little. A text that takes just so much of that frame that a session
  // goes on after it is followed by another. Any other stream ends with its handle alone.
  if (const std::string ended = stream + Goodbye(); ended.starts_with(IdentifierBytes())) {
    Write(*session, Goodbye());
    if (EndsBetweenFields(ended)) Write(*session, Goodbye());
    Require(RequireFrames(ReadToTheEnd(*session)).empty(), "frames are received whole");
  }
  Require(service->CloseSession(handle), "a handle is open until it is closed");
  return 0;
}

}  // namespace valmere::test
