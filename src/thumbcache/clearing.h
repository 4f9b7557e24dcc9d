// Clearing the thumbnail cache, so that file managers draw their thumbnails again.

#pragma once

#include <cstdint>
#include <string>

namespace nebulark {

struct ClearCounts {
  std::int32_t removed = 0; // files that are gone
  std::int32_t left = 0;    // files looked at and kept as not Nebulark's
};

// Deletes the regular files of a directory and of all directories below it, and counts them in `counts`: with `all`
// every file whatever it is, otherwise Nebulark's thumbnails alone. Directories stay, symbolic links are neither
// followed nor deleted, and pipes, sockets and devices stay. A directory that cannot be opened is passed over, and so
// is an entry whose status cannot be read. A file that cannot be deleted counts in neither number.
//
// `directory` may be a symbolic link. Below it no path is used, and each level down keeps its directory open: depth is
// limited by the process's descriptors and memory, and what lies deeper is passed over.
void clear_thumbnail_tree(const std::string& directory, bool all, ClearCounts& counts);

// Clears the user's thumbnail cache and reports on standard output what was removed; a cache that is not there is an
// empty one. Returns the exit status: 0, or 1 with a message on standard error when the environment does not tell where
// the cache is.
[[nodiscard]] int clear_thumbnail_cache(bool all);

} // namespace nebulark
