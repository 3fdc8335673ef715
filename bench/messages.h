// What benches say to the service: properties with numbers as values, and one get.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tests/support/frames.h"

namespace valmere::bench {

using test::FrameOf;

// A value of so many bytes, at least eight; the first eight are the digits of a number.
std::string ValueOf(int number, std::size_t bytes = 8);
// A publication of the properties `first` to `end` - 1 of one group, which are named "Measured
// Property 0" and so on, with their numbers as values.
std::string PublicationFrame(int first, int end, std::size_t value_bytes = 8);
// A publication of the first of them with another value, and whether a message tells that value.
std::string ChangeFrame(int number);
bool TellsChange(std::string_view text, int number);
// The get of a property that the service always has.
std::string_view GetText();

}  // namespace valmere::bench
