// What the tests of faults share: the driver's entry points in this very program, over a device
// root of the test's own.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "driver/prn.h"
#include "driver/sync/live_counters.h"
#include "persist/log/debug_switches.h"
#include "tests/driver/messages.h"
#include "tests/faults/fault_parameters.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/platform/device_root.h"
#include "tests/support/frame_client.h"
#include "tests/support/test_thread.h"

namespace valmere::test {

// The entry points, called as the system.
inline constexpr EntryPoints kSystemEntry = {
    [](std::uint32_t context, std::uint32_t access, std::uint32_t share) {
      const InSystem in_system;
      return PRN_Open(context, access, share);
    },
    [](std::uint32_t handle) {
      const InSystem in_system;
      return PRN_Close(handle);
    },
    [](std::uint32_t handle, void* buffer, std::uint32_t count) {
      const InSystem in_system;
      return PRN_Read(handle, buffer, count);
    },
    [](std::uint32_t handle, const void* buffer, std::uint32_t count) {
      const InSystem in_system;
      return PRN_Write(handle, buffer, count);
    }};

class FaultClient : public FrameClient {
 public:
  FaultClient() : FrameClient(kSystemEntry) {}
};

// A property of the service's own that is stored.
inline const Address kPeriod = {
    kOwnComponent.component,
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129"};
inline constexpr std::string_view kPeriodLine =
    "99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-177E4C102129|General:"
    "Property Publishing Period in ms=";

inline std::string PropertyFile(std::string_view period) {
  return WithTrailer("A1:B2|Group:Of another program=1\n" + std::string(kPeriodLine) +
                     std::string(period) + "\n");
}

// A set of one property and a get of it, in one message.
inline std::string SetAndGetText(const Address& address, std::string_view value) {
  std::string text = SetText(address, value);
  text.back() = ',';
  return text + GetText(address).substr(1);
}

inline std::string SubscribeText(const Address& address) {
  std::string text = GetText(address);
  const std::string_view gets = "PropertyGetRequests";
  return text.replace(text.find(gets), gets.size(), "PropertySubscribeRequests");
}

inline bool Holds(const std::optional<std::string>& text, std::string_view part) {
  return text && text->find(part) != std::string::npos;
}

inline std::string ValueText(std::string_view value) {
  return "\"Value\": " + Quoted(value);
}

inline int OpenDescriptors() {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
  int count = 0;
  while (readdir(folder.get()) != nullptr)
    ++count;
  return count;
}

// What a service must not leave behind.
struct Remains {
  std::int64_t blocks;
  int descriptors;
  std::uint32_t alive;

  static Remains Now() {
    return {SystemBlocks(), OpenDescriptors(),
            LiveWorkerThreads::Live() + LiveEventFlags::Live() + LiveProperties::Live()};
  }
  friend bool operator==(const Remains&, const Remains&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Remains& remains) {
    return out << remains.blocks << " blocks, " << remains.descriptors << " descriptors, "
               << remains.alive << " objects";
  }
};

#ifndef VALMERE_ALLOCATION_STEP
#define VALMERE_ALLOCATION_STEP 1
#endif

// One kind of fault; runs an act with the first, the second, the third ... call of its kind
// failing, until the act comes to its end without that.
class FaultTest : public ::testing::TestWithParam<std::tuple<Fault, Extent>> {
 protected:
  static constexpr const char* kFile = "root/Store/ValmereProperties.ini";
  static constexpr const char* kMarker = "root/DriverUnloadSuccessful";

  void SetUp() override {
    device_.MakeFolder("root/Store");
    device_.MakeFolder("root/windows");
    device_.Put("root/windows/version.ini", "OSVersion=\"8.3\"\r\nOSBuildNumber=\"6250\"\r\n");
    // What is logged must not cost anything either.
    SetZones([](std::size_t) { return true; });
    // What a first life leaves for good, such as the C library's time zone, is no leak.
    Start();
    Use();
    Stop();
    device_.Remove(kMarker);
    before_ = Remains::Now();
  }

  void TearDown() override {
    SetZones([](std::size_t zone) { return zone < 2; });
  }

  static Fault fault() { return std::get<Fault>(GetParam()); }
  static Extent extent() { return std::get<Extent>(GetParam()); }

  // `act` is given n, orders the fault and tells whether it was reached.
  template <class Act>
  static void ForEachFault(Act act) {
    for (std::uint64_t n = 1;; n += fault() == Fault::kMemory ? VALMERE_ALLOCATION_STEP : 1) {
      SCOPED_TRACE(TestNameOf(fault()) + " " + std::to_string(n));
      if (!act(n) || HasFailure()) return;
    }
  }

  void Start() {
    device_.Put(kFile, PropertyFile("750"));
    const InSystem in_system;
    PRN_Init(0);
  }
  static void Stop() {
    const InSystem in_system;
    PRN_Deinit(1);
  }
  // An unload without a fault; nothing may be left.
  void StopCleanly() {
    const std::string marker = device_.Has(kMarker) ? device_.Get(kMarker) : "";
    Stop();
    // A thread that has been counted out may not have given back all that it held.
    Eventually([&] { return Remains::Now() == before_; });
    EXPECT_EQ(Remains::Now(), before_);
    EXPECT_EQ(device_.Get(kMarker), marker + std::string("\0\1\2\3", 4));
  }

  static bool Answers() {
    FaultClient client;
    return client.Ask(GetText(kOwnComponent)) == OwnComponentText();
  }
  // Every thread of the service has its part in this.
  bool Use() {
    FaultClient subscriber;
    FaultClient client;
    const std::string value = std::to_string(1000 + ++uses_);
    return subscriber.Send(SubscribeText(kPeriod)) &&
           subscriber.Ask(GetText(kOwnComponent)) == OwnComponentText() &&
           Holds(client.Ask(SetAndGetText(kPeriod, value)), ValueText(value)) &&
           Holds(subscriber.Receive(), ValueText(value)) &&
           Eventually([&] { return device_.Get(kFile) == PropertyFile(value); });
  }

  // A new session is answered, that many others are being served, each by a thread, and none is
  // left of the threads that were. One whose end could not be told of for want of memory goes with
  // the next session that ends; that may be one after the first.
  static bool Serves(std::uint32_t sessions) {
    constexpr std::uint32_t kOwnThreads = 6;  // task queue, acceptor, publisher, lines (2), log
    const auto at_rest = [sessions] {
      return Eventually([&] { return LiveWorkerThreads::Live() == kOwnThreads + sessions; });
    };
    return Answers() && (at_rest() || (Answers() && at_rest()));
  }

  template <class Choice>
  static void SetZones(Choice choice) {
    for (std::size_t zone = 0; zone < static_cast<std::size_t>(DebugZone::kCount); ++zone)
      SwitchOf(static_cast<DebugZone>(zone)) = choice(zone);
  }

  DeviceRoot device_;
  Remains before_{};
  int uses_ = 0;
};

}  // namespace valmere::test
