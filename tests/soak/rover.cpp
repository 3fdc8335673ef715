#include "tests/soak/rover.h"

#include <utility>

#include "client/message.h"
#include "driver/prn.h"
#include "tests/driver/busy_messages.h"
#include "tests/driver/messages.h"

namespace valmere::test {
namespace {

constexpr EntryPoints kEntry = {PRN_Open, PRN_Close, PRN_Read, PRN_Write};

std::unique_ptr<FrameClient> OpenHandle() {
  return std::make_unique<FrameClient>(kEntry);
}

std::string GetOwnComponent() {
  return GetText(kOwnComponent);
}

}  // namespace

Rover::Rover(World& world, std::uint32_t number, std::uint32_t properties)
    : world_(world), dice_(world.seed, number) {
  for (std::uint32_t i = 0; i < properties; ++i)
    addresses_.push_back({"Rover " + std::to_string(number), "Group " + std::to_string(i % 2),
                          "R" + std::to_string(i)});
}

void Rover::Live(const std::atomic<bool>& stop) {
  while (!stop) {
    if (!handle_) handle_ = OpenHandle();
    const std::uint32_t choice = dice_.Below(20);
    if (choice < 12) {
      PublishSome();
    } else if (choice < 15) {
      WithdrawSome();
    } else if (choice < 18) {
      Hop();
    } else {
      Vanish();
    }
    // Often none at all: things happen within one publishing pass then.
    if (dice_.OneIn(2)) dice_.Pause(250);
  }
  // The answer says that all before it has been handled.
  if (handle_ && !handle_->Ask(GetOwnComponent())) world_.summary.Fail("a rover got no answer");
}

std::vector<Property> Rover::Some() {
  std::vector<Property> some;
  for (const PropertyAddress& address : addresses_) {
    if (dice_.OneIn(2)) some.push_back(MakeProperty(address, Numbered(++number_, dice_.Text())));
  }
  return some;
}

void Rover::Send(const std::vector<Property>& properties, std::string_view status) {
  const auto frame = client::PublishFrame(properties, status);
  if (!world_.Sound(frame, "a frame is made")) return;
  // The value of one that goes is a change too.
  world_.budget.Take(static_cast<std::uint32_t>(properties.size()));
  if (!handle_->SendBytes(*frame)) world_.summary.Fail("a rover can't publish");
}

void Rover::PublishSome() {
  const std::vector<Property> some = Some();
  Send(some, client::kSuccessful);
  for (const Property& property : some)
    values_[property.address()] = property.value;
  world_.summary.Add(Kind::kPublications, some.size());
}

void Rover::WithdrawSome() {
  const std::vector<Property> some = Some();
  Send(some, client::kNoLongerAvailable);
  for (const Property& property : some)
    values_.erase(property.address());
  world_.summary.Add(Kind::kWithdrawals, some.size());
  if (dice_.OneIn(2)) PublishSome();
}

std::unique_ptr<Rover::Handle> Rover::Forsake() {
  if (!handle_->Ask(GetOwnComponent())) world_.summary.Fail("a rover got no answer");
  switch (dice_.Below(4)) {
    case 0:
      handle_->SendBytes(FrameOf(GetOwnComponent()).substr(0, 1 + dice_.Below(60)));
      break;
    case 1:
      for (std::uint32_t i = dice_.Below(30); i > 0; --i)
        handle_->Send(R"({"GetAllProperties": true})");
      break;
    case 2:
      handle_->Send(R"({"Disconnect": true})");
      break;
    default:
      break;
  }
  world_.summary.Add(Kind::kVanished);
  return std::move(handle_);
}

void Rover::Vanish() {
  Forsake();
  values_.clear();
}

// The new handle is open before the old one is closed, or after.
void Rover::Hop() {
  std::unique_ptr<Handle> former = Forsake();
  if (dice_.OneIn(2)) handle_ = OpenHandle();
  former.reset();
  if (!handle_) handle_ = OpenHandle();
  values_.clear();
  PublishSome();
}

void Rover::AddTo(Values& truth) const {
  truth.insert(values_.begin(), values_.end());
}

Stranger::Stranger(World& world, std::uint32_t number) : world_(world), dice_(world.seed, number) {
  for (BusyMessage& message : MakeBusyMessages(kLongTextBytes)) {
    if (!message.changes_properties) long_texts_.push_back(std::move(message.text));
  }
}

void Stranger::Live(const std::atomic<bool>& stop) {
  while (!stop) {
    {
      FrameClient handle(kEntry);
      Abuse(handle);
      if (dice_.OneIn(3)) dice_.Pause(400);
    }
    world_.summary.Add(Kind::kAbused);
    dice_.Pause(150);
  }
}

void Stranger::Abuse(FrameClient& handle) {
  switch (dice_.Below(10)) {
    case 0:
      handle.SendBytes(std::string(dice_.Below(200), 'n'));
      break;
    case 1:
      handle.SendBytes(IdentifierBytes() + LengthBytes(1000) + "{\"Get");
      break;
    case 2:
      handle.SendBytes(IdentifierBytes() + LengthBytes(5 << 20) + "{");
      break;
    case 3:
      // The service tells of a syntax error on its standard error, so there are few.
      handle.Send(dice_.OneIn(20) ? R"({"GetAllProperties": tru)" : R"([])");
      break;
    case 4:
      handle.Send(R"({"SubscribeAllCurrentAndNewProperties": true})");
      break;
    case 5:
      for (int i = 0; i < 20; ++i)
        handle.Send(R"({"GetAllProperties": true,"SubscribeAllCurrentAndNewProperties": true})");
      break;
    case 6:
      handle.Send(long_texts_[dice_.Below(static_cast<std::uint32_t>(long_texts_.size()))]);
      break;
    case 7:
      handle.SendInPieces(FrameOf(GetOwnComponent()), 1 + dice_.Below(40));
      break;
    default:
      break;  // a handle that is never written to
  }
}

}  // namespace valmere::test
