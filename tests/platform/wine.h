// Tells whether the tests run in Wine, some of whose limits are not the system's.
#pragma once

namespace valmere::testing {

bool InWine();

}  // namespace valmere::testing
