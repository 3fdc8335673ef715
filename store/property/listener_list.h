// The callables that a property calls when it changes.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace valmere {

class Property;
using PropertyListener = std::function<void(const std::shared_ptr<Property>&)>;

// Purpose: a list that only grows, walked without a lock while other threads append to it.
// Owner: the property; an empty list is one null pointer.
// Threads: any thread appends and walks; destruction alone.
// Errors: Append throws std::bad_alloc; a walk lets through what its visitor throws.
class ListenerList {
 public:
  ListenerList() = default;
  ~ListenerList();
  ListenerList(const ListenerList&) = delete;
  ListenerList& operator=(const ListenerList&) = delete;

  using SharedListener = std::shared_ptr<const PropertyListener>;

  void Append(PropertyListener listener) {
    AppendShared(std::make_shared<const PropertyListener>(std::move(listener)));
  }
  void AppendShared(SharedListener listener);

  // Visits, first to last, the listeners that are there when the walk begins: one that a listener
  // appends is called from the next walk on.
  template <class Visitor>
  void Walk(Visitor visit) const {
    const Node* last = Last();
    if (last == nullptr) return;
    const Node* node = first_.load(std::memory_order_acquire);
    for (; node != last; node = node->next.load(std::memory_order_acquire))
      visit(*node->listener);
    visit(*last->listener);
  }

 private:
  struct Node {
    explicit Node(SharedListener new_listener) : listener(std::move(new_listener)) {}

    const SharedListener listener;
    std::atomic<Node*> next{nullptr};
  };

  const Node* Last() const;

  std::atomic<Node*> first_{nullptr};
};

}  // namespace valmere
