// Clearing the thumbnail cache, so that file managers draw their thumbnails again.

#pragma once

#include <cstdint>
#include <string>

namespace nebulark {

struct ClearCounts {
  std::int32_t removed = 0; // deleted files
  std::int32_t left = 0;    // files that are not Nebulark's
};

// Deletes regular files in a directory and in all directories below it: all of them with `all`, otherwise only
// Nebulark's thumbnails. Adds to `counts`. Directories, pipes, sockets and devices stay; symbolic links are neither
// followed nor deleted. A directory that cannot be opened is skipped, and so is an entry whose status cannot be read. A
// file that cannot be deleted is not counted.
//
// `directory` may be a symbolic link. Below it no path is used, and each level keeps its directory open: descriptors
// and memory limit the depth, and deeper directories are skipped.
void clear_thumbnail_tree(const std::string& directory, bool all, ClearCounts& counts);

// Clears the user's thumbnail cache and reports on standard output what was removed; a missing cache counts as empty.
// Returns the exit status: 0, or 1 with a message on standard error if the environment does not say where the cache is.
[[nodiscard]] int clear_thumbnail_cache(bool all);

} // namespace nebulark
