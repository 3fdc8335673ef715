// The real service, which a test may kill, and commands that bring values to its disk.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "client/service_properties.h"
#include "tests/host/subprocess.h"
#include "tests/tools/command_run.h"
#include "tests/tools/desk_samples.h"
#include "tools/propfile/propfile_text.h"

namespace valmere::test {

inline const std::string kPeriod = "Property Publishing Period in ms";
inline const std::string kPeriodKey =
    std::string(client::kGeneralGroup) + ":DA821DC5-948D-4659-9B52-177E4C102129";
inline const std::string kFileName = "/Store/ValmereProperties.ini";
inline constexpr std::size_t kStoredProperties = 26;

class DurableTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(root_ + "/Store"); }

  // Where it works must not matter but to the one test that is about it.
  void StartService(const std::string& folder = "/") {
    service_ = std::make_unique<Subprocess>(std::vector<std::string>{
        "/bin/bash", "-c", "cd \"$1\" && shift && exec \"$@\"", "", folder, ServiceProgram(),
        "--root", root_, "--socket", folder_.Path("PRN1")});
    ASSERT_THAT(service_->ReadLine(), ::testing::HasSubstr("ready"));
  }
  void KillService() {
    service_->Signal(SIGKILL);
    EXPECT_EQ(service_->Wait(), -SIGKILL);
  }
  std::unique_ptr<Subprocess> Start(const std::vector<std::string>& arguments) const {
    return StartCommand(arguments, environment_);
  }
  Outcome Run(const std::vector<std::string>& arguments) const { return Finish(*Start(arguments)); }
  Outcome SetDurably(const std::string& name, const std::string& value) const {
    return Run({"set", "--durable", "--root", root_, name, value});
  }
  Outcome StoreAndWait() const { return Run({"store", "--wait", "--root", root_}); }

  tools::PropfileText File() const { return tools::ReadPropfileText(BytesOf(path_)); }
  // Of the last line with the key, in a file with a good CRC.
  std::string Stored(const std::string& key) const {
    std::string value = "nothing";
    const tools::PropfileText file = File();
    EXPECT_TRUE(file.crc_is_good());
    for (const tools::PropfileLine& line : file.lines) {
      if (line.key == key) value = line.value;
    }
    return value;
  }
  // One that the service does not rewrite, because it is too long.
  void PutUnwritableFile() const {
    WriteBytes(path_, tools::Sealed("A:B|n:m=" + std::string(17u << 20, 'x') + "\n"));
  }

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string path_ = root_ + kFileName;
  const std::vector<std::string> environment_{"VALMERE_SOCKET=" + folder_.Path("PRN1"),
                                              "VALMERE_ROOT="};
  std::unique_ptr<Subprocess> service_;
};

}  // namespace valmere::test
