// The strings that tell one property from all others.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace valmere {

// Purpose: holds a property's identity strings, and its registry key among them, in one allocation.
// Owner: the property; every view lives as long as the identity does.
// Threads: constant after construction; any thread reads without a lock.
// Errors: construction throws std::bad_alloc.
class PropertyIdentity {
 public:
  // Of a property that the service itself owns; its key is the group GUID, ":" and the GUID.
  PropertyIdentity(std::string_view guid, std::string_view name, std::string_view group_guid,
                   std::string_view group_name);
  // Of a property of a client component; its key is the component, ":", the group GUID, ":" and the
  // GUID.
  PropertyIdentity(std::string_view guid, std::string_view name, std::string_view group_guid,
                   std::string_view group_name, std::string_view component,
                   std::string_view component_name);

  std::string_view guid() const { return Piece(guid_begin_, name_begin_); }
  std::string_view name() const { return Piece(name_begin_, group_name_begin_); }
  std::string_view group_guid() const { return Piece(group_guid_begin_, guid_begin_ - 1); }
  std::string_view group_name() const { return Piece(group_name_begin_, component_name_begin_); }
  bool OfComponent() const { return group_guid_begin_ != 0; }
  // Both empty for a property of the service's own.
  std::string_view component() const {
    return !OfComponent() ? std::string_view() : Piece(0, group_guid_begin_ - 1);
  }
  std::string_view component_name() const { return Piece(component_name_begin_, end_); }

  std::string_view key() const { return Piece(0, name_begin_); }

 private:
  std::string_view Piece(std::uint32_t begin, std::uint32_t end) const {
    return {text_.get() + begin, end - begin};
  }

  // The key, then the name, the group name and the component name; where each begins.
  std::uint32_t group_guid_begin_;
  std::uint32_t guid_begin_;
  std::uint32_t name_begin_;
  std::uint32_t group_name_begin_;
  std::uint32_t component_name_begin_;
  std::uint32_t end_;
  std::unique_ptr<char[]> text_;
};

}  // namespace valmere
