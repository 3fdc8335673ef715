// Most values of a message are short texts, so a value is a text or a number and one pointer;
// members and elements live behind the pointer and are made only for the values that have some. The
// blocks behind the pointers are chained when a tree is destroyed: a message nested ten thousand
// deep must not overflow the small stack of the thread that read it.
#include "json/json_value.h"

#include <algorithm>
#include <stdexcept>

namespace valmere {

namespace {

// Up to this many members an insertion sort is faster than a sort with a merge buffer, and a linear
// search faster than a binary one.
constexpr std::size_t kFewMembers = 16;

// Compares keys, and checks now and then whether the parse that they come from has been stopped: a
// text may hold hundreds of thousands of keys.
class KeyOrder {
 public:
  explicit KeyOrder(const ParseStop& stop) : stop_(stop) {}

  bool Less(const JsonMember& left, const JsonMember& right) {
    Count();
    return left.key < right.key;
  }
  bool Equal(const JsonMember& left, const JsonMember& right) {
    Count();
    return left.key == right.key;
  }

 private:
  void Count() {
    if (++compared_ % ParseStop::kValuesBetweenPauses == 0) stop_.Pause();
  }

  const ParseStop& stop_;
  std::size_t compared_ = 0;
};

bool InOrder(const std::vector<JsonMember>& members, KeyOrder& order) {
  return std::adjacent_find(members.begin(), members.end(),
                            [&](const JsonMember& left, const JsonMember& right) {
                              return !order.Less(left, right);
                            }) == members.end();
}

// Keeps members with equal keys in the order in which they came.
void SortByKey(std::vector<JsonMember>& members, KeyOrder& order) {
  const auto less = [&](const JsonMember& left, const JsonMember& right) {
    return order.Less(left, right);
  };
  if (members.size() > kFewMembers) {
    std::stable_sort(members.begin(), members.end(), less);
    return;
  }
  for (auto next = members.begin(); next != members.end(); ++next)
    std::rotate(std::upper_bound(members.begin(), next, *next, less), next, next + 1);
}

template <class Elements>
auto& CheckedAt(Elements& elements, std::size_t index) {
  if (index >= elements.size()) throw std::out_of_range("invalid vector<T> subscript");
  return elements[index];
}

}  // namespace

constinit const JsonValue::Children JsonValue::kNoChildren;

JsonValue::JsonValue(JsonMembers members) {
  set_kind(JsonKind::kObject);
  if (!members.empty()) OwnChildren().members = std::move(members);
}

JsonValue::JsonValue(std::vector<JsonValue> elements) {
  set_kind(JsonKind::kArray);
  if (!elements.empty()) OwnChildren().elements = std::move(elements);
}

JsonValue JsonValue::Object() {
  return JsonValue(JsonMembers());
}

JsonValue JsonValue::Array() {
  return JsonValue(std::vector<JsonValue>());
}

JsonValue::JsonValue(const JsonValue& other)
    : payload_(other.payload_),
      children_(other.children_ ? new Children(*other.children_) : nullptr) {}

// Takes the blocks below each block out of their values before it deletes it, so that no destructor
// meets another block.
void JsonValue::ChildrenDeleter::operator()(Children* children) const noexcept {
  while (children != nullptr) {
    Children* const doomed = children;
    children = doomed->next_to_delete;
    const auto defer = [&children](JsonValue& value) {
      if (!value.children_) return;
      value.children_->next_to_delete = children;
      children = value.children_.release();
    };
    for (JsonMember& member : doomed->members.members_)
      defer(member.value);
    for (JsonValue& element : doomed->elements)
      defer(element);
    delete doomed;
  }
}

JsonValue::Children& JsonValue::OwnChildren() {
  if (!children_) children_.reset(new Children);
  return *children_;
}

JsonValue& JsonValue::operator[](std::string_view key) {
  return OwnChildren().members[key];
}

const JsonValue* JsonValue::Find(std::string_view key) const {
  return members().Find(key);
}

JsonValue* JsonValue::Find(std::string_view key) {
  return children_ ? children_->members.Find(key) : nullptr;
}

void JsonValue::ReplaceMembers(JsonMembers members) {
  OwnChildren().members = std::move(members);
}

const JsonValue& JsonValue::At(std::size_t index) const {
  return CheckedAt(elements(), index);
}

JsonValue& JsonValue::At(std::size_t index) {
  return CheckedAt(OwnChildren().elements, index);
}

void JsonValue::Append(JsonValue element) {
  OwnChildren().elements.push_back(std::move(element));
}

JsonMembers JsonValue::TakeMembers() {
  return children_ ? std::exchange(children_->members, {}) : JsonMembers();
}

JsonMembers::JsonMembers(std::vector<JsonMember> members, const ParseStop& stop)
    : members_(std::move(members)) {
  KeyOrder order(stop);
  if (InOrder(members_, order)) return;
  SortByKey(members_, order);
  const auto same_key = [&](const JsonMember& left, const JsonMember& right) {
    return order.Equal(left, right);
  };
  members_.erase(std::unique(members_.begin(), members_.end(), same_key), members_.end());
}

namespace {

bool KeyBefore(const JsonMember& member, std::string_view wanted) {
  return member.key.view() < wanted;
}

}  // namespace

JsonValue& JsonMembers::operator[](std::string_view key) {
  auto place = std::lower_bound(members_.begin(), members_.end(), key, KeyBefore);
  if (place == members_.end() || place->key.view() != key)
    place = members_.emplace(place, JsonText(key), JsonValue());
  return place->value;
}

// Objects have a few members, but one may have hundreds of thousands.
const JsonValue* JsonMembers::Find(std::string_view key) const {
  const auto has_key = [&](const JsonMember& member) { return member.key.view() == key; };
  if (members_.size() <= kFewMembers) {
    const auto place = std::find_if(members_.begin(), members_.end(), has_key);
    return place != members_.end() ? &place->value : nullptr;
  }
  const auto place = std::lower_bound(members_.begin(), members_.end(), key, KeyBefore);
  return place != members_.end() && has_key(*place) ? &place->value : nullptr;
}

JsonValue* JsonMembers::Find(std::string_view key) {
  return const_cast<JsonValue*>(std::as_const(*this).Find(key));
}

bool operator==(const JsonValue& left, const JsonValue& right) {
  const auto same_member = [](const JsonMember& a, const JsonMember& b) {
    return a.key == b.key && a.value == b.value;
  };
  return left.kind() == right.kind() && left.integer() == right.integer() &&
         left.real() == right.real() && left.boolean() == right.boolean() &&
         left.text() == right.text() && left.elements() == right.elements() &&
         std::equal(left.members().begin(), left.members().end(), right.members().begin(),
                    right.members().end(), same_member);
}

}  // namespace valmere
