#include "persist/file/override_merge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "persist/file/property_file_writer.h"
#include "tests/persist/file/property_file_samples.h"
#include "tests/support/memory_file_system.h"

namespace valmere::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class OverrideMergeTest : public ::testing::Test {
 protected:
  LoadOutcome Load() {
    map_.clear();
    requested_.clear();
    return LoadPropertyFiles(files_, kPropertyFile, kOverrideFile, map_,
                             [this](const PropertyLine& line) {
                               requested_.push_back(line);
                               return true;
                             });
  }
  void WriteRequested() {
    for (const PropertyLine& line : requested_)
      ASSERT_EQ(RewriteLine(files_, MakeWriteRequest(line.left_side, line.value, kPropertyFile)),
                RewriteResult::kWritten);
  }
  bool OverrideIsThere() { return files_.Exists(kOverrideFile); }

  MemoryFileSystem files_;
  PropertyMap map_;
  std::vector<PropertyLine> requested_;
};

TEST_F(OverrideMergeTest, LoadsTheMainFileAlone) {
  files_.Put(kPropertyFile, WithTrailer("a|b=1\n"));
  const LoadOutcome outcome = Load();
  EXPECT_TRUE(outcome.Succeeded());
  EXPECT_EQ(outcome.override_file, std::nullopt);
  EXPECT_THAT(map_, ElementsAre(Pair("a", PropertyLine{"a|b", "1"})));
  EXPECT_THAT(requested_, IsEmpty());
}

TEST_F(OverrideMergeTest, AppliesTheOverrideOnceInKeyOrder) {
  files_.Put(kPropertyFile, WithTrailer("c|=3\na|=1\nb|=2\n"));
  files_.Put(kOverrideFile, WithTrailer("c|=30\nx|=0\na|=10\n"));
  const LoadOutcome outcome = Load();
  EXPECT_TRUE(outcome.Succeeded());
  EXPECT_EQ(outcome.override_file, PropertyFileResult::kRead);
  EXPECT_TRUE(outcome.override_removed);
  EXPECT_FALSE(OverrideIsThere());
  EXPECT_THAT(requested_, ElementsAre(PropertyLine{"a|", "10"}, PropertyLine{"c|", "30"}));
  EXPECT_THAT(map_,
              ElementsAre(Pair("a", PropertyLine{"a|", "10"}), Pair("b", PropertyLine{"b|", "2"}),
                          Pair("c", PropertyLine{"c|", "30"})));
  WriteRequested();
  EXPECT_EQ(files_.Get(kPropertyFile), WithTrailer("c|=30\na|=10\nb|=2\n"));
}

TEST_F(OverrideMergeTest, AsksForALineWhoseValueIsTheSameToo) {
  files_.Put(kPropertyFile, WithTrailer("a|old=1\n"));
  files_.Put(kOverrideFile, WithTrailer("a|new=1\n"));
  EXPECT_TRUE(Load().Succeeded());
  EXPECT_THAT(requested_, ElementsAre(PropertyLine{"a|new", "1"}));
}

TEST_F(OverrideMergeTest, RemovesTheOverrideOnlyWhenItsLinesHaveBeenAskedFor) {
  files_.Put(kPropertyFile, WithTrailer("a|=1\nb|=2\n"));
  files_.Put(kOverrideFile, WithTrailer("a|=10\nb|=20\n"));
  int requests = 0;
  LoadPropertyFiles(files_, kPropertyFile, kOverrideFile, map_, [&](const PropertyLine&) {
    ++requests;
    EXPECT_TRUE(OverrideIsThere());
    return true;
  });
  EXPECT_EQ(requests, 2);
  EXPECT_FALSE(OverrideIsThere());
}

TEST_F(OverrideMergeTest, LeavesTheOverrideToTheNextLoadWhenALineWontBeWritten) {
  files_.Put(kPropertyFile, WithTrailer("a|=1\nb|=2\n"));
  files_.Put(kOverrideFile, WithTrailer("a|=10\nb|=20\n"));
  int requests = 0;
  EXPECT_TRUE(
      LoadPropertyFiles(files_, kPropertyFile, kOverrideFile, map_, [&](const PropertyLine&) {
        return ++requests < 2;
      }).Succeeded());
  EXPECT_EQ(requests, 2);
  EXPECT_TRUE(OverrideIsThere());
}

TEST_F(OverrideMergeTest, LeavesAnOverrideThatItMayNotRemoveEvenIfNoLineAsksForThat) {
  files_.Put(kPropertyFile, WithTrailer("a|=1\n"));
  files_.Put(kOverrideFile, WithTrailer("x|=2\n"));
  const LoadOutcome outcome = LoadPropertyFiles(
      files_, kPropertyFile, kOverrideFile, map_, [](const PropertyLine&) { return true; },
      [] { return false; });
  EXPECT_TRUE(outcome.Succeeded());
  EXPECT_TRUE(outcome.override_removed) << "it is no failure";
  EXPECT_TRUE(OverrideIsThere());
}

TEST_F(OverrideMergeTest, RemovesAnOverrideWhoseEntriesAreAllUnknown) {
  const std::string main = WithTrailer("a|b=1\n");
  files_.Put(kPropertyFile, main);
  files_.Put(kOverrideFile, WithTrailer("x|y=2\nz|=3\n"));
  EXPECT_TRUE(Load().Succeeded());
  EXPECT_THAT(requested_, IsEmpty());
  EXPECT_FALSE(OverrideIsThere());
  EXPECT_EQ(files_.Get(kPropertyFile), main);
}

TEST_F(OverrideMergeTest, AppendsALineWhoseNamesDifferAndLetsItWinAtTheNextLoad) {
  files_.Put(kPropertyFile, WithTrailer("a|old=1\nb|=2\n"));
  files_.Put(kOverrideFile, WithTrailer("a|new=9\n"));
  ASSERT_TRUE(Load().Succeeded());
  EXPECT_THAT(requested_, ElementsAre(PropertyLine{"a|new", "9"}));
  EXPECT_EQ(map_["a"], (PropertyLine{"a|old", "9"}));
  WriteRequested();
  EXPECT_EQ(files_.Get(kPropertyFile), WithTrailer("a|old=1\nb|=2\na|new=9\n"));
  ASSERT_TRUE(Load().Succeeded());
  EXPECT_EQ(map_["a"], (PropertyLine{"a|new", "9"}));
}

TEST_F(OverrideMergeTest, NeitherAppliesNorRemovesAnOverrideThatDoesNotReadWell) {
  const std::string good = WithTrailer("a|b=2\n");
  const struct {
    std::string bytes;
    PropertyFileResult result;
  } cases[] = {
      {good.substr(0, good.size() - 1) + "?", PropertyFileResult::kWrongChecksum},
      {WithTrailer("a|b=2\nmalformed\n"), PropertyFileResult::kMalformedLine},
      {"", PropertyFileResult::kTooShort},
      {"ab", PropertyFileResult::kTooShort},
  };
  files_.Put(kPropertyFile, WithTrailer("a|b=1\n"));
  for (const auto& [bytes, result] : cases) {
    files_.Put(kOverrideFile, bytes);
    const LoadOutcome outcome = Load();
    EXPECT_TRUE(outcome.Succeeded());
    EXPECT_EQ(outcome.override_file, result);
    EXPECT_THAT(requested_, IsEmpty());
    EXPECT_EQ(map_["a"].value, "1");
    EXPECT_EQ(files_.Get(kOverrideFile), bytes);
  }
}

TEST_F(OverrideMergeTest, LeavesAFolderOrAnUnopenableFileInTheOverridesPlaceAlone) {
  files_.Put(kPropertyFile, WithTrailer("a|b=1\n"));
  files_.PutDirectory(kOverrideFile);
  EXPECT_EQ(Load().override_file, PropertyFileResult::kNotReadable);
  files_.PutUnopenable(kOverrideFile);
  EXPECT_EQ(Load().override_file, PropertyFileResult::kNotOpened);
  EXPECT_TRUE(Load().Succeeded());
  EXPECT_TRUE(OverrideIsThere());
}

TEST_F(OverrideMergeTest, DoesNotLookAtTheOverrideWhenTheMainFileFails) {
  files_.Put(kOverrideFile, WithTrailer("a|b=2\n"));
  EXPECT_EQ(Load().main_file, PropertyFileResult::kNotOpened);
  for (const std::string& bytes :
       {std::string("\xFF\xFF"), std::string("a|b=1\n??"), WithTrailer("a|b=1\nmalformed\n")}) {
    files_.Put(kPropertyFile, bytes);
    const std::uint64_t opens = files_.opens();
    const LoadOutcome outcome = Load();
    EXPECT_FALSE(outcome.Succeeded());
    EXPECT_EQ(outcome.override_file, std::nullopt);
    EXPECT_EQ(files_.opens(), opens + 1);
    EXPECT_THAT(requested_, IsEmpty());
    EXPECT_TRUE(OverrideIsThere());
  }
}

TEST_F(OverrideMergeTest, TheMainFileIsNoOverrideOfItselfInAnySpelling) {
  const std::string bytes = WithTrailer("a|b=1\n");
  files_.Put(kPropertyFile, bytes);
  PropertyMap map;
  for (const platform::WidePath& path :
       {platform::WidePath(kPropertyFile), u"\\." + platform::WidePath(kPropertyFile)}) {
    const LoadOutcome outcome = LoadPropertyFiles(files_, kPropertyFile, path, map,
                                                  [](const PropertyLine&) { return true; });
    EXPECT_TRUE(outcome.Succeeded());
    EXPECT_EQ(outcome.override_file, std::nullopt);
    EXPECT_EQ(files_.Get(kPropertyFile), bytes);
  }
}

TEST_F(OverrideMergeTest, TellsWhenTheOverrideCannotBeRemoved) {
  files_.Put(kPropertyFile, WithTrailer("a|b=1\n"));
  files_.Put(kOverrideFile, WithTrailer("a|b=2\n"));
  files_.FailRemovals(true);
  const LoadOutcome outcome = Load();
  EXPECT_TRUE(outcome.Succeeded());
  EXPECT_FALSE(outcome.override_removed);
  EXPECT_THAT(requested_, ElementsAre(PropertyLine{"a|b", "2"}));
}

}  // namespace
}  // namespace valmere::test
