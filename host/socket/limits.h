// What a client may take before valmered closes its handle, and all of them when it ends.
#pragma once

#include <chrono>
#include <cstddef>

namespace valmere::host {

struct Limits {
  std::size_t clients = 2048;  // served at once; one more is turned away
  // For the rest of a frame, from its first byte on.
  std::chrono::milliseconds frame{10'000};
  // Bytes that wait for a client beyond those that the kernel's socket buffer took. A reply that
  // finds nothing waiting is always kept, however long: a client that asks for much has to get it.
  // The default is twice the longest text of one publishing period.
  std::size_t unread_bytes = std::size_t{32} << 20;
  std::chrono::milliseconds unread{30'000};  // age of the oldest byte that waits for a client
  // From the signal that ends valmered on, for what has been accepted: its answers, its lines in
  // the property file. 0 drops it.
  std::chrono::milliseconds drain{2'000};
};

}  // namespace valmere::host
