// Where the desktop keeps a user's thumbnails: "thumbnails" in the user's cache directory (XDG base directories), with
// one directory for each size and one for failures (the freedesktop thumbnail standard).
//
// Nothing here touches the file system; a directory named here need not exist.

#pragma once

#include <array>
#include <string>
#include <string_view>

namespace nebulark {

// The size directories, in the order in which they are cleared. "fail" holds the failure markers, which remember that a
// thumbnail could not be drawn, in a directory for each thumbnailer.
inline constexpr std::array<std::string_view, 5> thumbnail_size_dirs{"normal", "large", "x-large", "xx-large", "fail"};

// XDG_CACHE_HOME if it is absolute, as it stands; otherwise HOME (as it stands, be it empty or relative) and "/.cache";
// with neither, "". Reads the environment anew at each call.
[[nodiscard]] std::string user_cache_dir();

// user_cache_dir() and "/thumbnails". Of no use where user_cache_dir() is empty.
[[nodiscard]] std::string thumbnail_cache_dir();

} // namespace nebulark
