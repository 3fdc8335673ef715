// Mutates the text of one frame and gives every frame the length that it has then, mostly: nearly
// all that a blind mutation makes of a stream ends it at its first frame.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/wire/message_frame.h"
#include "tests/fuzz/fuzz_target.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

std::vector<std::size_t> FramesIn(std::string_view stream) {
  const std::string_view identifier(
      reinterpret_cast<const char*>(valmere::kStreamFormatIdentifier.data()),
      valmere::kStreamFormatIdentifier.size());
  std::vector<std::size_t> frames;
  for (std::size_t at = 0; (at = stream.find(identifier, at)) != std::string_view::npos;
       at += identifier.size())
    if (stream.size() - at >= valmere::kFrameHeaderBytes) frames.push_back(at);
  return frames;
}

// Each frame reaches to the next one.
void Reseal(std::string& stream) {
  const std::vector<std::size_t> frames = FramesIn(stream);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const std::size_t end = i + 1 < frames.size() ? frames[i + 1] : stream.size();
    std::string frame = stream.substr(frames[i], end - frames[i]);
    if (frame.size() < valmere::kFrameHeaderBytes) continue;
    valmere::EndFrame(frame);
    stream.replace(frames[i], frame.size(), frame);
  }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned int seed) {
  constexpr unsigned kBlindOneOf = 8;
  auto* const bytes = reinterpret_cast<char*>(data);
  const std::vector<std::size_t> frames = FramesIn({bytes, size});
  if (frames.empty() || seed % kBlindOneOf == 0) return LLVMFuzzerMutate(data, size, max_size);

  const std::size_t chosen = seed / kBlindOneOf % frames.size();
  const std::size_t begin = frames[chosen] + valmere::kFrameHeaderBytes;
  const std::size_t end = std::max(begin, chosen + 1 < frames.size() ? frames[chosen + 1] : size);
  const std::string rest(bytes + end, size - end);
  const std::size_t room = max_size - begin - rest.size();
  if (room == 0) return LLVMFuzzerMutate(data, size, max_size);
  const std::size_t text = LLVMFuzzerMutate(data + begin, end - begin, room);
  std::string mutated = std::string(bytes, begin + text) + rest;
  Reseal(mutated);
  std::copy(mutated.begin(), mutated.end(), bytes);
  return mutated.size();
}
