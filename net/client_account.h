// What a client makes the service keep.
#pragma once

#include <atomic>
#include <cstddef>

namespace valmere {

// Purpose: counts the bytes that the service keeps for one client: what it has published, what it
// has subscribed to, news that wait for it.
// Owner: the client's connection.
// Threads: any.
// Errors: none; the account itself refuses nothing, its users look at it.
class ClientAccount {
 public:
  explicit ClientAccount(std::size_t most) : most_(most) {}
  ClientAccount(const ClientAccount&) = delete;
  ClientAccount& operator=(const ClientAccount&) = delete;

  void Charge(std::size_t bytes) { used_.fetch_add(bytes, std::memory_order_relaxed); }
  void Release(std::size_t bytes) { used_.fetch_sub(bytes, std::memory_order_relaxed); }
  std::size_t used() const { return used_.load(std::memory_order_relaxed); }
  // How many it may have.
  std::size_t most() const { return most_; }
  bool IsOverdrawn() const { return used() > most_; }

 private:
  const std::size_t most_;
  std::atomic<std::size_t> used_{0};
};

}  // namespace valmere
