// A property that is true or false.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "store/property/property.h"

namespace valmere {

// False for the five letters of "false" in any mix of cases, true for every other text. A text of
// four or five characters is lower-cased in place on the way.
bool ParseBool(std::string& text);

// Purpose: holds a boolean; its text form is "True" or "False".
// Owner: as every property.
// Threads: any; of threads that set the same new value at once, one announces it.
// Errors: every text is accepted; what listeners throw comes through.
class BoolProperty : public Property {
 public:
  static std::shared_ptr<BoolProperty> Make(bool value, std::string_view guid,
                                            std::string_view name, std::string_view group_guid,
                                            std::string_view group_name);
  BoolProperty(MakeToken, bool value, PropertyIdentity identity);

  std::string ToString() const override;
  void SetFromString(std::string text) override;
  void SetFromStringSilently(std::string text) override;

  // Announces the value if it is a change.
  virtual void SetValue(bool value);
  virtual void SetValueSilently(bool value);
  virtual bool GetValue() const;

 private:
  std::atomic<bool> value_;
};

}  // namespace valmere
