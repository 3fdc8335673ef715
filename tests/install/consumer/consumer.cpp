// A program that is built on what was installed. The service runs in its own process, behind a
// driver handle.
#include <valmere/client/client.h>
#include <valmere/client/observed_transport.h>
#include <valmere/client/session.h>
#include <valmere/client/socket_path.h>
#include <valmere/client/socket_transport.h>
#include <valmere/prn.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <utility>

namespace client = valmere::client;

int Fail(const client::Error& error) {
  std::fprintf(stderr, "consumer: %s\n", error.text.c_str());
  return 1;
}

// Publishes a property, sets it through the service and reads it back.
int SetAndGet() {
  const client::Property speed{"G1", "Motion",  "P1", "Speed", "slow", client::kSuccessful,
                               "C1", "Consumer"};
  const auto connector = client::DriverConnector({PRN_Open, PRN_Close, PRN_Read, PRN_Write}, 1);
  auto session = client::Session::Open(connector);
  if (!session) return Fail(session.error());
  std::promise<void> was_set;
  const auto accept = [&](const client::SetRequest& set) {
    if (session->Update(set)) was_set.set_value();
  };
  if (const auto done = session->Publish({&speed, 1}, accept); !done) return Fail(done.error());
  if (const auto done = session->Set({speed.address(), "fast"}); !done) return Fail(done.error());
  if (was_set.get_future().wait_for(std::chrono::minutes(1)) != std::future_status::ready) return 2;
  const auto found = session->Get(speed.address());
  if (!found) return Fail(found.error());
  std::printf("%s: %s\n", found->name.c_str(), found->value.c_str());
  return 0;
}

int main() {
  PRN_Init(0);
  const int result = SetAndGet();
  PRN_Deinit(1);
  return result;
}
