#include "thumbcache/ownership.h"

#include <algorithm>

#include <fcntl.h>

#include "base/ascii.h"
#include "base/handles.h"
#include "thumbcache/thumbnail_tags.h"

namespace nebulark {

namespace {

bool ends_with_lowered(std::string_view text, std::string_view ending) {
  if (text.size() < ending.size()) return false;
  return std::ranges::equal(text.substr(text.size() - ending.size()), ending, {}, ascii_lower);
}

bool has_nebulark_extension(std::string_view uri) {
  // Two searches: find_first_of would make a call for each byte of the URI, half of all instructions.
  const std::string_view path = uri.substr(0, std::min(uri.find('?'), uri.find('#')));
  return std::ranges::any_of(nebulark_extensions,
                             [path](std::string_view ending) { return ends_with_lowered(path, ending); });
}

bool is_nebulark_mime_type(std::string_view mimetype) {
  return std::ranges::find(nebulark_mime_types, mimetype) != nebulark_mime_types.end();
}

} // namespace

bool is_nebulark_thumbnail(int directory, const char* name) {
  const Descriptor file(::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return false;
  const ThumbnailTags tags = read_thumbnail_tags(file.get());
  return has_nebulark_extension(tags.uri) || is_nebulark_mime_type(tags.mimetype);
}

} // namespace nebulark
