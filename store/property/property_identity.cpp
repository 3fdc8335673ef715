// Only what is the property's own is kept for each property; the rest is found through its group.
#include "store/property/property_identity.h"

#include <utility>

namespace valmere {

PropertyIdentity::PropertyIdentity(std::string_view guid, std::string_view name,
                                   IdentityScope group)
    : group_(std::move(group)),
      guid_size_(static_cast<std::uint32_t>(guid.size())),
      name_size_(static_cast<std::uint32_t>(name.size())),
      text_(new char[guid.size() + name.size()]) {
  name.copy(text_.get() + guid.copy(text_.get(), guid.size()), name.size());
}

}  // namespace valmere
