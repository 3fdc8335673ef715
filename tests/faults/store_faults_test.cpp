// The rewrite of the property file. With each refusal, the file is the old or the new one, whole.
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "persist/file/property_file_writer.h"
#include "persist/settings/persistence.h"
#include "store/property/uint_property.h"
#include "tests/faults/fault_fixture.h"

namespace valmere::test {
namespace {

class StoreFaults : public FaultTest {
 protected:
  static RewriteResult Rewrite(platform::FileSystem& files, std::string_view value) {
    const InSystem in_system;
    const std::string_view left_side = kPeriodLine.substr(0, kPeriodLine.size() - 1);
    try {
      return RewriteLine(files, MakeWriteRequest(left_side, value, kPropertyFile));
    } catch (const std::bad_alloc&) {
      return RewriteResult::kShortRead;
    }
  }

  bool AnyFileLeftBeside() const {
    const std::filesystem::directory_iterator all(device_.At("root/Store"));
    return std::any_of(begin(all), end(all), [](const auto& entry) {
      return entry.path().filename().string().starts_with(".valmere-");
    });
  }
};

TEST_P(StoreFaults, InARewriteLeaveTheOldFileOrTheNewOne) {
  const auto files = platform::MakeDeviceFileSystem();
  ForEachFault([&](std::uint64_t n) {
    device_.Put(kFile, PropertyFile("750"));
    OrderedFault ordered(fault(), n, extent());
    const RewriteResult result = Rewrite(*files, "1000");
    const bool reached = ordered.End();
    const std::string left = device_.Get(kFile);
    if (result == RewriteResult::kWritten) {
      EXPECT_EQ(left, PropertyFile("1000"));
    } else {
      EXPECT_EQ(left, PropertyFile("750"));
    }
    EXPECT_EQ(Rewrite(*files, "2000"), RewriteResult::kWritten);
    EXPECT_EQ(device_.Get(kFile), PropertyFile("2000"));
    // Where none could be removed, that is left to the next start.
    if (fault() != Fault::kLook) {
      EXPECT_FALSE(AnyFileLeftBeside());
    }
    return reached;
  });
}

TEST_P(StoreFaults, DoNotMakeAFileAMissingOne) {
  const auto files = platform::MakeDeviceFileSystem();
  device_.Put(kFile, PropertyFile("750"));
  ForEachFault([&](std::uint64_t n) {
    OrderedFault ordered(fault(), n, extent());
    try {
      const InSystem in_system;
      EXPECT_TRUE(files->Exists(kPropertyFile));
    } catch (const std::bad_alloc&) {
    }
    return ordered.End();
  });
}

TEST_P(StoreFaults, OfAServiceCostItNothing) {
  Start();
  ASSERT_TRUE(Use());
  ForEachFault([&](std::uint64_t n) {
    device_.Put(kFile, PropertyFile("750"));
    const std::string meanwhile = std::to_string(10'000 + n);
    OrderedFault ordered(fault(), n, extent());
    {
      FaultClient client;
      client.Ask(SetAndGetText(kPeriod, meanwhile));
      EXPECT_TRUE(Eventually(
          [&] { return ordered.reached() || device_.Get(kFile) == PropertyFile(meanwhile); }));
    }
    const bool reached = ordered.End();

    FaultClient client;
    const std::string after = std::to_string(20'000 + n);
    EXPECT_TRUE(Holds(client.Ask(SetAndGetText(kPeriod, after)), ValueText(after)));
    EXPECT_TRUE(Eventually([&] { return device_.Get(kFile) == PropertyFile(after); }));
    return reached;
  });
  StopCleanly();
}

// With each refusal, the command comes to its end, and a load that gave no value says so.
TEST_P(StoreFaults, OfACommandAreToldByItsProperties) {
  struct Sink final : PropertySink {
    bool AddProperty(std::shared_ptr<Property> property) override {
      const std::string name(property->name());
      return properties.emplace(name, std::move(property)).second;
    }
    std::map<std::string, std::shared_ptr<Property>> properties;
  };
  const auto sink = std::make_shared<Sink>();
  const auto persistence = [] {
    const InSystem in_system;
    return Persistence::Make(platform::MakeDeviceFileSystem(), kPropertyFile, u"/none");
  }();
  persistence->AttachEngine(sink);
  const auto number = UIntProperty::Make(0, "B2", "Of another program", "A1", "Group");
  persistence->RegisterProperty(number);
  const auto load = sink->properties.at("Load Properties");
  const auto store = sink->properties.at("Store Properties");
  ForEachFault([&](std::uint64_t n) {
    device_.Put(kFile, WithTrailer("A1:B2|Group:Of another program=" + std::to_string(n) + "\n"));
    OrderedFault ordered(fault(), n, extent());
    {
      const InSystem in_system;
      EXPECT_NO_THROW(load->SetFromString("true"));
      EXPECT_NO_THROW(store->SetFromString("true"));
    }
    const bool reached = ordered.End();
    EXPECT_TRUE(number->GetValue() == n ||
                sink->properties.at("Property Loading Error")->GetValueString() == "True");
    return reached;
  });
}

TEST_P(StoreFaults, OfALineLeaveTheChangeToTheOtherListeners) {
  const auto persistence = [] {
    const InSystem in_system;
    return Persistence::Make(platform::MakeDeviceFileSystem(), u"/a", u"/b");
  }();
  const auto property = UIntProperty::Make(0, "P", "Name", "G", "Group");
  persistence->RegisterProperty(property);
  int heard = 0;
  property->AddListener([&](const std::shared_ptr<Property>&) { ++heard; });
  ForEachFault([&](std::uint64_t n) {
    heard = 0;
    OrderedFault ordered(fault(), n, extent());
    {
      const InSystem in_system;
      EXPECT_NO_THROW(property->SetValue(static_cast<std::uint32_t>(n)));
    }
    EXPECT_EQ(heard, 1);
    return ordered.End();
  });
}

INSTANTIATE_TEST_SUITE_P(Every, StoreFaults,
                         EveryFaultOf(Fault::kMemory, Fault::kOpen, Fault::kLook, Fault::kRead,
                                      Fault::kWrite, Fault::kTornWrite),
                         FaultName);

}  // namespace
}  // namespace valmere::test
