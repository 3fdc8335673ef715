// valmered has no other way into the service than its clients have. The service handles the sets of
// a message before its gets, and loads within the set; so the answer to a get in the same message
// says that the load is over.
#include "host/values/property_loader.h"

#include <exception>
#include <string>
#include <utility>

#include "client/message.h"
#include "host/driver/read_frame.h"
#include "host/system/report.h"
#include "protocol/wire/message_frame.h"

namespace valmere::host {
namespace {

// Of the service's own component: a set of "Load Properties" and a get of "Property Loading Error".
constexpr char kLoadAndTell[] =
    R"({"PropertySetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
    R"("GUID": "99A61D40-20CE-41EA-A579-EB92C6ED94C6:0D9B0F83-2282-4728-A78E-FE2FF4E3A13C",)"
    R"("Value": "True"}],)"
    R"("PropertyGetRequests": [{"Component": "955CFDC2-8EA6-478E-A927-7C870022EA03",)"
    R"("GUID": "2EBF9DEF-D51C-47FE-935E-5EDCC530B867:A32AFFED-7C37-47FE-80DB-B21875E226BD"}]})";

std::string LoadFrame() {
  std::string frame;
  BeginFrame(frame);
  frame += kLoadAndTell;
  EndFrame(frame);
  return frame;
}

}  // namespace

PropertyLoader::~PropertyLoader() {
  {
    const client::MutexLock hold(lock_);
    ending_ = true;
  }
  changed_.notify_one();
  CloseHandle();  // which wakes a thread that waits for the driver
}

// Called by the loop, which must not meet an exception.
void PropertyLoader::RequestLoad() noexcept try {
  {
    const client::MutexLock hold(lock_);
    requested_ = true;
  }
  changed_.notify_one();
  if (thread_ == nullptr) thread_ = std::make_unique<SmallThread>([this] { Run(); });
} catch (const std::exception&) {
  Report("no thread or memory; the property file is not loaded again");
}

// Without its thread nothing is loaded, so nothing is waited for.
void PropertyLoader::WaitUntilIdle(client::Deadline deadline) {
  if (thread_ == nullptr) return;
  client::MutexLock hold(lock_);
  hold.WaitUntil(idle_, deadline, [this]() REQUIRES(lock_) { return !requested_ && !loading_; });
}

void PropertyLoader::Run() {
  while (WaitForRequest()) {
    try {
      Load();
    } catch (const std::exception&) {
      CloseHandle();
      Report("out of memory; the property file is not loaded again");
    }
  }
}

bool PropertyLoader::WaitForRequest() {
  client::MutexLock hold(lock_);
  loading_ = false;
  if (!requested_) idle_.notify_all();
  hold.Wait(changed_, [this]() REQUIRES(lock_) { return requested_ || ending_; });
  requested_ = false;
  loading_ = true;
  return !ending_;
}

void PropertyLoader::Load() {
  const std::string frame = LoadFrame();
  const auto handle = Handle();
  if (!handle) return;
  if (before_load_) CallBeforeLoad(*handle);
  if (!Send(*handle, frame))
    return GiveUp("the driver does not take the request to load the property file");
  Report("loading the property file again");
  FrameBuffer reply;
  if (!ReadFrame(driver_, *handle, reply))
    GiveUp("the driver ended the session that loads the property file");
}

bool PropertyLoader::Send(std::uint32_t handle, const std::string& frame) const {
  return driver_.Write(handle,
                       {reinterpret_cast<const unsigned char*>(frame.data()), frame.size()});
}

// A client may have given the files other names. Where there is no answer, the load fails as well.
void PropertyLoader::CallBeforeLoad(std::uint32_t handle) const {
  const auto frame = FileNamesFrame();
  FrameBuffer reply;
  if (!frame || !Send(handle, *frame) || !ReadFrame(driver_, handle, reply)) return;
  std::string text(reinterpret_cast<const char*>(reply.data()), reply.size());
  text.erase(0, kFrameHeaderBytes);
  auto message = client::ReadMessage(text);
  if (message && message->properties) before_load_(KeptIn(std::move(*message->properties)));
}

std::optional<std::uint32_t> PropertyLoader::Handle() {
  const client::MutexLock hold(lock_);
  if (ending_) return std::nullopt;
  if (!handle_) handle_ = driver_.Open();
  return handle_;
}

// Silent when it is this side that closed the handle. The next request opens another.
void PropertyLoader::GiveUp(std::string_view cause) {
  if (CloseHandle()) Report(cause);
}

bool PropertyLoader::CloseHandle() {
  std::optional<std::uint32_t> handle;
  {
    const client::MutexLock hold(lock_);
    handle.swap(handle_);
  }
  if (handle) driver_.Close(*handle);
  return handle.has_value();
}

}  // namespace valmere::host
