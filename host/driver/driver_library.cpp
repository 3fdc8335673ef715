// All seven entry points must be there before any is called, as a device manager demands. The
// library is never unloaded: when the service could not end one of its threads, unloading the code
// that it runs would turn an unclean end into a crash, and the process ends next in any case.
#include "host/driver/driver_library.h"

#include <dlfcn.h>

#include <stdexcept>

namespace valmere::host {
namespace {

std::runtime_error LoaderError() {
  const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe): glibc keeps it per thread
  return std::runtime_error(text != nullptr ? text : "unknown loader error");
}

void* Load(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw LoaderError();
  return library;
}

template <typename Function>
void Resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (function == nullptr) throw LoaderError();
}

}  // namespace

DriverLibrary::DriverLibrary(const std::string& path) {
  void* library = Load(path);
  Resolve(library, "PRN_Init", init_);
  Resolve(library, "PRN_Deinit", deinit_);
  Resolve(library, "PRN_Open", open_);
  Resolve(library, "PRN_Close", close_);
  Resolve(library, "PRN_Read", read_);
  Resolve(library, "PRN_Write", write_);
  Resolve(library, "PRN_IOControl", io_control_);
}

}  // namespace valmere::host
