// A running service on files in memory, for the targets that speak to one.
#pragma once

#include <cstdint>
#include <memory>

#include "driver/service/service.h"

namespace valmere::test {

// Purpose: one service for many runs, and a new one now and then: the log that it keeps in memory
//   and the files that clients have named go with the old one.
// Owner: the target.
// Threads: Renew while no session is open.
// Errors: std::bad_alloc.
class MemoryService {
 public:
  MemoryService() { Renew(); }

  // Called before each run.
  void BeginRun() {
    if (++runs_ % kRunsOfOne == 0) Renew();
  }
  ValmereService& operator*() const { return *service_; }
  ValmereService* operator->() const { return service_.get(); }

 private:
  static constexpr std::uint64_t kRunsOfOne = 500;

  void Renew();

  std::uint64_t runs_ = 0;
  std::unique_ptr<ValmereService> service_;
};

}  // namespace valmere::test
