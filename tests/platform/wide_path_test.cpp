#include "platform/wide_path.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace valmere::test {
using namespace platform;
namespace {

const std::u16string kWide = u"\\Store\\Gr\u00fc\u00dfe \u20ac \U0001f5a8.ini";
const std::string kNarrow = "\\Store\\Gr\xc3\xbc\xc3\x9f\x65 \xe2\x82\xac \xf0\x9f\x96\xa8.ini";

TEST(WidePath, NarrowsToUtf8) {
  EXPECT_EQ(NarrowPath(u"\\windows\\version.ini"), "\\windows\\version.ini");
  EXPECT_EQ(NarrowPath(kWide), kNarrow);
  EXPECT_EQ(NarrowPath(u""), "");
}

TEST(WidePath, WidensFromUtf8) {
  EXPECT_EQ(WidenPath("/Store/ValmereProperties.ini"), u"/Store/ValmereProperties.ini");
  EXPECT_EQ(WidenPath(kNarrow), kWide);
  EXPECT_EQ(WidenPath(""), u"");
}

TEST(WidePath, KeepsNulBytes) {
  EXPECT_EQ(NarrowPath(std::u16string(u"a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(WidenPath(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
}

TEST(WidePath, CarriesTheFirstAndLastCharacterOfEveryLength) {
  const std::pair<std::u16string, std::string> kPairs[] = {{u"\u0001", "\x01"},
                                                           {u"\u007f", "\x7f"},
                                                           {u"\u0080", "\xc2\x80"},
                                                           {u"\u07ff", "\xdf\xbf"},
                                                           {u"\u0800", "\xe0\xa0\x80"},
                                                           {u"\ud7ff", "\xed\x9f\xbf"},
                                                           {u"\ue000", "\xee\x80\x80"},
                                                           {u"\uffff", "\xef\xbf\xbf"},
                                                           {u"\U00010000", "\xf0\x90\x80\x80"},
                                                           {u"\U0010ffff", "\xf4\x8f\xbf\xbf"}};
  for (const auto& [wide, narrow] : kPairs) {
    EXPECT_EQ(NarrowPath(wide), narrow);
    EXPECT_EQ(WidenPath(narrow), wide);
  }
}

TEST(WidePath, ReplacesLoneSurrogates) {
  constexpr char16_t kHigh = 0xd83d;
  constexpr char16_t kLow = 0xdda8;
  EXPECT_EQ(NarrowPath(std::u16string{u'a', kHigh, u'b'}),
            "a\xef\xbf\xbd"
            "b");
  EXPECT_EQ(NarrowPath(std::u16string{u'a', kHigh}), "a\xef\xbf\xbd");
  EXPECT_EQ(NarrowPath(std::u16string{kLow, u'b'}),
            "\xef\xbf\xbd"
            "b");
  EXPECT_EQ(NarrowPath(std::u16string{kLow, kHigh}), "\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(WidePath, ReplacesEachByteThatIsNoUtf8) {
  EXPECT_EQ(WidenPath("a\x80z"), u"a\ufffdz");                  // no lead
  EXPECT_EQ(WidenPath("a\xc3"), u"a\ufffd");                    // cut short
  EXPECT_EQ(WidenPath("\xe2\x82z"), u"\ufffd\ufffdz");          // broken off
  EXPECT_EQ(WidenPath("\xc0\xaf"), u"\ufffd\ufffd");            // overlong "/"
  EXPECT_EQ(WidenPath("\xe0\x80\xaf"), u"\ufffd\ufffd\ufffd");  // overlong "/"
  EXPECT_EQ(WidenPath("\xf0\x80\x80\xaf"), u"\ufffd\ufffd\ufffd\ufffd");
  EXPECT_EQ(WidenPath("\xed\xa0\xbd"), u"\ufffd\ufffd\ufffd");            // a surrogate
  EXPECT_EQ(WidenPath("\xf4\x90\x80\x80"), u"\ufffd\ufffd\ufffd\ufffd");  // beyond the last
  EXPECT_EQ(WidenPath("\xff"), u"\ufffd");
}

TEST(NormalPathTest, IsOneForAllPathsThatLeadToOnePlace) {
  for (const WidePathView path :
       {u"/Store/A.ini", u"\\Store\\A.ini", u"Store//A.ini", u"/./Store/./A.ini",
        u"/other/../Store/A.ini", u"/../Store/x/../A.ini"})
    EXPECT_EQ(NormalPath(path), u"/Store/A.ini") << NarrowPath(path);
  EXPECT_NE(NormalPath(u"/Store/a.ini"), NormalPath(u"/Store/A.ini"));
  EXPECT_EQ(NormalPath(u""), u"");
  EXPECT_EQ(NormalPath(u"/.."), u"");
}

}  // namespace
}  // namespace valmere::test
