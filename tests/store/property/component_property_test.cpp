#include "store/property/component_property.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "net/client_connection.h"
#include "tests/store/engine/start_gate.h"
#include "tests/store/property/change_counter.h"
#include "tests/store/property/published_property.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

std::shared_ptr<ComponentProperty> MakePublished(std::shared_ptr<ClientConnection> connection) {
  return ComponentProperty::Make("value", "GUID", "Name", "GROUP", "Group", "COMPONENT",
                                 "Component", std::move(connection));
}

TEST(ComponentProperty, KnowsItsComponent) {
  const auto published = MakePublished(nullptr);
  EXPECT_EQ(published->guid(), "GUID");
  EXPECT_EQ(published->name(), "Name");
  EXPECT_EQ(published->group_guid(), "GROUP");
  EXPECT_EQ(published->group_name(), "Group");
  EXPECT_EQ(published->component(), "COMPONENT");
  EXPECT_EQ(published->component_name(), "Component");
  EXPECT_EQ(published->key().Text(), "COMPONENT:GROUP:GUID");
  EXPECT_EQ(published->attribute(), 10U);
}

TEST(ComponentProperty, HasTheValueRulesOfAText) {
  const auto published = MakePublished(nullptr);
  const ChangeCounter changes(*published);
  published->SetFromString("value");
  EXPECT_EQ(changes.count(), 0);
  published->SetFromString("other");
  EXPECT_EQ(changes.count(), 1);
  EXPECT_EQ(published->GetValueString(), "other");
}

TEST(ComponentProperty, IsReachedOverTheConnectionOfItsLastPublication) {
  const auto first = MakeConnection();
  const auto second = MakeConnection();
  const auto published = MakePublished(first);
  EXPECT_EQ(published->connection(), first);
  EXPECT_TRUE(published->PublishedOn(*first));
  published->set_connection(second);
  EXPECT_EQ(published->connection(), second);
  EXPECT_FALSE(published->PublishedOn(*first));
  EXPECT_TRUE(published->PublishedOn(*second));
  EXPECT_EQ(first.use_count(), 1);
}

TEST(ComponentProperty, IsCountedWhileItLives) {
  const std::uint32_t before = LiveProperties::Live();
  const auto published = MakePublished(nullptr);
  EXPECT_EQ(LiveProperties::Live(), before + 1);
}

TEST(ComponentProperty, IsChargedExactlyThoughItsOwnerAndValueChangeAtOnce) {
  constexpr int kChanges = 2'000;
  const std::size_t foreign = ComponentProperty::ForeignBytes();
  std::vector<std::shared_ptr<ScriptedConnection>> streams;
  std::vector<std::shared_ptr<ClientConnection>> clients;
  for (int i = 0; i < 2; ++i) {
    streams.push_back(std::make_shared<ScriptedConnection>());
    streams.back()->SetMostMemory(1);
    clients.push_back(std::make_shared<ClientConnection>(streams.back()));
  }
  const auto published = MakePublished(clients[0]);
  {
    StartGate gate(3);
    std::vector<TestThread> threads;
    for (const auto& client : clients) {
      threads.emplace_back([&] {
        gate.Pass();
        for (int i = 0; i < kChanges; ++i)
          published->TakeValue(std::string(static_cast<std::size_t>(i % 100), 'x'), *client);
      });
    }
    threads.emplace_back([&] {
      gate.Pass();
      for (std::size_t i = 0; i < kChanges; ++i)
        published->set_connection(clients[i % 2]);
    });
  }
  published->set_connection(clients[1]);
  EXPECT_EQ(0u, streams[0]->account()->used());
  EXPECT_LT(ComponentProperty::kBytesBesideTexts, streams[1]->account()->used());
  published->set_connection(nullptr);
  EXPECT_EQ(0u, streams[1]->account()->used());
  EXPECT_EQ(foreign, ComponentProperty::ForeignBytes());
}

TEST(ComponentProperty, ChangesItsConnectionWhileOthersReadIt) {
  constexpr int kChanges = 500;
  const auto connection = MakeConnection();
  const auto published = MakePublished(connection);
  {
    StartGate gate(2);
    std::vector<TestThread> threads;
    threads.emplace_back([&] {
      gate.Pass();
      for (int i = 0; i < kChanges; ++i)
        published->set_connection(MakeConnection());
    });
    threads.emplace_back([&] {
      gate.Pass();
      for (int i = 0; i < kChanges; ++i) {
        EXPECT_NE(published->connection(), nullptr);
        published->PublishedOn(*connection);
      }
    });
  }
  EXPECT_EQ(published->connection().use_count(), 2);
}

}  // namespace
}  // namespace valmere::test
