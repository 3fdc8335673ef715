// What all tests of the entry points share. They see the driver library from outside: its seven
// entry points and the folder that it takes for the device's root.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "driver/prn.h"
#include "tests/driver/messages.h"
#include "tests/platform/device_root.h"
#include "tests/support/frame_client.h"

namespace valmere::test {

inline constexpr EntryPoints kEntry = {PRN_Open, PRN_Close, PRN_Read, PRN_Write};

// What a clean unload adds to its marker file.
inline const std::string kMarkerBytes("\x00\x01\x02\x03", 4);

// The marker file in a folder of the test's; empty when there is none.
inline std::string Marker(const DeviceRoot& device, const std::string& folder = "root") {
  const std::string path = folder + "/DriverUnloadSuccessful";
  return device.Has(path) ? device.Get(path) : "";
}

// A client of the linked library.
class Client : public FrameClient {
 public:
  Client() : FrameClient(kEntry) {}
};

// Gives every test a service of its own: each PRN_Init replaces the one of the test before. The
// suite ends with the one PRN_Deinit, which takes seconds; after all that its tests did, that
// unload must have been a clean one.
class EntryTest : public ::testing::Test {
 protected:
  static void TearDownTestSuite() {
    const std::string before = Marker(device());
    EXPECT_EQ(PRN_Deinit(1), 1u);
    EXPECT_EQ(Marker(device()), before + kMarkerBytes);
  }
  void SetUp() override {
    device();
    ASSERT_EQ(PRN_Init(0), 1u);
  }

  // Pointed to before the first service starts.
  static const DeviceRoot& device() {
    static const DeviceRoot device;
    return device;
  }
};

}  // namespace valmere::test
