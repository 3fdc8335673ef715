// A command has no state to compare with: every write of true is one, whatever was written before.
#include "store/property/trigger_property.h"

#include <utility>

namespace valmere {

std::shared_ptr<TriggerProperty> TriggerProperty::Make(bool value, std::string_view guid,
                                                       std::string_view name,
                                                       std::string_view group_guid,
                                                       std::string_view group_name) {
  return std::make_shared<TriggerProperty>(MakeToken(), value,
                                           PropertyIdentity(guid, name, group_guid, group_name));
}

TriggerProperty::TriggerProperty(MakeToken token, bool value, PropertyIdentity identity)
    : BoolProperty(token, value, std::move(identity)) {}

void TriggerProperty::SetValue(bool value) {
  if (!value) return;
  armed_.store(false);
  NotifyChanged();
}

}  // namespace valmere
