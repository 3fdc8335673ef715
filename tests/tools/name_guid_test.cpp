// Against GUIDs that other implementations of the same rule make.
#include "tools/names/name_guid.h"

#include <gtest/gtest.h>

namespace valmere::test {
namespace {

// The DNS namespace of RFC 4122.
constexpr std::string_view kDns("\x6b\xa7\xb8\x10\x9d\xad\x11\xd1\x80\xb4\x00\xc0\x4f\xd4\x30\xc8",
                                16);

TEST(NameGuid, IsAVersion5Guid) {
  EXPECT_EQ(tools::NameGuid(kDns, "python.org"), "886313E1-3B8A-5372-9B90-0C9AEE199E5D");
  EXPECT_EQ(tools::NameGuid(kDns, "www.example.com"), "2ED6657D-E927-568B-95E1-2665A8AEA6A2");
}

TEST(NameGuid, HandlesNamesThatFillABlock) {
  EXPECT_EQ(tools::NameGuid(kDns, std::string(39, 'a')), "5824F981-4282-59D4-9716-ACB6D741350E");
  EXPECT_EQ(tools::NameGuid(kDns, std::string(40, 'a')), "39F39C20-DB47-5131-8879-62F8F67F9014");
  EXPECT_EQ(tools::NameGuid(kDns, std::string(48, 'a')), "7280CC42-274A-5C4A-91FC-AE23F853EEB7");
  EXPECT_EQ(tools::NameGuid(kDns, std::string(200, 'a')), "FE30BFA6-EF90-59B3-B108-118411D0F0AB");
}

TEST(NameGuid, KeepsItsNamespaceForEver) {
  EXPECT_EQ(tools::NameGuid("component:valmere"), "B9FD581D-DF08-5CE3-A4A2-FF1D8624056C");
}

}  // namespace
}  // namespace valmere::test
