// Listeners are never taken out one by one, so a node, once linked, stays where it is for as long
// as the property lives. That makes walking safe without a lock, and an append is one exchange of
// the null pointer at the end of the chain. So subscriptions may arrive while values change, and
// no listener runs with a lock held that it did not take itself.
#include "store/property/listener_list.h"

namespace valmere {

ListenerList::~ListenerList() {
  for (Node* node = first_.load(std::memory_order_acquire); node != nullptr;) {
    const std::unique_ptr<Node> gone(node);
    node = node->next.load(std::memory_order_acquire);
  }
}

void ListenerList::AppendShared(SharedListener listener) {
  auto node = std::make_unique<Node>(std::move(listener));
  std::atomic<Node*>* link = &first_;
  for (Node* taken = nullptr; !link->compare_exchange_strong(taken, node.get()); taken = nullptr)
    link = &taken->next;
  node.release();  // NOLINT(bugprone-unused-return-value): the chain owns it now
}

const ListenerList::Node* ListenerList::Last() const {
  const Node* last = nullptr;
  for (const Node* node = first_.load(std::memory_order_acquire); node != nullptr;
       node = node->next.load(std::memory_order_acquire))
    last = node;
  return last;
}

}  // namespace valmere
