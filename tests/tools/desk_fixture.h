// The real service, and commands that use it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/client.h"
#include "tests/host/subprocess.h"
#include "tests/tools/desk_samples.h"

namespace valmere::test {

class DeskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(folder_.Path("root/Store"));
    StartService();
  }

  void StartService() {
    service_ = std::make_unique<Subprocess>(std::vector<std::string>{
        ServiceProgram(), "--root", folder_.Path("root"), "--socket", folder_.Path("PRN1")});
    ASSERT_THAT(service_->ReadLine(), ::testing::HasSubstr("ready"));
  }
  void StopService() {
    service_->Signal(SIGTERM);
    EXPECT_EQ(service_->Wait(), 0);
  }
  std::unique_ptr<Subprocess> Start(const std::vector<std::string>& arguments) const {
    return StartCommand(arguments, environment_);
  }
  Outcome Run(const std::vector<std::string>& arguments) const { return Finish(*Start(arguments)); }
  // A line for the shell in which $valmere is the command.
  Outcome RunShell(const std::string& line) const {
    std::vector<std::string> environment = environment_;
    environment.emplace_back("valmere=" + CommandProgram());
    environment.push_back("dir=" + folder_.Path(""));
    Subprocess shell({"/bin/bash", "-c", line}, environment);
    return Finish(shell);
  }
  // A component that holds "Head/Motion/Speed" and takes every value over.
  std::unique_ptr<Subprocess> Publish(const std::string& assignment) const {
    auto publisher = Start({"publish", "--hold", "--component", "Head", assignment});
    EXPECT_THAT(publisher->ReadErrorLine(), ::testing::StartsWith("valmere: published"));
    return publisher;
  }
  // A component in this process, which holds kSpeed and does what the test says.
  client::Client Own() const {
    const client::Deadline deadline = client::Deadline::After(kPatience);
    auto owner = client::Client::Connect(folder_.Path("PRN1"), deadline);
    EXPECT_TRUE(owner && owner->Publish({&kSpeed, 1}, deadline));
    const auto address = kSpeed.address();
    EXPECT_TRUE(owner->Get({&address, 1}, deadline));
    return std::move(*owner);
  }

  TemporaryFolder folder_;
  const std::vector<std::string> environment_{"VALMERE_SOCKET=" + folder_.Path("PRN1")};
  std::unique_ptr<Subprocess> service_;
};

}  // namespace valmere::test
