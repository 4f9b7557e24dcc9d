#include "thumbcache/clearing.h"

#include <cstdio>
#include <string_view>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/handles.h"
#include "thumbcache/cache_location.h"
#include "thumbcache/ownership.h"

namespace nebulark {

namespace {

void clear_file(const std::string& path, std::size_t size, bool all, ClearCounts& counts) {
  if (!all && !is_nebulark_thumbnail(path, size)) {
    ++counts.left;
    return;
  }
  if (::unlink(path.c_str()) == 0) ++counts.removed;
}

void clear_entry(std::string& path, bool all, ClearCounts& counts) {
  // The type in the directory entry is not enough: some file systems leave it out, and a directory that may be listed
  // but not entered must count for nothing. Not stat either, which would follow links out of the cache.
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) return;
  if (S_ISDIR(status.st_mode)) clear_thumbnail_tree(path, all, counts);
  if (S_ISREG(status.st_mode)) clear_file(path, static_cast<std::size_t>(status.st_size), all, counts);
}

void report(bool all, const ClearCounts& counts) {
  const char* const plural = counts.removed == 1 ? "" : "s";
  if (all) {
    (void)std::printf("Removed %d cached thumbnail%s, for every application.\n", counts.removed, plural);
  } else {
    (void)std::printf("Removed %d Nebulark thumbnail%s. Left %d belonging to other applications.\n", counts.removed,
                      plural, counts.left);
  }

  // Speaks of Nebulark's thumbnails with `all` too: they are what the user came for.
  if (counts.removed == 0) {
    (void)std::printf("Nothing to remove: there were no cached Nebulark thumbnails in %s.\n",
                      thumbnail_cache_dir().c_str());
  } else {
    (void)std::printf("Close and reopen your file manager to see them redrawn.\n");
  }
}

} // namespace

void clear_thumbnail_tree(std::string& directory, bool all, ClearCounts& counts) {
  const DirectoryHandle handle(::opendir(directory.c_str()));
  if (!handle) return;

  const std::size_t length = directory.size();
  while (const dirent* const entry = ::readdir(handle.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    directory += '/';
    directory += name;
    clear_entry(directory, all, counts);
    directory.resize(length);
  }
}

int clear_thumbnail_cache(bool all) {
  if (user_cache_dir().empty()) {
    (void)std::fprintf(stderr, "nebulark-ctl: cannot locate the thumbnail cache\n");
    return 1;
  }

  ClearCounts counts;
  for (const std::string_view size_dir : thumbnail_size_dirs) {
    std::string directory = thumbnail_cache_dir() + "/";
    directory += size_dir;
    clear_thumbnail_tree(directory, all, counts);
  }
  report(all, counts);
  return 0;
}

} // namespace nebulark
