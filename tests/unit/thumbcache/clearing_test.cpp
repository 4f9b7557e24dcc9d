#include "thumbcache/clearing.h"

#include <algorithm>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "scratch.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

std::string ours() { return png({uri_chunk("file:///home/ann/m31.fits")}); }
std::string theirs() { return png({uri_chunk("file:///home/ann/cat.png")}); }

using Outcome = std::pair<std::int32_t, std::int32_t>; // removed and left

Outcome clear(const std::string& directory, bool all, ClearCounts counts = {}) {
  clear_thumbnail_tree(directory, all, counts);
  return {counts.removed, counts.left};
}

using Names = std::vector<std::string>;

// Every path below a directory, sorted.
Names names_in(const std::string& directory) {
  Names names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
    names.push_back(entry.path().lexically_relative(directory));
  std::ranges::sort(names);
  return names;
}

static_assert(std::is_same_v<decltype(ClearCounts::removed), std::int32_t>);
static_assert(std::is_same_v<decltype(ClearCounts::left), std::int32_t>);

// Each test has two directories and reaches nothing else.
class ClearThumbnailTree : public testing::Test {
protected:
  void SetUp() override {
    ASSERT_FALSE(HasFailure()); // after a failure, skipping does not stop the test
    if (!root.is_set) GTEST_SKIP() << "too dangerous without chroot()";
    std::filesystem::create_directory(cache);
    std::filesystem::create_directory(elsewhere);
  }

  const std::string cache = "/cache";
  const std::string elsewhere = "/elsewhere";
  ScratchDirectory directory;
  OwnRoot root{directory.path};
};

TEST_F(ClearThumbnailTree, DeletesNebularksFilesAndWithAllEveryFile) {
  write(cache + "/1.png", ours());
  write(cache + "/2.png", theirs());
  write(cache + "/3.png", ours());
  write(cache + "/stray.txt", "no PNG");
  write(cache + "/empty", "");
  EXPECT_EQ(clear(cache, false), (Outcome{2, 3}));
  EXPECT_EQ(names_in(cache), (Names{"2.png", "empty", "stray.txt"}));
  write(cache + "/1.png", ours());
  EXPECT_EQ(clear(cache, true), (Outcome{4, 0}));
  EXPECT_EQ(names_in(cache), Names{});
}

TEST_F(ClearThumbnailTree, FindsFilesAtAnyDepthAndKeepsDirectories) {
  write(cache + "/fail/nebulark/1.png", ours());
  write(cache + "/fail/others/2.png", theirs());
  write(cache + "/a/b/c/3.png", ours());
  write(cache + "/4.png", ours());
  EXPECT_EQ(clear(cache, false), (Outcome{3, 1}));
  EXPECT_EQ(names_in(cache), (Names{"a", "a/b", "a/b/c", "fail", "fail/nebulark", "fail/others", "fail/others/2.png"}));
  EXPECT_EQ(clear(cache, true), (Outcome{1, 0}));
  EXPECT_EQ(names_in(cache), (Names{"a", "a/b", "a/b/c", "fail", "fail/nebulark", "fail/others"}));
}

TEST_F(ClearThumbnailTree, TreatsEveryNameAlike) {
  for (const std::string name :
       {".hidden", "...", "..x", ".x", "a b", "new\nline", "\xFF\xFE", "%s%n", "-rf", "*", "~", "\\"}) {
    write(cache + "/files/" + name, ours());
    write(cache + "/directories/" + name + "/1.png", ours());
  }
  EXPECT_EQ(clear(cache, false), (Outcome{24, 0}));
}

TEST_F(ClearThumbnailTree, NeitherFollowsNorDeletesALink) {
  write(elsewhere + "/1.png", ours());
  std::filesystem::create_symlink(elsewhere + "/1.png", cache + "/file");
  std::filesystem::create_directory_symlink(elsewhere, cache + "/directory");
  std::filesystem::create_directory_symlink(".", cache + "/loop");
  std::filesystem::create_symlink("absent", cache + "/nothing");
  for (const bool all : {false, true}) {
    EXPECT_EQ(clear(cache, all), (Outcome{0, 0}));
    EXPECT_EQ(names_in(cache), (Names{"directory", "file", "loop", "nothing"}));
    EXPECT_EQ(names_in(elsewhere), Names{"1.png"});
  }
}

TEST_F(ClearThumbnailTree, FollowsALinkThatIsTheGivenDirectory) {
  write(elsewhere + "/1.png", ours());
  std::filesystem::create_directory_symlink(elsewhere, cache + "/normal");
  EXPECT_EQ(clear(cache + "/normal", false), (Outcome{1, 0}));
  EXPECT_EQ(names_in(elsewhere), Names{});
}

TEST_F(ClearThumbnailTree, SkipsPipesAndSockets) {
  ASSERT_EQ(::mkfifo((cache + "/pipe").c_str(), 0600), 0);
  ASSERT_EQ(::mknod((cache + "/socket").c_str(), S_IFSOCK | 0600, 0), 0);
  for (const bool all : {false, true}) {
    EXPECT_EQ(clear(cache, all), (Outcome{0, 0}));
    EXPECT_EQ(names_in(cache), (Names{"pipe", "socket"}));
  }
}

TEST_F(ClearThumbnailTree, SkipsADirectoryThatCannotBeOpened) {
  write(cache + "/file", ours());
  for (const bool all : {false, true}) {
    EXPECT_EQ(clear(cache + "/absent", all), (Outcome{0, 0}));
    EXPECT_EQ(clear(cache + "/file", all), (Outcome{0, 0}));
  }
  EXPECT_EQ(names_in(cache), Names{"file"});
}

TEST_F(ClearThumbnailTree, AddsToTheCounts) {
  write(cache + "/1.png", ours());
  write(cache + "/2.png", theirs());
  write(cache + "/3.png", theirs());
  EXPECT_EQ(clear(cache, false, {.removed = 10, .left = 20}), (Outcome{11, 22}));
}

TEST_F(ClearThumbnailTree, LeavesNothingOpen) {
  write(cache + "/a/b/1.png", ours());
  write(cache + "/a/2.png", theirs());
  const int before = next_descriptor();
  (void)clear(cache, false);
  (void)clear(cache + "/absent", false);
  EXPECT_EQ(next_descriptor(), before);
}

// Permissions mean nothing to root.
class ClearThumbnailTreeAsAUser : public ClearThumbnailTree, public testing::WithParamInterface<bool> {
protected:
  void SetUp() override {
    ClearThumbnailTree::SetUp();
    if (IsSkipped()) return;
    std::filesystem::permissions("/", std::filesystem::perms{0755});
    std::filesystem::permissions(cache, std::filesystem::perms{0777});
    user.emplace();
    if (!user->is_one) GTEST_SKIP() << "root cannot become another user here";
  }

  std::optional<OrdinaryUser> user;
};
INSTANTIATE_TEST_SUITE_P(, ClearThumbnailTreeAsAUser, testing::Bool(),
                         [](const auto& all) { return all.param ? "WithAll" : "WithoutAll"; });

TEST_P(ClearThumbnailTreeAsAUser, KeepsAFileThatCannotBeDeletedAndDoesNotCountIt) {
  write(cache + "/locked/1.png", ours());
  write(cache + "/2.png", ours());
  const Mode locked(cache + "/locked", 0555);
  EXPECT_EQ(clear(cache, GetParam()), (Outcome{1, 0}));
  EXPECT_EQ(names_in(cache), (Names{"locked", "locked/1.png"}));
}

TEST_P(ClearThumbnailTreeAsAUser, DeletesAReadOnlyFile) {
  write(cache + "/1.png", ours());
  const Mode read_only(cache + "/1.png", 0400);
  EXPECT_EQ(clear(cache, GetParam()), (Outcome{1, 0}));
  EXPECT_EQ(names_in(cache), Names{});
}

TEST_P(ClearThumbnailTreeAsAUser, KeepsAnUnreadableFileExceptWithAll) {
  const bool all = GetParam();
  write(cache + "/1.png", ours());
  const Mode unreadable(cache + "/1.png", 0200);
  EXPECT_EQ(clear(cache, all), (all ? Outcome{1, 0} : Outcome{0, 1}));
  EXPECT_EQ(names_in(cache), (all ? Names{} : Names{"1.png"}));
}

TEST_P(ClearThumbnailTreeAsAUser, CountsNothingInADirectoryThatCannotBeReadOrEntered) {
  for (const mode_t mode : {0444U, 0000U}) {
    write(cache + "/closed/1.png", ours());
    write(cache + "/closed/2.png", theirs());
    write(cache + "/3.png", ours());
    {
      const Mode closed(cache + "/closed", mode);
      EXPECT_EQ(clear(cache, GetParam()), (Outcome{1, 0}));
    }
    EXPECT_EQ(names_in(cache), (Names{"closed", "closed/1.png", "closed/2.png"}));
  }
}

} // namespace

} // namespace nebulark
