// A property engine over files in memory.
#pragma once

#include <memory>
#include <utility>

#include "persist/settings/persistence.h"
#include "store/engine/property_engine.h"
#include "store/property/string_property.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {

inline std::shared_ptr<Persistence> MakeTestPersistence() {
  return Persistence::Make(std::make_shared<MemoryFileSystem>(), u"/main", u"/override");
}

// Nothing is published in it, and it publishes when it is told to.
inline std::shared_ptr<PropertyEngine> MakeTestEngine(Persistence& persistence,
                                                      std::shared_ptr<LogSink> log = nullptr) {
  return PropertyEngine::Make(
      persistence, std::move(log),
      StringProperty::Make("Valmere", "OWN", "Valmere", "COMPONENTS", "Components"));
}

// With a publishing period that nothing changes.
inline std::shared_ptr<PropertyEngine> MakeTestEngine() {
  return MakeTestEngine(*MakeTestPersistence());
}

}  // namespace valmere::test
