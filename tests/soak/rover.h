// Clients that do not behave.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/soak/world.h"
#include "tests/support/frame_client.h"

namespace valmere::test {

// Purpose: a component that comes and goes: it withdraws and publishes again, and its handle is
// closed without a goodbye, in the middle of a frame or with unread replies;
// sometimes it is back on another handle at once. Owner: the run. Threads: one at a time.
class Rover {
 public:
  Rover(World& world, std::uint32_t number, std::uint32_t properties);

  void Live(const std::atomic<bool>& stop);
  void AddTo(Values& truth) const;
  const std::vector<PropertyAddress>& addresses() const { return addresses_; }

 private:
  using Handle = FrameClient;

  void PublishSome();
  void WithdrawSome();
  // Waits until the service has handled all that was sent, then leaves in some rude way.
  std::unique_ptr<Handle> Forsake();
  void Vanish();
  void Hop();
  void Send(const std::vector<Property>& properties, std::string_view status);
  std::vector<Property> Some();

  World& world_;
  Dice dice_;
  std::vector<PropertyAddress> addresses_;
  Values values_;  // what it publishes at the time
  std::unique_ptr<Handle> handle_;
  std::uint64_t number_ = 0;
};

// Purpose: opens handles and abuses them: bytes that are no frame, frames that never end, lengths
// that are too long, long texts, subscriptions and requests whose answers are not read.
// Owner: the run.
// Threads: one at a time.
class Stranger {
 public:
  Stranger(World& world, std::uint32_t number);

  void Live(const std::atomic<bool>& stop);

 private:
  void Abuse(FrameClient& handle);

  World& world_;
  Dice dice_;
  std::vector<std::string> long_texts_;  // that change nothing for anybody else
};

}  // namespace valmere::test
