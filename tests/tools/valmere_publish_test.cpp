// The valmere command as a component.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <mutex>

#include "tests/client/fake_service.h"
#include "tests/tools/valmere_fixture.h"
#include "tools/names/name_guid.h"

namespace valmere::test {
namespace {

using client::Property;
using ::testing::HasSubstr;

TEST_F(ValmereTest, PublishesAnswersSetsAndWithdraws) {
  const std::string group = tools::NameGuid("group:Motion");
  const Property published{group,
                           "Motion",
                           tools::NameGuid("property:" + group + ":Speed"),
                           "Speed",
                           "42",
                           client::kSuccessful,
                           tools::NameGuid("component:Head"),
                           "Head"};
  const std::string address = R"("Component": ")" + published.component + R"(","GUID": ")" +
                              published.group_guid + ":" + published.guid + "\"";
  std::mutex lock;
  std::vector<std::string> received;
  Serve([&](const FakeConnection& connection) {
    for (std::string text = connection.Receive(); !text.empty(); text = connection.Receive()) {
      const std::lock_guard hold(lock);
      received.push_back(text);
      if (text.find("PropertyGetRequests") == std::string::npos) continue;
      connection.Send(ResponseText({published}));
      if (received.size() == 2)
        connection.Send(R"({"PropertySetRequests": [{)" + address + R"(,"Value": "50"},)" +
                        R"({"Component": "other","GUID": "x:y","Value": "1"}]})");
    }
  });
  const auto process = Start({"publish", "--hold", "--component", "Head", "Motion/Speed=42"});
  EXPECT_EQ(process->ReadErrorLine(), "valmere: published Head/Motion/Speed");
  EXPECT_EQ(process->ReadLine(), "Motion/Speed=50");
  process->Signal(SIGTERM);
  EXPECT_EQ(process->Wait(), 0);
  EXPECT_EQ(process->output(), "");
  EXPECT_EQ(process->errors(), "");
  service_.reset();
  ASSERT_EQ(received.size(), 5U);
  EXPECT_THAT(received[0], HasSubstr(R"("Status": "Successful","Value": "42")"));
  EXPECT_THAT(received[1], HasSubstr("PropertyGetRequests"));
  EXPECT_THAT(received[2], HasSubstr(R"("Status": "Successful","Value": "50")"));
  EXPECT_THAT(received[3], HasSubstr(R"("Status": "Property No Longer Available")"));
  EXPECT_THAT(received[4], HasSubstr("PropertyGetRequests"));
}

TEST_F(ValmereTest, StopsHoldingWhenTheConnectionIsLost) {
  Serve([](const FakeConnection& connection) {
    connection.Receive();
    connection.Receive();
    connection.Send(ResponseText({kSpeed}));
  });
  EXPECT_EQ(Run({"publish", "--hold", "Speed=1"}).code, 7);
}

TEST_F(ValmereTest, SaysThatAPropertyWasNotTaken) {
  Property refused = kSpeed;
  refused.status = client::kNotFound;
  Serve(Answering({{}, refused}));
  const Outcome outcome = Run({"publish", "--hold", "Speed=1"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.errors, "valmere: the service did not take valmere/Desk/Speed\n");
}

}  // namespace
}  // namespace valmere::test
