#include "thumbcache/cache_location.h"

#include <cstdlib>

namespace nebulark {

std::string user_cache_dir() {
  const char* const xdg_cache_home = std::getenv("XDG_CACHE_HOME");
  if (xdg_cache_home != nullptr && xdg_cache_home[0] == '/') return xdg_cache_home;

  const char* const home = std::getenv("HOME");
  if (home != nullptr) return std::string(home) + "/.cache";

  return {};
}

std::string thumbnail_cache_dir() { return user_cache_dir() + "/thumbnails"; }

} // namespace nebulark
