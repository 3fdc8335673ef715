// What the tests of property restoring and keeping stand on.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "persist/settings/persistence.h"
#include "store/property/uint_property.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/memory_file_system.h"
#include "tests/support/test_thread.h"

namespace valmere::test {

inline constexpr platform::WidePathView kMain = u"/Store/Properties.ini";
inline constexpr platform::WidePathView kOverride = u"/Store/Override.ini";

// Any thread logs and looks.
class KeptLog final : public LogSink {
 public:
  void Log(std::string_view message) override {
    const platform::ScopedLock hold(lock_);
    lines_.emplace_back(message);
  }
  std::vector<std::string> lines() {
    const platform::ScopedLock hold(lock_);
    return lines_;
  }
  std::size_t CountOf(std::string_view text) {
    const auto all = lines();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(),
        [&](const std::string& line) { return line.find(text) != std::string::npos; }));
  }

 private:
  platform::Lock lock_;
  std::vector<std::string> lines_;
};

// Keeps what is published, in order.
class KeptProperties final : public PropertySink {
 public:
  bool AddProperty(std::shared_ptr<Property> property) override {
    properties_.push_back(std::move(property));
    return true;
  }
  std::shared_ptr<Property> Find(std::string_view name) const {
    for (const auto& property : properties_) {
      if (property->name() == name) return property;
    }
    return nullptr;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& property : properties_)
      names.emplace_back(property->name());
    return names;
  }

 private:
  std::vector<std::shared_ptr<Property>> properties_;
};

class PersistenceTest : public ::testing::Test {
 protected:
  // The file with these lines.
  void PutFile(std::string_view body) { files_->Put(kMain, WithTrailer(std::string(body))); }
  void Start() {
    persistence_ = Persistence::Make(files_, kMain, kOverride);
    persistence_->AttachLog(log_);
    persistence_->AttachEngine(engine_);
  }
  void StartWriting() {
    Start();
    persistence_->StartWorkers(251, 253);
  }
  // Waits until the file has exactly these lines and their checksum.
  bool FileBecomes(std::string_view body) {
    const std::string expected = WithTrailer(std::string(body));
    return Eventually([&] { return files_->Get(kMain) == expected; });
  }
  static std::shared_ptr<UIntProperty> MakeNumber(std::uint32_t value) {
    return UIntProperty::Make(value, "P", "Number", "G", "Group");
  }
  std::shared_ptr<UIntProperty> RegisterNumber(std::uint32_t value) {
    auto number = MakeNumber(value);
    persistence_->RegisterProperty(number);
    return number;
  }
  std::shared_ptr<Property> Own(std::string_view name) { return engine_->Find(name); }

  const std::shared_ptr<MemoryFileSystem> files_ = std::make_shared<MemoryFileSystem>();
  const std::shared_ptr<KeptLog> log_ = std::make_shared<KeptLog>();
  const std::shared_ptr<KeptProperties> engine_ = std::make_shared<KeptProperties>();
  std::shared_ptr<Persistence> persistence_;
};

}  // namespace valmere::test
