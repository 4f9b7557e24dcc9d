// The input is a file. "~GAP" and a big-endian number of 4 bytes stand for that many bytes, to keep the corpus small.

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>
#include <utility>

#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include "base/handles.h"
#include "targets.h"
#include "thumbcache/plain_reader.h"
#include "thumbcache/thumbnail_tags.h"

namespace {

// The disk, and how it was read.
struct Disk {
  std::size_t readable = std::numeric_limits<std::size_t>::max(); // reading fails from this offset on
  std::size_t longest_read = 0;
  std::size_t end = 0; // of the furthest read
};

Disk disk;

} // namespace

// The linker sends the reads of the tool here (see CMakeLists.txt). Their name depends on the C library and its checks.
extern "C" {
ssize_t __wrap_pread(int file, void* to, std::size_t size, off_t offset);
ssize_t __wrap_pread64(int file, void* to, std::size_t size, off_t offset);
ssize_t __wrap___pread64_chk(int file, void* to, std::size_t size, off_t offset, std::size_t room);

ssize_t __wrap_pread(int file, void* to, std::size_t size, off_t offset) {
  const auto at = static_cast<std::size_t>(offset);
  disk.longest_read = std::max(disk.longest_read, size);
  if (at >= disk.readable) {
    errno = EIO;
    return -1;
  }
  const iovec part{to, std::min(size, disk.readable - at)};
  const ssize_t got = ::preadv(file, &part, 1, offset);
  if (got > 0) disk.end = std::max(disk.end, at + static_cast<std::size_t>(got));
  return got;
}

ssize_t __wrap_pread64(int file, void* to, std::size_t size, off_t offset) {
  return __wrap_pread(file, to, size, offset);
}

ssize_t __wrap___pread64_chk(int file, void* to, std::size_t size, off_t offset, std::size_t room) {
  nebulark::require(size <= room, "a read fits into its buffer");
  return __wrap_pread(file, to, size, offset);
}
}

namespace nebulark {

namespace {

constexpr std::size_t longest_chunk = 1048576;
constexpr std::size_t block = 4096; // the shortest read
constexpr std::size_t longest_gap = longest_chunk + 16;
constexpr std::size_t longest_file = 2 * longest_gap;

std::size_t number_in(std::string_view bytes) {
  std::size_t number = 0;
  for (const char byte : bytes)
    number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

std::string with_gaps(std::string_view input) {
  constexpr std::string_view mark = "~GAP";
  std::string file;
  for (;;) {
    const std::size_t place = input.find(mark);
    file += input.substr(0, place);
    if (place == std::string_view::npos) return file;
    const std::string_view number = input.substr(place + mark.size(), 4);
    const std::size_t gap = std::min(number_in(number), longest_gap);
    if (file.size() + gap <= longest_file) file.append(gap, 'g');
    input.remove_prefix(place + mark.size() + number.size());
  }
}

// Reads the bytes from a disk that fails after `readable` of them.
void require_tags_of(const std::string& bytes, std::size_t readable, const PlainTags& expected) {
  const Descriptor file(::memfd_create("thumbnail", 0));
  require(::write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "there is a file");
  disk = {.readable = readable};
  const ThumbnailTags tags = read_thumbnail_tags(file.get());
  const Disk used = std::exchange(disk, {});
  require(tags.uri == expected.uri, "the URI is that of a plain reader");
  require(tags.mimetype == expected.mimetype, "the MIME type is that of a plain reader");
  require(used.longest_read > 0, "the linker sends the reads here");
  require(used.longest_read <= longest_chunk, "no read asks for more than 1 MiB");
  require(used.end < expected.end + block, "less than a block is read after what the tags need");
}

} // namespace

void tag_reader(std::string_view input) {
  const std::string file = with_gaps(input);
  require_tags_of(file, std::numeric_limits<std::size_t>::max(), plain_tags(file));
  const std::size_t half = file.size() / 2;
  require_tags_of(file, half, plain_tags(file.substr(0, half))); // a damaged file reads as one that ends there
}

} // namespace nebulark
