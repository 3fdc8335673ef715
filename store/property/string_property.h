// A property that is a text.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "store/property/property.h"
#include "store/property/text_snapshot.h"

namespace valmere {

// Purpose: holds a text, which is its own text form, byte for byte.
// Owner: as every property.
// Threads: any. Setters of different texts at the same time each store and each announce; the value
// that stays is the one stored last, and a listener reads a value at least as new as the change.
// Errors: std::bad_alloc, with the value as it was; what listeners throw comes through.
class StringProperty : public Property {
 public:
  static std::shared_ptr<StringProperty> Make(std::string_view value, std::string_view guid,
                                              std::string_view name, std::string_view group_guid,
                                              std::string_view group_name);
  StringProperty(MakeToken, std::string_view value, PropertyIdentity identity);

  // Copies the text without taking the value lock.
  std::string ToString() const override;
  void SetFromString(std::string text) override;
  void SetFromStringSilently(std::string text) override;

  // Announces the text if it is a change.
  virtual void SetValue(std::string_view value);
  // Copies the text under the value lock.
  virtual std::string GetValue() const;

  // The text as it stands, shared instead of copied; as ToString, without the value lock.
  SharedText Snapshot() const { return text_.Load(); }

 protected:
  // Shared with properties that have nothing to do with this one, so that each is smaller: nothing
  // else than a text's lock is taken under it.
  Lock& value_lock() const { return StoreLock(&text_); }

  virtual void StoreText(std::string_view value) EXCLUDES(value_lock());
  void PutText(SharedText text) REQUIRES(value_lock()) { text_.Store(std::move(text)); }

  // Of a component's property: another client than its owner has published the value. It stands here
  // because it takes no room here.
  bool value_is_foreign_ GUARDED_BY(value_lock()) = false;

 private:
  // Stored under the value lock, loaded with or without it.
  TextSnapshot text_;
};

}  // namespace valmere
