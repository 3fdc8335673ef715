// Construction in one fixed order: each component is given those before it. The property file comes
// first of what has state, so that everything registered later finds its value.
#include "driver/service/service.h"

#include <new>
#include <utility>

#include "driver/service/priorities.h"
#include "driver/service/step_log.h"
#include "driver/service/version_info.h"
#include "driver/sync/live_counters.h"
#include "net/listener_factory.h"
#include "persist/file/file_stream.h"
#include "protocol/message/property_message.h"
#include "protocol/stream/json_message_handler.h"
#include "store/engine/debug_zones.h"
#include "store/property/general_group.h"
#include "store/property/string_property.h"

namespace valmere {
namespace {

constexpr int kListenBacklog = 10;
constexpr platform::WidePathView kOwnDevice = u"PRN1:";

std::shared_ptr<StringProperty> MakeReadOnly(std::string_view value, std::string_view guid,
                                             std::string_view name, std::string_view group_guid,
                                             std::string_view group_name) {
  auto property = StringProperty::Make(value, guid, name, group_guid, group_name);
  property->set_attribute(0);
  return property;
}

std::shared_ptr<StringProperty> MakeOwnComponent() {
  return MakeReadOnly("Valmere", "955CFDC2-8EA6-478E-A927-7C870022EA03", "Valmere",
                      "ADC1E631-2C12-4267-B128-95830EC9857D", "Components");
}

// Without one of its threads the service would look sound, while what that thread is for piled up.
void Demand(bool started) {
  if (!started) throw std::bad_alloc();
}

std::string LiveCounters() {
  return "Live: " + std::to_string(LiveWorkerThreads::Live()) + " worker threads, " +
         std::to_string(LiveEventFlags::Live()) + " event flags, " +
         std::to_string(LiveProperties::Live()) + " properties";
}

}  // namespace

ValmereService::ValmereService(std::shared_ptr<platform::FileSystem> files)
    : files_(std::move(files)) {}

// It delegates, so that the destructor ends what was made when a step throws.
ValmereService::ValmereService(std::shared_ptr<platform::FileSystem> files, const StorePaths& paths,
                               const std::string& os_version, const std::string& os_build_number)
    : ValmereService(std::move(files)) {
  StepLog steps(DebugZone::kInit);
  tasks_ = std::make_shared<TaskQueue>(kBackgroundPriority);
  Demand(tasks_->running());
  steps.Done("Task queue made");
  network_ = std::make_shared<NetworkStartup>();
  steps.Done("Network started");
  persistence_ = Persistence::Make(files_, paths.property_file, paths.override_file);
  steps.Done("Property file loaded");
  const auto own_component = MakeOwnComponent();
  persistence_->RegisterProperty(own_component);
  OpenLog(paths);
  steps.Done("Log opened");
  engine_ = PropertyEngine::Make(*persistence_, log_, own_component);
  persistence_->AttachEngine(engine_);
  Demand(engine_->Start(kRequestPriority));
  Demand(persistence_->StartWorkers(kStorePriority, kBackgroundPriority));
  steps.Done("Property engine made");
  handlers_ =
      std::make_shared<DataHandlerManager>(ServiceContext{engine_}, log_, tasks_, kRequestPriority);
  acceptor_ = std::make_shared<Acceptor>(MakeListener(kNoListenerPort, kListenBacklog), handlers_,
                                         kRequestPriority);
  handlers_->RegisterFactory(std::make_shared<JsonMessageFactory>());
  sessions_ = std::make_shared<DriverSessionTable>(handlers_);
  steps.Done("Sessions possible");
  const auto own_device = OpenOwnDevice();
  PublishOsVersion(*persistence_, os_version, os_build_number);
  handlers_->AddStream(own_device);
  PublishDebugZones(*persistence_);
  steps.Done("Versions and debug zones published");
  steps.AttachLog(log_);
  LogIn(DebugZone::kLeakTracking, log_, LiveCounters);
}

// Each is ended before its handle is released: a stream's thread that was left behind may hold it
// for longer. Loads are ended first, or a client that waits in one could not end with its stream.
// No line is begun any more once nothing can change a property; the log still works then, to say
// which are lost.
ValmereService::~ValmereService() {
  StepLog steps(DebugZone::kDeInit);
  steps.AttachLog(log_);
  LogIn(DebugZone::kLeakTracking, log_, LiveCounters);
  if (persistence_) persistence_->EndLoads();
  sessions_.reset();
  steps.Done("Sessions released");
  more_acceptors_.clear();
  if (acceptor_) acceptor_->End();
  acceptor_.reset();
  steps.Done("Acceptor released");
  if (handlers_) handlers_->End();
  handlers_.reset();
  steps.Done("Stream handlers released");
  if (engine_) engine_->End();
  engine_.reset();
  steps.Done("Property engine released");
  if (persistence_) persistence_->StopWriting();
  if (log_) log_->End();
  log_.reset();
  if (persistence_) persistence_->End();
  persistence_.reset();
  network_.reset();
  if (tasks_) tasks_->End();
}

void ValmereService::OpenLog(const StorePaths& paths) {
  const platform::WidePath log_file = ReadLogFileName(*files_, paths.log_file_name_file);
  log_ = std::make_shared<LogFacility>();
  log_->AddFile(*files_, log_file, kBackgroundPriority);
  persistence_->AttachLog(log_);
  persistence_->RegisterProperty(
      MakeReadOnly(platform::NarrowPath(log_file), "32244D1F-E72E-4F42-A4DE-CAB2C6AF88A9",
                   "Error Log File Name", kGeneralGroupGuid, kGeneralGroup));
}

// The service is a client of its own device, where that can be opened by now. Elsewhere the stream
// moves nothing, and serving it ends at once; then no message is written either, which would take
// the parser lock: the service that this one replaces may be busy with a long queue of long
// messages.
std::shared_ptr<Connection> ValmereService::OpenOwnDevice() {
  auto device = std::make_shared<FileStream>(
      *files_, kOwnDevice, platform::OpenFlags::kRead | platform::OpenFlags::kWrite);
  if (device->IsOpen()) {
    PropertyMessage subscription;
    subscription.SubscribeAll();
    subscription.Write(*device);
  }
  return device;
}

void ValmereService::Serve(std::shared_ptr<Listener> listener) {
  more_acceptors_.push_back(
      std::make_shared<Acceptor>(std::move(listener), handlers_, kRequestPriority));
}

std::uint32_t ValmereService::OpenSession() {
  const std::uint32_t handle = sessions_->Open();
  LogIn(DebugZone::kInfo, log_, [&] { return "Session " + std::to_string(handle) + " is open"; });
  return handle;
}

bool ValmereService::CloseSession(std::uint32_t handle) {
  if (!sessions_->Close(handle)) return false;
  LogIn(DebugZone::kInfo, log_, [&] { return "Session " + std::to_string(handle) + " is closed"; });
  return true;
}

void ValmereService::CloseAllSessions() {
  sessions_->CloseAll();
  LogIn(DebugZone::kInfo, log_, [] { return std::string("All sessions are closed"); });
}

// The callers hand their texts over.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void ValmereService::PublishQtRuntimeVersion(std::string version, std::string build_number) {
  valmere::PublishQtRuntimeVersion(*persistence_, version, build_number);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
void ValmereService::PublishQtCommonVersion(std::string version, std::string build_number) {
  valmere::PublishQtCommonVersion(*persistence_, version, build_number);
}

}  // namespace valmere
