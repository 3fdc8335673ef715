// One session of the driver. The input's first byte is the number of pieces but the last; the next
// bytes are their lengths; the rest is what the client writes.
#include <memory>
#include <string>

#include "tests/fuzz/frames_received.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/memory_service.h"

namespace valmere {
namespace {

using fuzz::Require;

constexpr unsigned kMostPieces = 8;

const std::string& Goodbye() {
  static const std::string frame = testing::FrameOf(R"({"Disconnect": true})");
  return frame;
}

void Write(DriverSession& session, std::string_view bytes) {
  if (bytes.empty()) return;
  const int length = static_cast<int>(bytes.size());
  Require(session.Write(bytes.data(), length) == length, "a session takes all bytes");
}

std::string ReadToTheEnd(DriverSession& session) {
  std::string received;
  char buffer[16384];
  for (int count; (count = session.Read(buffer, sizeof buffer)) > 0;)
    received.append(buffer, static_cast<std::size_t>(count));
  return received;
}

}  // namespace
}  // namespace valmere

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace valmere;
  static fuzz::MemoryService service;
  service.BeginRun();
  fuzz::Choices choices(data, size);
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
  // A stream of frames ends by a last one wherever it stopped: what waits for the rest of a frame is
  // given too much or too little. Any other stream ends with its handle alone.
  if ((stream + Goodbye()).starts_with(testing::IdentifierBytes())) {
    Write(*session, Goodbye());
    Require(fuzz::RequireFrames(ReadToTheEnd(*session)).empty(), "frames are received whole");
  }
  Require(service->CloseSession(handle), "a handle is open until it is closed");
  return 0;
}
