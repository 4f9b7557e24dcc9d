// Asking for the heads of a directory's files before the walk reads them.
//
// Most of a real cache is not in memory when it is cleared, and clearing then mostly waits for the disk, file by file.
// So one file in 64 is probed: is its head in memory? If not, the kernel is told which files come next in the listing,
// and reads their heads while the walk reads the present ones.
//
// These are hints. They change no result, no order and no count. They open regular files only, by the type in the
// directory entry, and nothing stays open between two calls, so they never take a descriptor from the walk. Only a
// program that holds a write lease on a file can notice: opening asks it to give up the lease.
//
// Nothing is read ahead where the kernel cannot tell what is in memory, or where the file system gives no types in its
// directory entries.

#pragma once

#include <optional>

#include <dirent.h>
#include <sys/types.h>

namespace nebulark {

// The state of one directory's listing.
class ReadAhead {
public:
  // To be called for every entry of the open directory, in the order of the listing, before the file is opened.
  void arrive_at(int directory, const dirent& entry);

private:
  unsigned files_ = 0;        // regular files so far
  std::optional<off_t> next_; // where in the listing to ask next; none while nothing is read ahead
};

} // namespace nebulark
