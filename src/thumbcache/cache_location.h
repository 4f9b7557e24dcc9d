// Where the desktop keeps a user's thumbnails: "thumbnails" in the user's cache directory (XDG base directories), with
// one directory for each size and one for failures (the freedesktop thumbnail standard).
//
// Nothing here touches the file system: the directories need not exist.

#pragma once

#include <array>
#include <string>
#include <string_view>

namespace nebulark {

// The size directories, in the order of clearing. "fail" has a directory for each thumbnailer, with markers for the
// files that it could not draw.
inline constexpr std::array<std::string_view, 5> thumbnail_size_dirs{"normal", "large", "x-large", "xx-large", "fail"};

// XDG_CACHE_HOME if it is absolute, unchanged; otherwise HOME, which may be empty or relative, followed by "/.cache";
// "" if HOME is not set either. Reads the environment at each call.
[[nodiscard]] std::string user_cache_dir();

// user_cache_dir() followed by "/thumbnails". Means nothing when user_cache_dir() is empty.
[[nodiscard]] std::string thumbnail_cache_dir();

} // namespace nebulark
