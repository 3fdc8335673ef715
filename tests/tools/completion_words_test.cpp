// Lines taken apart, and words quoted, as shells do.
#include "tools/completion/completion_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(CompletionWords, AreSplitAtBlanks) {
  EXPECT_THAT(tools::SplitWords("").words, IsEmpty());
  EXPECT_THAT(tools::SplitWords("  ").words, IsEmpty());
  EXPECT_THAT(tools::SplitWords(" get  a\tb ").words, ElementsAre("get", "a", "b"));
}

TEST(CompletionWords, AreQuotedInThreeWays) {
  EXPECT_THAT(tools::SplitWords(R"('a b' "a b" a\ b)").words, ElementsAre("a b", "a b", "a b"));
  EXPECT_THAT(tools::SplitWords(R"('a\"b' "a\"b'\n" a\"\n)").words,
              ElementsAre(R"(a\"b)", R"(a"b'\n)", R"(a"n)"));
  EXPECT_THAT(tools::SplitWords(R"(a' 'b" "c'' '' "")").words, ElementsAre("a b c", "", ""));
}

TEST(CompletionWords, ExpandNothing) {
  EXPECT_THAT(tools::SplitWords("$HOME * ~ `a` #b").words,
              ElementsAre("$HOME", "*", "~", "`a`", "#b"));
}

TEST(CompletionWords, TellWhereTheLineEnds) {
  EXPECT_TRUE(tools::SplitWords("get a").in_word);
  EXPECT_FALSE(tools::SplitWords("get a ").in_word);
  EXPECT_TRUE(tools::SplitWords("get 'a ").in_word);
  EXPECT_EQ(tools::SplitWords("get 'a ").open, '\'');
  EXPECT_EQ(tools::SplitWords("get \"a ").open, '"');
  EXPECT_EQ(tools::SplitWords("get a\\").open, '\\');
  EXPECT_EQ(tools::SplitWords("get 'a'").open, '\0');
  EXPECT_EQ(tools::SplitWords("get x\"a b").last_start, 4u);
  EXPECT_EQ(tools::SplitWords("get a ").last_start, 6u);
}

TEST(CompletionWords, ComeBackFromTheirQuotes) {
  const std::string text = R"( a'b"c\d$e`f*g(h)i;j|k&l<m>n#o!p?q[r]s{t}ü)";
  EXPECT_THAT(tools::SplitWords(tools::QuoteRest(text, '\0')).words, ElementsAre(text));
  EXPECT_THAT(tools::SplitWords("'" + tools::QuoteRest(text, '\'') + "'").words, ElementsAre(text));
  EXPECT_THAT(tools::SplitWords("\"" + tools::QuoteRest(text, '"') + "\"").words,
              ElementsAre(text));
}

TEST(CompletionWords, StayAsTheyAreWithoutNeed) {
  EXPECT_EQ(tools::QuoteRest("Head/a-b_c.d:e=f,g", '\0'), "Head/a-b_c.d:e=f,g");
  EXPECT_EQ(tools::QuoteRest("~/a b", '\0'), "~/a\\ b");
  EXPECT_EQ(tools::QuoteRest("~a", '\0'), "\\~a");
  EXPECT_EQ(tools::QuoteRest("a b$", '\''), "a b$");
}

}  // namespace
}  // namespace valmere::test
