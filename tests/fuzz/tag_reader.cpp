// The input is a file, sound or not. Where "~GAP" and a number of 4 bytes, big-endian, stand in it, the file has so
// many bytes more: the lengths that the reader treats apart are far longer than a corpus should be.

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>

#include "memory_stream.h"
#include "plain_reader.h"
#include "targets.h"
#include "thumbcache/ownership.h"

namespace {

// What the reader did to its stream. The linker has every fread of the tool come by here (see CMakeLists.txt), since
// neither what was asked for nor what was taken shows in the reads below a stream's buffer.
struct Account {
  std::size_t most_asked = 0; // at once
  std::size_t end = 0;        // behind the furthest byte that was read
};

Account account;

} // namespace

extern "C" std::size_t __real_fread(void* to, std::size_t size, std::size_t count, std::FILE* file);
extern "C" std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, std::FILE* file);

extern "C" std::size_t __wrap_fread(void* to, std::size_t size, std::size_t count, std::FILE* file) {
  const auto at = static_cast<std::size_t>(std::ftell(file));
  const std::size_t got = __real_fread(to, size, count, file);
  account.most_asked = std::max(account.most_asked, size * count);
  account.end = std::max(account.end, at + size * got);
  return got;
}

namespace nebulark {

namespace {

constexpr std::size_t longest_chunk = 1048576;
constexpr std::size_t block = 4096; // what is read at once where less is needed
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

void require_tags(const ThumbnailTags& tags, const PlainTags& expected) {
  require(tags.uri == expected.uri, "the URI is that of a plain reader");
  require(tags.mimetype == expected.mimetype, "the MIME type is that of a plain reader");
}

// `size` is what the reader is told of the file's size. Whether it is right must not matter.
void require_a_plain_reading(const std::string& bytes, const PlainTags& expected, std::size_t size) {
  MemoryFile file{bytes};
  account = {};
  require_tags(read_thumbnail_tags(open_memory(file).get(), size), expected);
  require(account.most_asked <= longest_chunk, "no read asks for more than 1 MiB");
  require(account.end < expected.end + block, "nothing is read a block behind what had to be known");
}

void require_a_damaged_file_to_read_as_one_that_ends_there(const std::string& bytes) {
  MemoryFile file{bytes, bytes.size() / 2};
  require_tags(read_thumbnail_tags(open_memory(file).get()), plain_tags(bytes.substr(0, file.readable)));
}

void require_reading_to_stop_where_a_seek_fails(const std::string& bytes) {
  MemoryFile file{bytes, bytes.size(), false};
  account = {};
  const ThumbnailTags tags = read_thumbnail_tags(open_memory(file).get());
  require_tags(tags, plain_tags(bytes.substr(0, account.end)));
}

} // namespace

void tag_reader(std::string_view input) {
  const std::string file = with_gaps(input);
  const PlainTags expected = plain_tags(file);
  for (const std::size_t size : {std::size_t{0}, file.size(), std::size_t{1}, std::size_t{20}, file.size() + 1,
                                 std::numeric_limits<std::size_t>::max()})
    require_a_plain_reading(file, expected, size);
  require_a_damaged_file_to_read_as_one_that_ends_there(file);
  require_reading_to_stop_where_a_seek_fails(file);
}

} // namespace nebulark
