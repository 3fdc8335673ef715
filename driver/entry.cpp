// The seven entry points: a thin layer over the one service object. A call for a handle that no
// session has, and any call while no service runs, gets the answer of an unknown handle.
#include <algorithm>
#include <exception>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "driver/prn.h"
#include "driver/running_service.h"
#include "driver/service/ini_reader.h"
#include "driver/service/unload_check.h"
#include "driver/sync/event_flags.h"
#include "platform/files.h"

namespace {

using valmere::DriverSession;
using valmere::ReadIniValue;
using valmere::StorePaths;
using valmere::ValmereService;

constexpr std::uint32_t kUnloadGraceMilliseconds = 3000;

// Set and cleared by PRN_Init and PRN_Deinit, which are called alone.
std::unique_ptr<ValmereService> g_service;
std::shared_ptr<valmere::platform::FileSystem> g_files;

std::shared_ptr<DriverSession> FindSession(std::uint32_t handle) {
  return g_service ? g_service->sessions().Find(handle) : nullptr;
}

// Lengths are signed further in; no caller has a buffer that this cuts.
int AsLength(std::uint32_t count) {
  return static_cast<int>(std::min<std::uint32_t>(count, std::numeric_limits<std::int32_t>::max()));
}

// No exception leaves the library: a call for which there is no memory returns `otherwise`.
template <class Result, class Call>
Result Guarded(Result otherwise, Call call) {
  try {
    return call();
  } catch (const std::exception&) {
    return otherwise;
  }
}

constexpr StorePaths kPaths = {u"/Store/ValmereProperties.ini",
                               u"/Store/ValmerePropertiesOverride.ini",
                               u"/Store/ValmereLogFileName.txt"};

std::unique_ptr<ValmereService> MakeService() {
  constexpr char16_t kVersionFile[] = u"\\windows\\version.ini";
  g_files = valmere::platform::MakeDeviceFileSystem();
  const std::string build_number = ReadIniValue(*g_files, kVersionFile, "OSBuildNumber");
  const std::string version = ReadIniValue(*g_files, kVersionFile, "OSVersion");
  return std::make_unique<ValmereService>(g_files, kPaths, version, build_number);
}

void PublishQtVersions(ValmereService& service) {
  constexpr char16_t kRuntimeFile[] = u"\\boot\\qtlibs_version.ini";
  constexpr char16_t kCommonFile[] = u"\\boot\\qtcommon_version.ini";
  std::string build_number = ReadIniValue(*g_files, kRuntimeFile, "QtBuildNumber");
  std::string version = ReadIniValue(*g_files, kRuntimeFile, "QtVersion");
  service.PublishQtRuntimeVersion(std::move(version), std::move(build_number));
  build_number = ReadIniValue(*g_files, kCommonFile, "QtCommonBuildNumber");
  version = ReadIniValue(*g_files, kCommonFile, "QtCommonVersion");
  service.PublishQtCommonVersion(std::move(version), std::move(build_number));
}

bool CompleteService() {
  PublishQtVersions(*g_service);
  g_service->StartAnnouncing();
  return true;
}

// Gives worker threads time to leave. Nothing sets the flag.
void WaitForStragglers() {
  valmere::EventFlags never(valmere::EventFlags::AutoClear::kNo);
  never.WaitFor(1, kUnloadGraceMilliseconds);
}

}  // namespace

valmere::ValmereService* valmere::RunningService() {
  return g_service.get();
}

extern "C" {

uint32_t PRN_Init(uint32_t /*registry_context*/) {
  std::unique_ptr<ValmereService> service = Guarded(std::unique_ptr<ValmereService>(), MakeService);
  // The new one is complete before the one that it replaces goes.
  g_service.swap(service);
  service.reset();
  if (g_service && !Guarded(false, CompleteService)) g_service.reset();
  return 1;
}

uint32_t PRN_Deinit(uint32_t /*device_context*/) {
  Guarded(false, [] {
    if (g_service) g_service->CloseAllSessions();
    return true;
  });
  g_service.reset();
  Guarded(false, [] {
    WaitForStragglers();
    const auto files = g_files ? std::move(g_files) : valmere::platform::MakeDeviceFileSystem();
    valmere::MarkCleanUnload(*files);
    return true;
  });
  g_files.reset();
  return 1;
}

uint32_t PRN_Open(uint32_t /*device_context*/, uint32_t /*access*/, uint32_t /*share_mode*/) {
  return Guarded(std::uint32_t{0},
                 [] { return g_service ? g_service->OpenSession() : std::uint32_t{0}; });
}

uint32_t PRN_Close(uint32_t open_handle) {
  if (!FindSession(open_handle)) return 0;
  return Guarded(std::uint32_t{1}, [&] {
    return g_service->CloseSession(open_handle) ? std::uint32_t{1} : std::uint32_t{0};
  });
}

uint32_t PRN_Read(uint32_t open_handle, void* buffer, uint32_t count) {
  const auto session = FindSession(open_handle);
  if (session && (buffer != nullptr || count == 0))
    Guarded(0, [&] { return session->Read(buffer, AsLength(count)); });
  return count;
}

int32_t PRN_Write(uint32_t open_handle, const void* buffer, uint32_t count) {
  const auto session = FindSession(open_handle);
  if (!session || (buffer == nullptr && count != 0)) return -1;
  return Guarded(std::int32_t{-1},
                 [&] { return std::max(session->Write(buffer, AsLength(count)), -1); });
}

uint32_t PRN_IOControl(uint32_t /*open_handle*/, uint32_t /*code*/, void* /*in*/,
                       uint32_t /*in_size*/, void* /*out*/, uint32_t /*out_size*/,
                       uint32_t* /*out_count*/) {
  return 0;
}

}  // extern "C"
