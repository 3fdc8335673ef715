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

#include "store/property/property_key.h"

namespace valmere {

// Purpose: properties under two orders: by key, and by group with a group's in order of arrival.
// Owner: a registry.
// Threads: none of its own; the registry guards it. A walk goes step by step, and the index may
// change between two of them.
// Errors: Add throws std::bad_alloc and leaves the index as it was.
// The properties carry the texts that it is ordered by; all operations on one take O(log n).
template <class P>
class PropertyIndex {
 public:
  using Handle = std::shared_ptr<P>;
  // Properties in the order in which they came.
  using Arrivals = std::map<std::uint64_t, Handle>;

  // How many properties one step of a walk looks at: the registry releases its lock between two
  // steps, so that other threads get it.
  static constexpr std::size_t kStep = 256;
  // How far a walk over all has come. A property that is there from its beginning to its end is
  // visited once.
  struct Place {
    Handle last;
    std::uint64_t arrival = 0;
  };

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

  std::size_t size() const { return by_key_.size(); }

  // One step over a group, in the order of arrival, beginning with the arrival `next`: appends up
  // to kStep properties and moves `next` on. False when none can be left.
  bool ListGroup(std::string_view group_guid, std::uint64_t& next, std::vector<Handle>& out) const {
    const auto group = by_group_.find(group_guid);
    if (group == by_group_.end()) return false;
    std::size_t left = kStep;
    auto member = group->second.lower_bound(next);
    for (; member != group->second.end() && left != 0; ++member, --left) {
      out.push_back(member->second);
      next = member->first + 1;
    }
    return member != group->second.end();
  }

  // One step over all, by ascending group GUID and within a group in the order of arrival: gives up
  // to kStep properties to `visit` and moves `place` on. False when none is left.
  template <class Visit>
  bool Walk(Place& place, Visit visit) const {
    Mark mark{place};
    std::size_t left = kStep;
    for (auto group = GroupAt(place); group != by_group_.end(); ++group) {
      for (auto member = MemberAt(*group, place); member != group->second.end(); ++member) {
        if (left-- == 0) return true;
        visit(member->second);
        mark.last = &*member;
      }
    }
    return false;
  }

  // The same step, which takes out what `wanted` picks and adds it to `removed`. Allocates nothing:
  // nodes move from one map to the other.
  template <class Predicate>
  bool RemoveIf(Place& place, Arrivals& removed, Predicate wanted) {
    Mark mark{place};
    std::size_t left = kStep;
    for (auto group = GroupAt(place); group != by_group_.end();) {
      Arrivals& members = group->second;
      for (auto at = MemberAt(*group, place); at != members.end();) {
        if (left-- == 0) return true;
        const auto member = at++;
        mark.last = &*member;
        if (!wanted(member->second)) continue;
        by_key_.erase(by_key_.find(member->second->key()));
        removed.insert(members.extract(member));
      }
      group = members.empty() ? by_group_.erase(group) : std::next(group);
    }
    return false;
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
  // Moves a place on to the last property of a step; that one's node stays where it is.
  struct Mark {
    Place& place;
    const typename Arrivals::value_type* last = nullptr;
    ~Mark() {
      if (last != nullptr) place = {last->second, last->first};
    }
  };
  // Also the set of the groups that there are.
  using Groups = std::map<std::string, Arrivals, std::less<>>;

  Arrivals& GroupOf(std::string_view guid) {
    const auto found = by_group_.find(guid);
    return found != by_group_.end() ? found->second : by_group_[std::string(guid)];
  }

  // Where a walk goes on: the group of the last one that it met, if that is still there.
  auto GroupAt(const Place& place) const {
    return place.last ? by_group_.lower_bound(place.last->group_guid()) : by_group_.begin();
  }
  auto GroupAt(const Place& place) {
    return place.last ? by_group_.lower_bound(place.last->group_guid()) : by_group_.begin();
  }
  template <class Group>
  static auto MemberAt(Group& group, const Place& place) {
    return place.last && group.first == place.last->group_guid()
               ? group.second.upper_bound(place.arrival)
               : group.second.begin();
  }

  Handle Take(typename KeyOrder::const_iterator entry) {
    Handle property = entry->property;
    const auto group = by_group_.find(property->group_guid());
    group->second.erase(entry->arrival);
    if (group->second.empty()) by_group_.erase(group);
    by_key_.erase(entry);
    return property;
  }

  KeyOrder by_key_;
  Groups by_group_;
  std::uint64_t next_arrival_ = 0;
};

}  // namespace valmere
