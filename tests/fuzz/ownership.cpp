// The input is a thumbnail, where it begins like a PNG file; else it is the tags of one: the URI, a line feed, and the
// MIME type.

#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "base/handles.h"
#include "plain_reader.h"
#include "targets.h"
#include "thumbcache/ownership.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

std::string thumbnail(std::string_view input) {
  if (input.starts_with(signature.substr(0, 4))) return std::string(input);
  const std::size_t line_feed = std::min(input.find('\n'), input.size());
  const std::string_view mimetype = input.substr(std::min(line_feed + 1, input.size()));
  return png({uri_chunk(input.substr(0, line_feed)), mimetype_chunk(mimetype), chunk("IDAT", "data")});
}

// The answer for a file with a name, whose size may be known, unknown (0) or wrong.
void require_answer(bool expected, const std::string& bytes) {
  const FileHandle file(::fdopen(::memfd_create("thumbnail", 0), "w"));
  (void)std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  (void)std::fflush(file.get());
  const std::string path = "/proc/self/fd/" + std::to_string(::fileno(file.get()));
  for (const std::size_t size : {std::size_t{0}, bytes.size(), std::size_t{1}})
    require(is_nebulark_thumbnail(path, size) == expected, "the answer is that of a plain reader");
}

} // namespace

void ownership(std::string_view input) {
  const std::string bytes = thumbnail(input);
  require_answer(plain_is_nebulark(plain_tags(bytes)), bytes);
}

} // namespace nebulark
