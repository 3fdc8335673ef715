#include "json/json_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace valmere::test {
namespace {

// Around the longest that lies in the object itself.
constexpr std::size_t kSizes[] = {0, 1, 13, 14, 15, 254, 255, 256, 100'000};

TEST(JsonText, HoldsATextOfAnySize) {
  for (const std::size_t size : kSizes) {
    std::string text(size, 'x');
    if (size > 1) text[size / 2] = '\0';
    EXPECT_EQ(JsonText(text).view(), text) << size;
  }
  EXPECT_EQ(JsonText().view(), "");
}

TEST(JsonText, IsCopiedAndMovedWithItsNote) {
  for (const std::size_t size : kSizes) {
    const std::string text(size, 'x');
    JsonText original(text);
    original.set_note(7);
    JsonText copy(original);
    EXPECT_EQ(copy.view(), text) << size;
    EXPECT_EQ(copy.note(), 7);
    JsonText moved(std::move(copy));
    EXPECT_EQ(moved.view(), text) << size;
    EXPECT_EQ(moved.note(), 7);
    JsonText assigned("what goes with the assignment");
    assigned = moved;
    const JsonText& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned, original) << size;
    EXPECT_EQ(assigned.note(), 7);
  }
}

TEST(JsonText, HasRoomForANumberWhereItIsEmpty) {
  const JsonText number = JsonText::With(std::int64_t{-5});
  EXPECT_EQ(number.view(), "");
  EXPECT_EQ(JsonText(number).As<std::int64_t>(), -5);
  EXPECT_EQ(JsonText::With(1.5).As<double>(), 1.5);
}

TEST(JsonText, IsOrderedByItsBytes) {
  EXPECT_TRUE(JsonText("a") < JsonText("ab"));
  EXPECT_TRUE(JsonText("z") < JsonText("\x80"));
  EXPECT_FALSE(JsonText("a long text of the same bytes") <
               JsonText("a long text of the same bytes"));
}

}  // namespace
}  // namespace valmere::test
