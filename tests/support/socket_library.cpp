// A program whose tests use sockets without the service, which starts the socket library, does so
// by itself: this lies among its sources.
#include <gtest/gtest.h>

#include "platform/sockets.h"

namespace valmere::test {
namespace {

class SocketLibrary final : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_EQ(platform::kSocketLibrary, platform::StartSockets()); }
  void TearDown() override { platform::CleanUpSockets(); }
};

[[maybe_unused]] const ::testing::Environment* const socket_library =
    ::testing::AddGlobalTestEnvironment(new SocketLibrary);

}  // namespace
}  // namespace valmere::test
