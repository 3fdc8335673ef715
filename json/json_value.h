// A JSON datum of any kind, and the ordered members of an object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json/json_text.h"
#include "json/parse_stop.h"

namespace valmere {

enum class JsonKind : std::uint32_t {
  kInteger = 0,
  kFloat = 1,
  kBoolean = 2,
  kString = 3,
  kObject = 4,
  kArray = 5,
  kNull = 6,
};

class JsonMembers;

// Purpose: holds one JSON datum; default null. Every payload can be read whatever the kind: empty
//   or zero unless it is the kind's own, or was put there by operator[] or Append.
// Owner: its holder; it owns its members and elements, and a copy is deep.
// Threads: no lock; const operations may run at the same time.
// Errors: std::bad_alloc, std::out_of_range from At.
// Destruction needs the same little stack however deep the nesting is; copying, comparing and
// writing recurse once per level.
class JsonValue {
 public:
  JsonValue() noexcept { set_kind(JsonKind::kNull); }
  explicit JsonValue(bool value) noexcept : JsonValue(JsonText::With(value), JsonKind::kBoolean) {}
  explicit JsonValue(double value) noexcept : JsonValue(JsonText::With(value), JsonKind::kFloat) {}
  explicit JsonValue(std::int64_t value) noexcept
      : JsonValue(JsonText::With(value), JsonKind::kInteger) {}
  explicit JsonValue(int value) noexcept : JsonValue(std::int64_t{value}) {}
  explicit JsonValue(JsonText text) noexcept : JsonValue(std::move(text), JsonKind::kString) {}
  explicit JsonValue(std::string_view text) : JsonValue(JsonText(text)) {}
  explicit JsonValue(const std::string& text) : JsonValue(std::string_view(text)) {}
  explicit JsonValue(const char* text) : JsonValue(std::string_view(text)) {}
  // Any other pointer would quietly become a boolean.
  explicit JsonValue(const void*) = delete;
  explicit JsonValue(JsonMembers members);
  explicit JsonValue(std::vector<JsonValue> elements);
  static JsonValue Object();
  static JsonValue Array();

  JsonValue(const JsonValue& other);
  JsonValue& operator=(const JsonValue& other) { return *this = JsonValue(other); }
  JsonValue(JsonValue&&) noexcept = default;
  JsonValue& operator=(JsonValue&&) noexcept = default;
  ~JsonValue() = default;

  JsonKind kind() const { return static_cast<JsonKind>(payload_.note()); }
  std::int64_t integer() const {
    return kind() == JsonKind::kInteger ? payload_.As<std::int64_t>() : 0;
  }
  double real() const { return kind() == JsonKind::kFloat ? payload_.As<double>() : 0; }
  bool boolean() const { return kind() == JsonKind::kBoolean && payload_.As<bool>(); }
  std::string_view text() const { return payload_.view(); }
  const JsonMembers& members() const;
  const std::vector<JsonValue>& elements() const;

  // The member with this key; a null member is inserted first when there is no such member.
  JsonValue& operator[](std::string_view key);
  // Null when there is no such member.
  const JsonValue* Find(std::string_view key) const;
  JsonValue* Find(std::string_view key);
  void ReplaceMembers(JsonMembers members);

  std::size_t size() const { return elements().size(); }
  // std::out_of_range "invalid vector<T> subscript" when there is no such element.
  const JsonValue& At(std::size_t index) const;
  JsonValue& At(std::size_t index);
  void Append(JsonValue element);

  // Moves the payload out and leaves it empty; the kind stays.
  JsonMembers TakeMembers();

 private:
  struct Children;
  struct ChildrenDeleter {
    void operator()(Children* children) const noexcept;
  };
  static const Children kNoChildren;

  Children& OwnChildren();
  const Children& children() const;

  JsonValue(JsonText payload, JsonKind kind) noexcept : payload_(std::move(payload)) {
    set_kind(kind);
  }
  void set_kind(JsonKind kind) { payload_.set_note(static_cast<std::uint8_t>(kind)); }

  JsonText payload_;  // its note is the kind
  // Last, so that a value can be assigned from one of its own descendants: they go after all else
  // has been moved.
  std::unique_ptr<Children, ChildrenDeleter> children_;
};

struct JsonMember {
  JsonMember(JsonText member_key, JsonValue member_value) noexcept
      : key(std::move(member_key)), value(std::move(member_value)) {}

  JsonText key;
  JsonValue value;
};

// Purpose: the members of an object, in ascending byte order of their keys, each key once.
// Owner: a JsonValue, or the code that builds or takes them.
// Threads: no lock; const operations may run at the same time.
// Errors: std::bad_alloc.
// A sorted array: objects are small and read far more often than they grow.
class JsonMembers {
 public:
  using Iterator = std::vector<JsonMember>::const_iterator;

  JsonMembers() = default;
  // Takes members in any order; of members with the same key the first stays. ParseStopped.
  explicit JsonMembers(std::vector<JsonMember> members, const ParseStop& stop = {});

  std::size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  Iterator begin() const { return members_.begin(); }
  Iterator end() const { return members_.end(); }

  // As JsonValue's.
  JsonValue& operator[](std::string_view key);
  const JsonValue* Find(std::string_view key) const;
  JsonValue* Find(std::string_view key);

 private:
  friend class JsonValue;

  std::vector<JsonMember> members_;
};

struct JsonValue::Children {
  JsonMembers members;
  std::vector<JsonValue> elements;
  Children* next_to_delete = nullptr;
};

inline const JsonValue::Children& JsonValue::children() const {
  return children_ ? *children_ : kNoChildren;
}

inline const JsonMembers& JsonValue::members() const {
  return children().members;
}
inline const std::vector<JsonValue>& JsonValue::elements() const {
  return children().elements;
}

bool operator==(const JsonValue& left, const JsonValue& right);

}  // namespace valmere
