// The registries order properties by a key that joins two or three of the identity strings. With
// the strings laid out so that the key is a piece of the block, a key costs no memory and a look-up
// compares one run of bytes.
#include "store/property/property_identity.h"

namespace valmere {
namespace {

std::uint32_t Size(std::string_view text) {
  return static_cast<std::uint32_t>(text.size());
}

char* Append(char* end, std::string_view text) {
  return end + text.copy(end, text.size());
}

}  // namespace

PropertyIdentity::PropertyIdentity(std::string_view guid, std::string_view name,
                                   std::string_view group_guid, std::string_view group_name)
    : group_guid_begin_(0),
      guid_begin_(Size(group_guid) + 1),
      name_begin_(guid_begin_ + Size(guid)),
      group_name_begin_(name_begin_ + Size(name)),
      component_name_begin_(group_name_begin_ + Size(group_name)),
      end_(component_name_begin_),
      text_(new char[end_]) {
  char* end = Append(text_.get(), group_guid);
  *end++ = ':';
  end = Append(end, guid);
  end = Append(end, name);
  Append(end, group_name);
}

PropertyIdentity::PropertyIdentity(std::string_view guid, std::string_view name,
                                   std::string_view group_guid, std::string_view group_name,
                                   std::string_view component, std::string_view component_name)
    : group_guid_begin_(Size(component) + 1),
      guid_begin_(group_guid_begin_ + Size(group_guid) + 1),
      name_begin_(guid_begin_ + Size(guid)),
      group_name_begin_(name_begin_ + Size(name)),
      component_name_begin_(group_name_begin_ + Size(group_name)),
      end_(component_name_begin_ + Size(component_name)),
      text_(new char[end_]) {
  char* end = Append(text_.get(), component);
  *end++ = ':';
  end = Append(end, group_guid);
  *end++ = ':';
  end = Append(end, guid);
  end = Append(end, name);
  end = Append(end, group_name);
  Append(end, component_name);
}

}  // namespace valmere
