// Asks the kernel for the heads of a directory's files before the walk reads them.
//
// Most of a real cache is not in memory, and a walk would wait for the disk at each file. So one file in 64 is probed:
// is its head in memory? If not, the kernel is told which files come next, and reads their heads while the walk goes
// on.
//
// These hints change no result, no order and no count. They open only regular files, by the type in the directory
// entry, and the directory once more. Nothing stays open between two calls, so they take no descriptor from the walk. A
// program that holds a write lease on a file is asked to give it up, as it is when the walk opens the file.
//
// Nothing is read ahead if the kernel cannot tell what is in memory, or if directory entries have no types.

#pragma once

#include <optional>

#include <dirent.h>
#include <sys/types.h>

namespace nebulark {

// The state of one directory's listing.
class ReadAhead {
public:
  // Call this for every entry of the open directory, in the order of the listing, before opening the file.
  void arrive_at(int directory, const dirent& entry);

private:
  unsigned files_ = 0;        // regular files so far
  std::optional<off_t> next_; // where in the listing to ask next; none while nothing is read ahead
};

} // namespace nebulark
