// The input is a thumbnail, where it begins like a PNG file; else it is the tags of one: the URI, a line feed, and the
// MIME type.

#include <string>

#include <fcntl.h>

#include "plain_reader.h"
#include "targets.h"
#include "thumbcache/ownership.h"
#include "thumbcache/png.h"
#include "thumbcache/scratch.h"

namespace nebulark {

namespace {

std::string thumbnail(std::string_view input) {
  if (input.starts_with(signature.substr(0, 4))) return std::string(input);
  const std::size_t line_feed = std::min(input.find('\n'), input.size());
  const std::string_view mimetype = input.substr(std::min(line_feed + 1, input.size()));
  return png({uri_chunk(input.substr(0, line_feed)), mimetype_chunk(mimetype), chunk("IDAT", "data")});
}

// Each input is written over the one before it: a test makes thousands of them.
bool is_nebulark(const std::string& bytes) {
  static const ScratchDirectory directory;
  const std::string path = directory.path + "/thumbnail.png";
  write(path, bytes);
  return is_nebulark_thumbnail(AT_FDCWD, path.c_str());
}

} // namespace

void ownership(std::string_view input) {
  const std::string bytes = thumbnail(input);
  require(is_nebulark(bytes) == plain_is_nebulark(plain_tags(bytes)), "the answer is that of a plain reader");
}

} // namespace nebulark
