// What the two registries have in common.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "store/property/property_key.h"
#include "store/property/sorted_blocks.h"

namespace valmere {

// Purpose: properties under two orders: by key, and by group with a group's in order of arrival.
// Owner: a registry.
// Threads: none of its own; the registry guards it. A walk goes step by step, and the index may
// change between two of them.
// Errors: Add throws std::bad_alloc and leaves the index as it was.
// The properties carry the texts and the arrival numbers that it is ordered by, so a property is in
// one index at a time. A look-up takes O(log n).
template <class P>
class PropertyIndex {
 public:
  using Handle = std::shared_ptr<P>;

  // How many properties one step of a walk looks at: the registry releases its lock between two
  // steps, so that other threads get it.
  static constexpr std::size_t kStep = 256;
  // How far a walk over all has come. A property that is there from its beginning to its end is
  // visited once.
  struct Place {
    Handle last;
    std::uint64_t arrival = 0;
  };
  // What one step has taken out, in the order of arrival. Filling it allocates nothing.
  class Removed {
   public:
    std::size_t size() const { return size_; }
    auto begin() const { return handles_.begin(); }
    auto end() const { return handles_.begin() + static_cast<std::ptrdiff_t>(size_); }

   private:
    friend class PropertyIndex;

    void Add(Handle handle) { handles_[size_++] = std::move(handle); }
    void Sort() {
      std::sort(handles_.begin(), handles_.begin() + static_cast<std::ptrdiff_t>(size_),
                [](const Handle& a, const Handle& b) { return a->arrival() < b->arrival(); });
    }

    std::array<Handle, kStep> handles_;
    std::size_t size_ = 0;
  };

  // False, and nothing changes, when the key is present.
  bool Add(const Handle& property) {
    const auto [place, present] = Look(property->key());
    if (present) return false;
    by_key_.Insert(place, property);
    try {
      by_group_.Insert(FirstOf(property->group_guid(), next_arrival_), property.get());
    } catch (const std::bad_alloc&) {
      TakeByKey(property->key());
      throw;
    }
    property->set_arrival(next_arrival_++);
    return true;
  }

  // Empty when there is none.
  Handle Find(const PropertyKey& key) const {
    const auto [place, present] = Look(key);
    return present ? by_key_[place] : Handle();
  }
  bool Has(const P& property) const {
    const auto [place, present] = Look(property.key());
    return present && by_key_[place].get() == &property;
  }

  // Takes the property out of both orders; empty when there is none.
  Handle Remove(const PropertyKey& key) {
    auto [place, present] = Look(key);
    if (!present) return Handle();
    Handle removed = by_key_.Take(place);
    auto member = FirstOf(removed->group_guid(), removed->arrival());
    by_group_.Take(member);
    return removed;
  }

  std::size_t size() const { return by_key_.size(); }

  // One step over a group, in the order of arrival, beginning with the arrival `next`: appends up
  // to kStep properties and moves `next` on. False when none can be left.
  bool ListGroup(std::string_view group_guid, std::uint64_t& next, std::vector<Handle>& out) const {
    std::size_t left = kStep;
    for (auto member = FirstOf(group_guid, next); member != by_group_.end();
         member = by_group_.Next(member)) {
      P& property = *by_group_[member];
      if (property.group_guid() != group_guid) return false;
      if (left-- == 0) return true;
      out.push_back(HandleOf(property));
      next = property.arrival() + 1;
    }
    return false;
  }

  // One step over all, by ascending group GUID and within a group in the order of arrival: appends
  // up to kStep properties and moves `place` on. False when none is left.
  bool ListAll(Place& place, std::vector<Handle>& out) const {
    auto member = FirstBehind(place);
    for (std::size_t left = kStep; left != 0 && member != by_group_.end(); --left) {
      out.push_back(HandleOf(*by_group_[member]));
      member = by_group_.Next(member);
      if (left == 1) MoveTo(place, out.back());
    }
    return member != by_group_.end();
  }

  // The same step, which takes out what `wanted` picks and adds it to `removed`, which is empty
  // before. Allocates nothing.
  template <class Predicate>
  bool RemoveIf(Place& place, Removed& removed, Predicate wanted) {
    auto member = FirstBehind(place);
    for (std::size_t left = kStep; left != 0 && member != by_group_.end(); --left) {
      P& property = *by_group_[member];
      if (left == 1) MoveTo(place, HandleOf(property));
      if (wanted(property)) {
        by_group_.Take(member);
        removed.Add(TakeByKey(property.key()));
      } else {
        member = by_group_.Next(member);
      }
    }
    removed.Sort();
    return member != by_group_.end();
  }

 private:
  using ByKey = SortedBlocks<Handle>;
  using ByGroup = SortedBlocks<P*>;

  static Handle HandleOf(P& property) {
    return std::static_pointer_cast<P>(property.shared_from_this());
  }
  static void MoveTo(Place& place, Handle last) {
    place.arrival = last->arrival();
    place.last = std::move(last);
  }

  struct Found {
    typename ByKey::Position place;
    bool present;
  };

  // The search meets the key itself if it is there.
  Found Look(const PropertyKey& key) const {
    bool present = false;
    const auto place = by_key_.Find([&](const Handle& each) {
      const int order = each->CompareKey(key);
      present |= order == 0;
      return order < 0;
    });
    return {place, present};
  }
  Handle TakeByKey(const PropertyKey& key) {
    auto place = Look(key).place;
    return by_key_.Take(place);
  }

  // The group's first property of this arrival or a later one, or what is behind the group.
  typename ByGroup::Position FirstOf(std::string_view group_guid, std::uint64_t arrival) const {
    return by_group_.Find([&](const P* each) {
      const int order = each->group_guid().compare(group_guid);
      return order != 0 ? order < 0 : each->arrival() < arrival;
    });
  }
  // Where a walk goes on.
  typename ByGroup::Position FirstBehind(const Place& place) const {
    return place.last ? FirstOf(place.last->group_guid(), place.arrival + 1) : by_group_.begin();
  }

  ByKey by_key_;
  ByGroup by_group_;
  std::uint64_t next_arrival_ = 0;
};

}  // namespace valmere
