#include "thumbcache/cache_location.h"

#include <array>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

constexpr const char* unset = nullptr;

void set(const char* variable, const char* value) {
  (void)(value != unset ? ::setenv(variable, value, 1) : ::unsetenv(variable));
}

TEST(CacheLocation, IsXdgCacheHomeIfAbsoluteOrElseBelowHome) {
  const struct {
    const char* xdg_cache_home;
    const char* home;
    const char* base;
  } rows[] = {
      // absolute, unchanged
      {"/tmp/c", "/home/a", "/tmp/c"},
      {"/tmp/c", unset, "/tmp/c"},
      {"/", "/home/a", "/"},
      {"//c/../d/./e/", "/home/a", "//c/../d/./e/"},
      {"/\xFF\n %s~$HOME", "/home/a", "/\xFF\n %s~$HOME"},
      // not set
      {unset, "/home/a", "/home/a/.cache"},
      {unset, "/home/a/", "/home/a//.cache"},
      {unset, "/", "//.cache"},
      {unset, "home/a", "home/a/.cache"},
      {unset, "", "/.cache"},
      // not absolute
      {"", "/home/a", "/home/a/.cache"},
      {"cache", "/home/a", "/home/a/.cache"},
      {"./cache", "/home/a", "/home/a/.cache"},
      {" /cache", "/home/a", "/home/a/.cache"},
      {"~/cache", "/home/a", "/home/a/.cache"},
      // nowhere
      {unset, unset, ""},
      {"cache", unset, ""},
      {"", unset, ""},
  };
  for (const auto& [xdg_cache_home, home, base] : rows) {
    SCOPED_TRACE(testing::PrintToString(xdg_cache_home) + " " + testing::PrintToString(home));
    set("XDG_CACHE_HOME", xdg_cache_home);
    set("HOME", home);
    EXPECT_EQ(user_cache_dir(), base);
    EXPECT_EQ(thumbnail_cache_dir(), std::string(base) + "/thumbnails");
  }
}

TEST(ThumbnailSizeDirs, AreClearedInThisOrder) {
  EXPECT_EQ(thumbnail_size_dirs, (std::array{"normal"sv, "large"sv, "x-large"sv, "xx-large"sv, "fail"sv}));
}

} // namespace

} // namespace nebulark
