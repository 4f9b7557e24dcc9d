// Clearing the thumbnail cache, so that file managers draw their thumbnails again.

#pragma once

#include <cstdint>
#include <string>

namespace nebulark {

struct ClearCounts {
  std::int32_t removed = 0; // files that are gone
  std::int32_t left = 0;    // files kept as not Nebulark's
};

// Deletes regular files in a directory and in all directories below it: all of them with `all`, otherwise only
// Nebulark's thumbnails. Adds to `counts`. Directories, pipes, sockets and devices stay; symbolic links are neither
// followed nor deleted. A directory that cannot be opened is skipped, and so is an entry whose status cannot be read. A
// file that cannot be deleted is not counted.
//
// `directory` may be a symbolic link. Below it no path is used, and each level keeps its directory open: the process's
// descriptors and memory limit the depth, and what is deeper is skipped.
void clear_thumbnail_tree(const std::string& directory, bool all, ClearCounts& counts);

// Clears the user's thumbnail cache and reports on standard output what was removed; a missing cache is an empty one.
// Returns the exit status: 0, or 1 with a message on standard error when the environment does not tell where the cache
// is.
[[nodiscard]] int clear_thumbnail_cache(bool all);

} // namespace nebulark
