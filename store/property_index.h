// What the two registries have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/property_key.h"

namespace valmere {

// Purpose: properties under two orders: by key, and by group with a group's in order of arrival.
// Owner: a registry.
// Threads: none of its own; the registry guards it.
// Errors: Add throws std::bad_alloc and leaves the index as it was.
// The properties carry the texts that it is ordered by; all operations on one take O(log n).
template <class P>
class PropertyIndex {
 public:
  using Handle = std::shared_ptr<P>;
  // Properties in the order in which they came.
  using Arrivals = std::map<std::uint64_t, Handle>;

  // False, and nothing changes, when the key is present.
  bool Add(const Handle& property) {
    const auto next = by_key_.lower_bound(property->key());
    if (next != by_key_.end() && next->property->key() == property->key()) return false;
    const auto placed = by_key_.insert(next, Entry{property, next_arrival_});
    try {
      Arrivals& group = GroupOf(property->group_guid());
      group.emplace_hint(group.end(), next_arrival_, property);
    } catch (const std::bad_alloc&) {
      by_key_.erase(placed);
      const auto group = by_group_.find(property->group_guid());
      if (group != by_group_.end() && group->second.empty()) by_group_.erase(group);
      throw;
    }
    ++next_arrival_;
    return true;
  }

  // Empty when there is none.
  Handle Find(const PropertyKey& key) const {
    const auto found = by_key_.find(key);
    return found == by_key_.end() ? Handle() : found->property;
  }

  // Takes the property out of both orders; empty when there is none.
  Handle Remove(const PropertyKey& key) {
    const auto found = by_key_.find(key);
    return found == by_key_.end() ? Handle() : Take(found);
  }

  // Takes out all that `wanted` picks. Asks for no memory: their nodes change over.
  template <class Predicate>
  Arrivals RemoveIf(Predicate wanted) {
    Arrivals removed;
    for (auto group = by_group_.begin(); group != by_group_.end();) {
      Arrivals& members = group->second;
      for (auto place = members.begin(); place != members.end();) {
        const auto member = place++;
        if (!wanted(*member->second)) continue;
        by_key_.erase(by_key_.find(member->second->key()));
        removed.insert(members.extract(member));
      }
      group = members.empty() ? by_group_.erase(group) : std::next(group);
    }
    return removed;
  }

  void ListGroup(std::string_view group_guid, std::vector<Handle>& out) const {
    const auto found = by_group_.find(group_guid);
    if (found != by_group_.end()) AppendGroup(found->second, out);
  }

  // By ascending group GUID.
  void ListAll(std::vector<Handle>& out) const {
    out.reserve(out.size() + by_key_.size());
    for (const auto& [group_guid, group] : by_group_)
      AppendGroup(group, out);
  }

 private:
  struct Entry {
    Handle property;
    std::uint64_t arrival;
  };
  struct ByKey {
    using is_transparent = void;
    bool operator()(const Entry& a, const Entry& b) const { return less(KeyOf(a), KeyOf(b)); }
    template <class Key>
    bool operator()(const Entry& a, const Key& b) const {
      return less(KeyOf(a), b);
    }
    template <class Key>
    bool operator()(const Key& a, const Entry& b) const {
      return less(a, KeyOf(b));
    }
    static std::string_view KeyOf(const Entry& entry) { return entry.property->key(); }
    [[no_unique_address]] PropertyKeyLess less;
  };
  using KeyOrder = std::set<Entry, ByKey>;

  Arrivals& GroupOf(std::string_view guid) {
    const auto found = by_group_.find(guid);
    return found != by_group_.end() ? found->second : by_group_[std::string(guid)];
  }

  Handle Take(typename KeyOrder::const_iterator entry) {
    Handle property = entry->property;
    const auto group = by_group_.find(property->group_guid());
    group->second.erase(entry->arrival);
    if (group->second.empty()) by_group_.erase(group);
    by_key_.erase(entry);
    return property;
  }

  static void AppendGroup(const Arrivals& group, std::vector<Handle>& out) {
    for (const auto& [arrival, property] : group)
      out.push_back(property);
  }

  KeyOrder by_key_;
  // Also the set of the groups that there are.
  std::map<std::string, Arrivals, std::less<>> by_group_;
  std::uint64_t next_arrival_ = 0;
};

}  // namespace valmere
