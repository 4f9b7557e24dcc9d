#include "thumbcache/cache_location.h"

#include <cstdlib>
#include <optional>
#include <string>

#include "case.h"

namespace nebulark {

namespace {

// Sets or unsets an environment variable, and restores it at the end.
class Variable {
public:
  Variable(const char* variable, const char* value) : name(variable) {
    if (const char* const before = std::getenv(name)) own = before;
    set(value);
  }
  ~Variable() { set(own ? own->c_str() : nullptr); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

private:
  void set(const char* value) { (void)(value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name)); }

  const char* name;
  std::optional<std::string> own;
};

struct Environment {
  const char* xdg_cache_home;
  const char* home;
};

using std::string_view_literals::operator""sv;

constexpr const char* unset = nullptr;

class CacheLocation : public testing::TestWithParam<Case<Environment, const char*>> {};

TEST_P(CacheLocation, Is) {
  const auto& [name, environment, base] = GetParam();
  const Variable xdg_cache_home("XDG_CACHE_HOME", environment.xdg_cache_home);
  const Variable home("HOME", environment.home);
  EXPECT_EQ(user_cache_dir(), base);
  EXPECT_EQ(thumbnail_cache_dir(), std::string(base) + "/thumbnails");
}

constexpr Case<Environment, const char*> locations[] = {
    {"XdgCacheHomeWhenAbsolute", {"/tmp/c", "/home/a"}, "/tmp/c"},
    {"XdgCacheHomeWithoutHome", {"/tmp/c", unset}, "/tmp/c"},
    {"XdgCacheHomeWhenTheRoot", {"/", "/home/a"}, "/"},
    {"XdgCacheHomeNotNormalised", {"//c/../d/./e", "/home/a"}, "//c/../d/./e"},
    {"XdgCacheHomeWithOddBytes", {"/\xFF\n %s~$HOME", "/home/a"}, "/\xFF\n %s~$HOME"},
    {"HomeWhenXdgCacheHomeIsUnset", {unset, "/home/a"}, "/home/a/.cache"},
    {"HomeWhenXdgCacheHomeIsEmpty", {"", "/home/a"}, "/home/a/.cache"},
    {"HomeWhenXdgCacheHomeIsRelative", {"cache", "/home/a"}, "/home/a/.cache"},
    {"HomeWhenXdgCacheHomeBeginsWithABlank", {" /cache", "/home/a"}, "/home/a/.cache"},
    {"HomeWhenXdgCacheHomeBeginsWithATilde", {"~/cache", "/home/a"}, "/home/a/.cache"},
    {"HomeWhenTheRoot", {unset, "/"}, "//.cache"},
    {"HomeWhenRelative", {unset, "home/a"}, "home/a/.cache"},
    {"HomeWhenEmpty", {unset, ""}, "/.cache"},
    {"NowhereWhenBothAreUnset", {unset, unset}, ""},
    {"NowhereWhenXdgCacheHomeIsRelativeAndHomeUnset", {"cache", unset}, ""},
};
INSTANTIATE_TEST_SUITE_P(, CacheLocation, testing::ValuesIn(locations), case_name);

TEST(ThumbnailSizeDirs, AreClearedInThisOrder) {
  EXPECT_EQ(thumbnail_size_dirs, (std::array{"normal"sv, "large"sv, "x-large"sv, "xx-large"sv, "fail"sv}));
}

} // namespace

} // namespace nebulark
