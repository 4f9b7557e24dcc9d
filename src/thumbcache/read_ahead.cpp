#include "thumbcache/read_ahead.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include "base/handles.h"

namespace nebulark {

namespace {

constexpr unsigned batch = 64;    // files between two probes; at most twice as many are asked for and not yet read
constexpr off_t head_size = 4096; // bytes, as much as one read of the tags

Descriptor open_file(int directory, const dirent& entry) {
  return Descriptor(::openat(directory, entry.d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

// Whether the kernel says that the file's first byte is not in memory.
bool is_cold(const Descriptor& file) {
#ifdef RWF_NOWAIT
  char byte;
  const iovec part{&byte, 1};
  return ::preadv2(file.get(), &part, 1, 0, RWF_NOWAIT) == -1 && errno == EAGAIN;
#else // an older C library
  (void)file;
  return false;
#endif
}

// Lists the directory again, starting at a place.
DirectoryHandle listing_from(int directory, off_t place) {
  Descriptor listing(::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!listing || ::lseek(listing.get(), place, SEEK_SET) == -1) return nullptr;
  return directory_over(std::move(listing));
}

// Asks for the heads of `count` files, starting at a place in the listing. Returns the place after them, or none if the
// first head is in memory or the directory cannot be listed.
std::optional<off_t> ask_for_heads(int directory, off_t place, unsigned count) {
  const DirectoryHandle listing = listing_from(directory, place);
  if (!listing) return std::nullopt;
  for (unsigned files = 0; files < count;) {
    const dirent* const entry = ::readdir(listing.get());
    if (entry == nullptr) break;
    if (entry->d_type != DT_REG) continue;
    const Descriptor file = open_file(directory, *entry);
    if (files == 0 && !is_cold(file)) return std::nullopt;
    (void)::posix_fadvise(file.get(), 0, head_size, POSIX_FADV_WILLNEED);
    place = entry->d_off;
    ++files;
  }
  return place;
}

} // namespace

void ReadAhead::arrive_at(int directory, const dirent& entry) {
  if (entry.d_type != DT_REG || files_++ % batch != 0) return;
  if (next_) {
    next_ = ask_for_heads(directory, *next_, batch);
  } else if (is_cold(open_file(directory, entry))) {
    next_ = ask_for_heads(directory, entry.d_off, 2 * batch);
  }
}

} // namespace nebulark
