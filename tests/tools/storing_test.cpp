// The wait of a durable command by itself.
#include "tools/service/storing.h"

#include <filesystem>

#include "client/client.h"
#include "tests/tools/durable_fixture.h"
#include "tools/service/service_clients.h"
#include "tools/service/service_file.h"

namespace valmere::test {
namespace {

using client::Client;
using client::Deadline;
using tools::Sealed;
using tools::ServiceFile;

// At a file that the test writes or leaves alone; the service reports 500.
class StoringTest : public DurableTest {
 protected:
  void SetUp() override {
    DurableTest::SetUp();
    StartService();
    std::filesystem::create_directories(folder_.Path("other/Store"));
    client_ = clients_.Open(Deadline::After(kPatience)).value();
  }
  tools::Storing Begin(const std::string& root, Deadline deadline) {
    const client::PropertyAddress address = client::PublishingPeriod();
    const auto period = client_->Get({&address, 1}, deadline);
    tools::Storing storing(clients_, *client_,
                           std::get<ServiceFile>(ServiceFile::Find(root, "", kFileName)), deadline);
    EXPECT_TRUE(period && !storing.Begin(*period).has_value());
    return storing;
  }
  void Write(int value) const {
    const std::string path = folder_.Path("other") + kFileName;
    WriteBytes(path + ".new", Sealed(kPeriodKey + "|n:m=" + std::to_string(value) + "\n"));
    std::filesystem::rename(path + ".new", path);
  }

  tools::ServiceClients clients_{folder_.Path("PRN1")};
  Client* client_ = nullptr;
};

// Where another client has set the same value a moment before, its line is written already.
TEST_F(StoringTest, RequestsLinesWhereNoneComesByItself) {
  ASSERT_EQ(SetDurably(kPeriod, "500").code, 0);
  tools::Storing storing = Begin(root_, Deadline::After(kPatience));
  EXPECT_FALSE(storing.Await().has_value());
  EXPECT_EQ(File().lines.size(), kStoredProperties);
}

TEST_F(StoringTest, DoesNotTakeTheFirstOtherValueThatIsWritten) {
  Write(1);
  tools::Storing storing = Begin(folder_.Path("other"), Deadline::After(std::chrono::seconds(1)));
  Write(2);
  const auto failure = storing.Await();
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, tools::kExitTimeout);
}

TEST_F(StoringTest, TakesValuesThatChangeFasterThanTheyAreReported) {
  Write(1);
  tools::Storing storing = Begin(folder_.Path("other"), Deadline::After(kPatience));
  std::atomic<bool> stop{false};
  std::thread writing([&] {
    for (int value = 1000; !stop.load(); ++value) {
      Write(value);
    }
  });
  const auto failure = storing.Await();
  stop.store(true);
  writing.join();
  EXPECT_FALSE(failure.has_value()) << failure->text;
}

}  // namespace
}  // namespace valmere::test
