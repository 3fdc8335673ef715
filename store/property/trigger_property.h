// A property that is a command.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>

#include "store/property/bool_property.h"

namespace valmere {

// Purpose: writing true is the command: it calls the listeners every time; writing false does
// nothing. Neither changes the stored boolean; only the silent setters do.
// Owner: as every property.
// Threads: any; the listeners of two commands may run at once.
// Errors: as BoolProperty.
class TriggerProperty : public BoolProperty {
 public:
  static std::shared_ptr<TriggerProperty> Make(bool value, std::string_view guid,
                                               std::string_view name, std::string_view group_guid,
                                               std::string_view group_name);
  TriggerProperty(MakeToken, bool value, PropertyIdentity identity);

  void SetValue(bool value) override;

  // For an owner that looks now and then whether a command came: armed until the next one.
  void Arm() { armed_.store(true); }
  bool armed() const { return armed_.load(); }

 private:
  std::atomic<bool> armed_{false};
};

}  // namespace valmere
