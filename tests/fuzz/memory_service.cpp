#include "tests/fuzz/memory_service.h"

#include <utility>

#include "tests/fuzz/sealed_file.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {

// The old one goes first: the debug zones that clients have switched are one set for both.
void MemoryService::Renew() {
  service_.reset();
  auto files = std::make_shared<MemoryFileSystem>();
  files->Put(kMainFile, Sealed("99A61D40-20CE-41EA-A579-EB92C6ED94C6:DA821DC5-948D-4659-9B52-"
                               "177E4C102129|General:Property Publishing Period in ms=500\n"));
  constexpr StorePaths kPaths = {kMainFile, kOverrideFile, u"/Store/LogFileName.txt"};
  service_ = std::make_unique<ValmereService>(std::move(files), kPaths, "8.3", "6250");
  service_->StartAnnouncing();
}

}  // namespace valmere::test
