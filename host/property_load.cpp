// valmered has no other way into the service than its clients have. What a handle was given before
// it is closed is still handled, so nothing has to be kept or waited for.
#include "host/property_load.h"

#include <cstdint>
#include <exception>
#include <string>

#include "host/report.h"
#include "protocol/message_frame.h"

namespace valmere::host {
namespace {

// The service's own component; the group "General" and in it "Load Properties".
constexpr char kSetLoadProperties[] =
    R"({"PropertySetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
    R"("GUID": "99A61D40-20CE-41EA-A579-EB92C6ED94C6:0D9B0F83-2282-4728-A78E-FE2FF4E3A13C",)"
    R"("Value": "True"}]})";

}  // namespace

// A signal has asked for it, and with it the loop, which must not meet an exception.
void LoadProperties(const DriverLibrary& driver) noexcept try {
  std::string frame;
  BeginFrame(frame);
  frame += kSetLoadProperties;
  EndFrame(frame);
  const std::uint32_t handle = driver.Open();
  const auto* bytes = reinterpret_cast<const unsigned char*>(frame.data());
  const bool taken = driver.Write(handle, {bytes, frame.size()});
  TryReport([taken] {
    return taken ? "loading the property file again"
                 : "the driver does not take the request to load the property file";
  });
  driver.Close(handle);
} catch (const std::exception&) {
  TryReport([] { return "out of memory; the property file is not loaded again"; });
}

}  // namespace valmere::host
