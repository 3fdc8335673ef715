// A device manager that loads the driver library, works with it, unloads it and begins again. After
// each time the marker file must have grown, and nothing of the library may be left in the process.
#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

#include "platform/posix/sanitizers.h"
#include "tests/driver/messages.h"
#include "tests/driver/process_state.h"
#include "tests/platform/device_root.h"
#include "tests/support/frame_client.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr int kProperties = 20;
const std::string kGeneralGroup = "99A61D40-20CE-41EA-A579-EB92C6ED94C6:";
const Address kStore = {kOwnComponent.component,
                        kGeneralGroup + "DDF2926A-0A65-4196-88FE-5858BC957E0B"};
constexpr char kFile[] = "root/Store/ValmereProperties.ini";

// The first loads leave what grows once: buffers of the C library, stacks that it keeps for later
// threads. From then on, over all loads together, no more than this.
constexpr int kLoadsToSettle = 2;
constexpr std::size_t kHeapSlack = std::size_t{16} * 1024;
constexpr std::size_t kMappingSlack = std::size_t{640} * 1024;

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// Purpose: the library, loaded; unloaded when this goes.
// Owner: the caller. Errors: std::runtime_error.
class LoadedDriver {
 public:
  explicit LoadedDriver(const char* path) : library_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    Require(library_ != nullptr, "the library does not load");
    Resolve("PRN_Init", init);
    Resolve("PRN_Deinit", deinit);
    Resolve("PRN_Open", entry.open);
    Resolve("PRN_Close", entry.close);
    Resolve("PRN_Read", entry.read);
    Resolve("PRN_Write", entry.write);
  }
  ~LoadedDriver() { dlclose(library_); }
  LoadedDriver(const LoadedDriver&) = delete;
  LoadedDriver& operator=(const LoadedDriver&) = delete;

  decltype(&PRN_Init) init;
  decltype(&PRN_Deinit) deinit;
  EntryPoints entry;

 private:
  template <class Function>
  void Resolve(const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library_, name));
    Require(function != nullptr, "an entry point is missing");
  }

  void* const library_;
};

Address Numbered(int number) {
  return {"C", "G:" + std::to_string(number)};
}

// Up to the notification that holds `entry`.
void AwaitTold(FrameClient& subscriber, const std::string& entry) {
  for (;;) {
    const auto text = subscriber.Receive();
    Require(text.has_value(), "the subscriber's session has ended");
    if (text->find(entry) != std::string::npos) return;
  }
}

void Work(const EntryPoints& entry, const DeviceRoot& device) {
  FrameClient owner(entry);
  FrameClient other(entry);
  FrameClient subscriber(entry);
  const FrameClient never_used(entry);
  Require(owner.handle() != 0, "no handle opens");
  Require(subscriber.Ask(R"({"SubscribeAllCurrentAndNewProperties": true,)" +
                         GetText(kOwnComponent).substr(1)) == OwnComponentText(),
          "a subscription is not answered");
  for (int i = 0; i < kProperties; ++i)
    owner.Send(PublishedText(Numbered(i), "first"));
  const Address address = Numbered(kProperties - 1);
  Require(owner.Ask(GetText(address)) == PublishedText(address, "first"), "a get fails");
  other.Send(SetText(address, "second"));
  Require(owner.Receive() == SetText(address, "second"), "a set does not come");
  owner.Send(PublishedText(address, "third"));
  other.Send(SetText(kStore, "True"));
  AwaitTold(subscriber, R"("Value": "third")");
  Require(Eventually([&] { return device.Has(kFile) && device.Get(kFile).size() > 2; }),
          "nothing is stored");
  owner.SendBytes("the beginning of no frame");
}

// A sanitizer maps memory of its own, more or less as threads happen to meet; there none counts.
std::size_t MappedBytes() {
#ifdef VALMERE_SANITIZER
  return 0;
#else
  std::ifstream file("/proc/self/statm");
  std::size_t pages = 0;
  file >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
}

struct State {
  std::size_t threads = ThreadCount();
  std::size_t handles = HandleCount();
  std::size_t heap = HeapBytes();
  std::size_t mapped = MappedBytes();
};

void LoadOnce(const char* path, const DeviceRoot& device) {
  {
    const LoadedDriver driver(path);
    driver.init(0);
    Work(driver.entry, device);
    driver.deinit(1);
  }
  Require(dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr, "the library stays loaded");
}

void Reload(const char* path, std::uint32_t times, const DeviceRoot& device) {
  const State before;
  State settled;
  State now;
  for (std::uint32_t time = 1; time <= times; ++time) {
    LoadOnce(path, device);
    now = State();
    if (time == kLoadsToSettle) settled = now;
    Require(device.Get("root/DriverUnloadSuccessful").size() == 4 * time,
            "an unload was not clean");
    Require(now.threads == before.threads, "a thread is left");
    Require(now.handles == before.handles, "a descriptor is left");
    if (time <= kLoadsToSettle) continue;
    Require(now.heap <= settled.heap + kHeapSlack, "the heap grows");
    Require(now.mapped <= settled.mapped + kMappingSlack, "the mappings grow");
  }
  std::printf(
      "%u loads: %zu threads, %zu descriptors; heap %zu bytes, after %d loads %zu, at last %zu; "
      "mapped %zu bytes, %zu, %zu\n",
      times, now.threads, now.handles, before.heap, kLoadsToSettle, settled.heap, now.heap,
      before.mapped, settled.mapped, now.mapped);
}

int Run(const char* path, std::uint32_t times) {
  // A heap for each thread would grow by how threads happen to meet.
  mallopt(M_ARENA_MAX, 1);
  try {
    DeviceRoot device;
    device.MakeFolder("root/Store");
    TestThread([] {}).Join();  // a sanitizer's own thread comes with the first other one
    Reload(path, times, device);
    return 0;
  } catch (const std::exception& error) {
    std::printf("reload: %s; %zu threads, %zu descriptors, %zu bytes of heap, %zu mapped\n",
                error.what(), ThreadCount(), HandleCount(), HeapBytes(), MappedBytes());
    return 1;
  }
}

}  // namespace
}  // namespace valmere::test

int main(int argc, char** argv) {
  std::uint32_t times = 0;
  const char* const text = argc == 3 ? argv[2] : "";
  if (std::from_chars(text, text + std::strlen(text), times).ec != std::errc() || times == 0) {
    std::fputs("usage: driver_reload LIBRARY TIMES\n", stderr);
    return 2;
  }
  return valmere::test::Run(argv[1], times);
}
