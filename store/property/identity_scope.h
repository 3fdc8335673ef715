// The GUID and the name of a component or a group, which many properties have in common.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>

namespace valmere {

// Purpose: a shared handle on a GUID, a name and the scope around them: a group's is its component,
// a component and a group of the service's own have none. What is equal is kept once in a process.
// Owner: property identities; the texts go with the last handle.
// Threads: one handle is one thread's, handles on the same texts belong to any threads. A lock is
// taken to make a handle from texts and to release the last one, never to read.
// Errors: making one from texts throws std::bad_alloc.
class IdentityScope {
 public:
  IdentityScope(std::string_view guid, std::string_view name)
      : IdentityScope(IdentityScope(), guid, name) {}
  IdentityScope(const IdentityScope& around, std::string_view guid, std::string_view name);
  IdentityScope(IdentityScope&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}
  ~IdentityScope();
  IdentityScope(const IdentityScope&) = delete;
  IdentityScope& operator=(const IdentityScope&) = delete;

  std::string_view guid() const { return record_->guid(); }
  std::string_view name() const { return record_->name(); }
  bool has_around() const { return record_->around != nullptr; }
  // Empty where there is no scope around.
  std::string_view around_guid() const {
    return has_around() ? record_->around->guid() : std::string_view();
  }
  std::string_view around_name() const {
    return has_around() ? record_->around->name() : std::string_view();
  }

 private:
  // The texts stand behind it.
  struct Record {
    std::string_view guid() const { return {text(), guid_size}; }
    std::string_view name() const { return {text() + guid_size, name_size}; }
    const char* text() const { return reinterpret_cast<const char*>(this + 1); }

    Record* const around;  // with a handle of its own on that
    const std::uint32_t guid_size;
    const std::uint32_t name_size;
    std::atomic<std::uint32_t> handles{1};
  };
  class Pool;

  IdentityScope() = default;

  Record* record_ = nullptr;
};

}  // namespace valmere
