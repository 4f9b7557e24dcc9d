// The input is a thumbnail if it begins like a PNG file; if not, its tags: the URI, a line feed and the MIME type.

#include <algorithm>
#include <string>

#include <fcntl.h>

#include "scratch.h"
#include "targets.h"
#include "thumbcache/ownership.h"
#include "thumbcache/plain_reader.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

std::string thumbnail(std::string_view input) {
  if (input.starts_with(signature.substr(0, 4))) return std::string(input);
  const std::size_t line_feed = std::min(input.find('\n'), input.size());
  const std::string_view mimetype = input.substr(std::min(line_feed + 1, input.size()));
  return png({uri_chunk(input.substr(0, line_feed)), mimetype_chunk(mimetype), chunk("IDAT", "data")});
}

bool is_nebulark(const std::string& bytes) {
  static const ScratchDirectory directory;
  return is_nebulark_thumbnail(AT_FDCWD, directory.write("thumbnail.png", bytes).c_str());
}

} // namespace

void ownership(std::string_view input) {
  const std::string bytes = thumbnail(input);
  require(is_nebulark(bytes) == plain_is_nebulark(plain_tags(bytes)), "the answer is that of a plain reader");
}

} // namespace nebulark
