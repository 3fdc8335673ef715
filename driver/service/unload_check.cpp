// The marker only grows: four bytes for each clean unload, so that a reader can count them.
#include "driver/service/unload_check.h"

#include "driver/sync/live_counters.h"
#include "persist/file/file_stream.h"

namespace valmere {
namespace {

constexpr platform::WidePathView kMarkerPath = u"\\DriverUnloadSuccessful";
constexpr std::string_view kMarker("\x00\x01\x02\x03", 4);

}  // namespace

void MarkCleanUnload(platform::FileSystem& files) {
  const std::uint32_t threads = LiveWorkerThreads::Live();
  const std::uint32_t event_flags = LiveEventFlags::Live();
  const std::uint32_t properties = LiveProperties::Live();
  if (threads != 0 || event_flags != 0 || properties != 0) return;
  FileStream marker(files, kMarkerPath, platform::OpenFlags::kWrite | platform::OpenFlags::kAppend);
  marker.WriteAll(kMarker);
}

}  // namespace valmere
