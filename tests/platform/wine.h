// Tells whether the tests run in Wine, some of whose limits are not the system's.
#pragma once

namespace valmere::test {

bool InWine();

}  // namespace valmere::test
