// A property file that is looked at from outside.
#include "tools/service/service_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <variant>

#include "tests/tools/durable_fixture.h"

namespace valmere::test {
namespace {

using ::testing::HasSubstr;
using tools::FileLook;
using tools::Sealed;
using tools::ServiceFile;

class ServiceFileTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(root_ + "/Store"); }
  std::variant<ServiceFile, tools::Failure> Find(const std::string& path) const {
    return ServiceFile::Find(root_, "", path);
  }
  std::string NameOf(const std::string& path) const {
    const auto file = Find(path);
    const auto* found = std::get_if<ServiceFile>(&file);
    return found != nullptr ? found->name() : std::get<tools::Failure>(file).text;
  }
  FileLook Look() const {
    return std::get<FileLook>(std::get<ServiceFile>(Find(kFileName)).Look());
  }

  TemporaryFolder folder_;
  const std::string root_ = folder_.Path("root");
  const std::string path_ = root_ + kFileName;
};

TEST_F(ServiceFileTest, NoPathLeadsOutOfTheRoot) {
  for (const char* path : {"/Store/x", "\\Store\\x", "Store/x", "/../../Store/x",
                           "Store/../Store/./x", "//Store\\\\x"}) {
    EXPECT_EQ(NameOf(path), root_ + "/Store/x") << path;
  }
  for (const std::string& path : {std::string("/"), std::string(".."), std::string(""),
                                  std::string("/Store/COM1:"), std::string("/Store/x\0y", 10)}) {
    EXPECT_THAT(NameOf(path), HasSubstr("is no file below its root"));
  }
}

TEST_F(ServiceFileTest, NoLinkIsFollowedBelowTheRoot) {
  const std::string elsewhere = folder_.Path("elsewhere");
  std::filesystem::create_directory(elsewhere);
  WriteBytes(elsewhere + "/x.ini", Sealed("A:B|n:m=1\n"));
  std::filesystem::create_directory_symlink(elsewhere, root_ + "/Link");
  EXPECT_THAT(NameOf("/Link/x.ini"), HasSubstr("name the service's root with --root"));
  std::filesystem::create_symlink(elsewhere + "/x.ini", path_);
  EXPECT_TRUE(
      std::holds_alternative<tools::Failure>(std::get<ServiceFile>(Find(kFileName)).Look()));
}

TEST_F(ServiceFileTest, TheRootItselfMayBeALink) {
  const std::string link = folder_.Path("link");
  std::filesystem::create_directory_symlink(root_, link);
  WriteBytes(path_, Sealed("A:B|n:m=1\n"));
  const auto file = ServiceFile::Find(link, "", kFileName);
  EXPECT_TRUE(std::get<FileLook>(std::get<ServiceFile>(file).Look()).sound);
}

TEST_F(ServiceFileTest, AFileThatIsMissingOrTornIsNotSound) {
  EXPECT_FALSE(Look().version.has_value());
  const std::string sound = Sealed("A:B|n:m=1\nA:C|n:o=2\nA:B|n:m=3\n");
  for (std::size_t length = 0; length < sound.size(); ++length) {
    WriteBytes(path_, sound.substr(0, length));
    EXPECT_FALSE(Look().sound) << length;
    EXPECT_TRUE(Look().values.empty()) << length;
  }
  WriteBytes(path_, sound);
  EXPECT_TRUE(Look().sound);
  EXPECT_THAT(Look().values,
              ::testing::ElementsAre(::testing::Pair("A:B", "3"), ::testing::Pair("A:C", "2")));
}

TEST_F(ServiceFileTest, AFileThatWasReplacedIsCurrentNoMore) {
  WriteBytes(path_, Sealed("A:B|n:m=1\n"));
  const ServiceFile file = std::get<ServiceFile>(Find(kFileName));
  const FileLook look = Look();
  EXPECT_TRUE(file.IsCurrent(look));
  EXPECT_FALSE(file.Sync(look).has_value());
  WriteBytes(path_ + ".new", Sealed("A:B|n:m=1\n"));
  std::filesystem::rename(path_ + ".new", path_);
  EXPECT_FALSE(file.IsCurrent(look));
  EXPECT_NE(look.version, Look().version);
  std::filesystem::remove(path_);
  EXPECT_FALSE(file.IsCurrent(look));
}

TEST_F(ServiceFileTest, WhatIsNoFileIsToldOf) {
  std::filesystem::create_directory(path_);
  const auto look = std::get<ServiceFile>(Find(kFileName)).Look();
  EXPECT_THAT(std::get<tools::Failure>(look).text, HasSubstr("is no regular file"));
}

}  // namespace
}  // namespace valmere::test
