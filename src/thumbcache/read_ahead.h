// Reading the heads of a directory's files before the walk asks for them.
//
// Most of a real cache is not in memory when it is cleared, and to wait for the disk, one file after another, is then
// nearly all the time that clearing takes. So now and then one file is probed: is its head in memory? Where it is not,
// the kernel is told what comes next in the listing, and reads those heads while the present ones are judged.
//
// These are hints. They change no result, no order and no count, they open regular files only (by the type in the
// directory entry), and nothing stays open between two calls, so that they never take a descriptor from the walk. Only
// a program that holds a write lease on a file can notice: opening asks it to give the lease up.
//
// Where the kernel cannot tell what is in memory, or the file system leaves types out of its directory entries, nothing
// is read ahead.

#pragma once

#include <optional>

#include <dirent.h>
#include <sys/types.h>

namespace nebulark {

// The state of one directory's listing.
class ReadAhead {
public:
  // The walk calls this for every entry of the open directory, in the order of the listing, before it opens the file.
  void arrive_at(int directory, const dirent& entry);

private:
  unsigned files_ = 0;        // regular files so far
  std::optional<off_t> next_; // up to where in the listing heads were asked for; none while nothing is read ahead
};

} // namespace nebulark
