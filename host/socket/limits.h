// What a client may take before valmered closes it, and all of them when it ends.
#pragma once

#include <chrono>
#include <cstddef>

namespace valmere::host {

struct Limits {
  std::size_t clients = 2048;             // served at once; one more is turned away
  std::size_t clients_per_process = 256;  // of them; counted where the socket tells the process
  // For the rest of a frame, from its first byte on.
  std::chrono::milliseconds frame{10'000};
  // Bytes that wait for a client beyond those that the kernel's socket buffer took. What finds
  // nothing waiting is always kept, and so is an answer: the next request is not read before it is
  // taken. The default is twice the longest text of one publishing period.
  std::size_t unread_bytes = std::size_t{32} << 20;
  std::chrono::milliseconds unread{30'000};  // age of the oldest byte that waits for a client
  // Bytes that the service keeps for a client: what it has published, what it has subscribed to,
  // news that wait for it.
  std::size_t client_memory = std::size_t{64} << 20;
  // From the signal that ends valmered on, for what has been accepted: its answers, its lines in
  // the property file. 0 drops it.
  std::chrono::milliseconds drain{2'000};
};

}  // namespace valmere::host
