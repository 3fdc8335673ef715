// The valmere command, and a service that says what a test tells it to.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/property.h"
#include "tests/client/fake_service.h"
#include "tests/tools/desk_samples.h"

namespace valmere::test {

// Answers every get with everything it holds, or a get by address with `after`.
struct Answers {
  std::vector<client::Property> all;
  client::Property after;
};

inline FakeService::Script Answering(const Answers& answers) {
  return [answers](const FakeConnection& connection) {
    for (std::string text = connection.Receive(); !text.empty(); text = connection.Receive()) {
      if (text.find("GetAllProperties") != std::string::npos)
        connection.Send(ResponseText(answers.all));
      else if (text.find("PropertyGetRequests") != std::string::npos)
        connection.Send(ResponseText({answers.after}));
    }
  };
}

class ValmereTest : public ::testing::Test {
 protected:
  void Serve(FakeService::Script script) {
    service_ = std::make_unique<FakeService>(std::move(script));
  }
  std::unique_ptr<Subprocess> Start(std::vector<std::string> arguments) const {
    const std::string path = service_ ? service_->path() : "/nonexistent/PRN1";
    std::vector<std::string> command{CommandProgram(), "--socket", path, "--timeout", "60"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<Subprocess>(command);
  }
  Outcome Run(const std::vector<std::string>& arguments) const {
    const auto process = Start(arguments);
    const int code = process->Wait();
    return {code, process->output(), process->errors()};
  }

  std::unique_ptr<FakeService> service_;
};

}  // namespace valmere::test
