#include "thumbcache/clearing.h"

#include <cstdio>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/handles.h"
#include "thumbcache/cache_location.h"
#include "thumbcache/ownership.h"
#include "thumbcache/read_ahead.h"

namespace nebulark {

namespace {

// A directory that is being cleared, and the one above it. On the heap, without recursion: a deep tree must not
// overflow the stack.
struct Level {
  DirectoryHandle directory;
  ReadAhead read_ahead;
  std::unique_ptr<Level> above;
};

// Goes down into a directory; skips it if opening it failed or memory is short.
void enter(std::unique_ptr<Level>& level, Descriptor descriptor) {
  DirectoryHandle directory = directory_over(std::move(descriptor));
  if (!directory) return;
  std::unique_ptr<Level> below(new (std::nothrow) Level);
  if (!below) return;
  below->directory = std::move(directory);
  below->above = std::move(level);
  level = std::move(below);
}

void clear_file(int directory, const char* name, bool all, ClearCounts& counts) {
  if (!all && !is_nebulark_thumbnail(directory, name)) {
    ++counts.left;
    return;
  }
  if (::unlinkat(directory, name, 0) == 0) ++counts.removed;
}

// Other programs may replace a directory by a link at any moment, and a path through it would lead elsewhere. So
// status, opening and deleting take the open directory and a name.
void clear_entry(std::unique_ptr<Level>& level, const dirent& entry, bool all, ClearCounts& counts) {
  const int directory = ::dirfd(level->directory.get());
  if (!all) level->read_ahead.arrive_at(directory, entry);

  // The directory entry's type is not enough: some file systems leave it out, and a file in a directory that can be
  // listed but not entered must not count.
  struct stat status;
  if (::fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (S_ISDIR(status.st_mode))
    enter(level, Descriptor(::openat(directory, entry.d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)));
  if (S_ISREG(status.st_mode)) clear_file(directory, entry.d_name, all, counts);
}

bool is_dot_or_dot_dot(std::string_view name) { return name == "." || name == ".."; }

void report(const std::string& cache, bool all, const ClearCounts& counts) {
  const char* const plural = counts.removed == 1 ? "" : "s";
  if (all) {
    (void)std::printf("Removed %d cached thumbnail%s, for every application.\n", counts.removed, plural);
  } else {
    (void)std::printf("Removed %d Nebulark thumbnail%s. Left %d belonging to other applications.\n", counts.removed,
                      plural, counts.left);
  }

  // Names Nebulark's thumbnails with `all` too: they are why the user clears the cache.
  if (counts.removed == 0) {
    (void)std::printf("Nothing to remove: there were no cached Nebulark thumbnails in %s.\n", cache.c_str());
  } else {
    (void)std::printf("Close and reopen your file manager to see them redrawn.\n");
  }
}

} // namespace

void clear_thumbnail_tree(const std::string& directory, bool all, ClearCounts& counts) {
  std::unique_ptr<Level> level;
  enter(level, Descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  while (level) {
    const dirent* const entry = ::readdir(level->directory.get());
    if (entry == nullptr) {
      level = std::move(level->above);
    } else if (!is_dot_or_dot_dot(entry->d_name)) {
      clear_entry(level, *entry, all, counts);
    }
  }
}

int clear_thumbnail_cache(bool all) {
  if (user_cache_dir().empty()) {
    (void)std::fprintf(stderr, "nebulark-ctl: cannot locate the thumbnail cache\n");
    return 1;
  }

  const std::string cache = thumbnail_cache_dir();
  ClearCounts counts;
  for (const std::string_view size_dir : thumbnail_size_dirs) {
    clear_thumbnail_tree((cache + "/").append(size_dir), all, counts);
  }
  report(cache, all, counts);
  return 0;
}

} // namespace nebulark
