// A property that is a 32-bit unsigned number.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "store/property/property.h"

namespace valmere {

// The decimal number at the start of a text, after white space and perhaps a sign; what follows it
// is ignored. A minus sign wraps the number modulo 2^32. Throws std::invalid_argument where there
// is no digit and std::out_of_range for a number above 2^32 - 1, with the texts of the standard
// conversion to an unsigned long of 32 bits.
std::uint32_t ParseUInt(std::string_view text);

// Purpose: holds a number; its text form is plain decimal.
// Owner: as every property.
// Threads: any; of threads that set the same new value at once, one announces it.
// Errors: the text setters throw as ParseUInt does, and the value stays as it is.
class UIntProperty : public Property {
 public:
  static std::shared_ptr<UIntProperty> Make(std::uint32_t value, std::string_view guid,
                                            std::string_view name, std::string_view group_guid,
                                            std::string_view group_name);
  UIntProperty(MakeToken, std::uint32_t value, PropertyIdentity identity);

  std::string ToString() const override;
  void SetFromString(std::string text) override;
  void SetFromStringSilently(std::string text) override;

  // Announces the value if it is a change.
  virtual void SetValue(std::uint32_t value);

  std::uint32_t GetValue() const { return value_.load(); }

 private:
  std::atomic<std::uint32_t> value_;
};

}  // namespace valmere
