#include "thumbcache/clearing.h"

#include <cstdio>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/handles.h"
#include "thumbcache/cache_location.h"
#include "thumbcache/ownership.h"

namespace nebulark {

namespace {

// A directory that is being cleared: open, and the path that leads to it, at whose end the names in it are put in turn.
//
// Other programs may put a link in the place of a directory at any moment, and a path through it then leads out of the
// cache. So nothing is deleted, and no directory opened, by way of a path: both are done in the directory that is open.
struct Place {
  DIR* directory;
  std::string& path;
};

void clear_directory(Place place, bool all, ClearCounts& counts);

void clear_file(Place place, const char* name, std::size_t size, bool all, ClearCounts& counts) {
  if (!all && !is_nebulark_thumbnail(place.path, size)) {
    ++counts.left;
    return;
  }
  if (::unlinkat(::dirfd(place.directory), name, 0) == 0) ++counts.removed;
}

void clear_subdirectory(Place place, const char* name, bool all, ClearCounts& counts) {
  const int descriptor = ::openat(::dirfd(place.directory), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor == -1) return;
  const DirectoryHandle directory(::fdopendir(descriptor));
  if (directory) {
    clear_directory({directory.get(), place.path}, all, counts);
  } else {
    (void)::close(descriptor);
  }
}

void clear_entry(Place place, const char* name, bool all, ClearCounts& counts) {
  // The type in the directory entry is not enough: some file systems leave it out, and a directory that may be listed
  // but not entered must count for nothing. Not stat either, which would follow links out of the cache.
  struct stat status;
  if (::lstat(place.path.c_str(), &status) != 0) return;
  if (S_ISDIR(status.st_mode)) clear_subdirectory(place, name, all, counts);
  if (S_ISREG(status.st_mode)) clear_file(place, name, static_cast<std::size_t>(status.st_size), all, counts);
}

void clear_directory(Place place, bool all, ClearCounts& counts) {
  const std::size_t length = place.path.size();
  while (const dirent* const entry = ::readdir(place.directory)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    place.path += '/';
    place.path += name;
    clear_entry(place, entry->d_name, all, counts);
    place.path.resize(length);
  }
}

void report(const std::string& cache, bool all, const ClearCounts& counts) {
  const char* const plural = counts.removed == 1 ? "" : "s";
  if (all) {
    (void)std::printf("Removed %d cached thumbnail%s, for every application.\n", counts.removed, plural);
  } else {
    (void)std::printf("Removed %d Nebulark thumbnail%s. Left %d belonging to other applications.\n", counts.removed,
                      plural, counts.left);
  }

  // Speaks of Nebulark's thumbnails with `all` too: they are what the user came for.
  if (counts.removed == 0) {
    (void)std::printf("Nothing to remove: there were no cached Nebulark thumbnails in %s.\n", cache.c_str());
  } else {
    (void)std::printf("Close and reopen your file manager to see them redrawn.\n");
  }
}

} // namespace

void clear_thumbnail_tree(std::string& directory, bool all, ClearCounts& counts) {
  const DirectoryHandle handle(::opendir(directory.c_str()));
  if (handle) clear_directory({handle.get(), directory}, all, counts);
}

int clear_thumbnail_cache(bool all) {
  if (user_cache_dir().empty()) {
    (void)std::fprintf(stderr, "nebulark-ctl: cannot locate the thumbnail cache\n");
    return 1;
  }

  const std::string cache = thumbnail_cache_dir();
  ClearCounts counts;
  for (const std::string_view size_dir : thumbnail_size_dirs) {
    std::string directory = cache + "/";
    directory += size_dir;
    clear_thumbnail_tree(directory, all, counts);
  }
  report(cache, all, counts);
  return 0;
}

} // namespace nebulark
