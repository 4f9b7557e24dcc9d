#include "thumbcache/ownership.h"

#include <algorithm>
#include <cstdint>

#include "base/ascii.h"
#include "base/handles.h"
#include "thumbcache/head_reader.h"

namespace nebulark {

namespace {

constexpr std::string_view png_signature = "\x89PNG\r\n\x1a\n";
constexpr std::uint32_t longest_chunk = 1U << 20; // bytes; no thumbnailer writes a tag near this
constexpr std::size_t crc_size = 4;

// With the first NUL of the chunk, which ends a keyword: data that begins so has this keyword and no other.
constexpr std::string_view uri_keyword("Thumb::URI\0", 11);
constexpr std::string_view mimetype_keyword("Thumb::Mimetype\0", 16);

// Written out, because compilers make this one instruction of it.
std::uint32_t big_endian(std::string_view bytes) {
  const auto byte = [bytes](std::size_t at) { return std::uint32_t{static_cast<unsigned char>(bytes[at])}; };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

// Reads one text chunk, and shows its data to `keep`.
template <typename Keep>
bool read_text(HeadReader& head, std::uint32_t length, Keep keep) {
  std::string_view data;
  if (!head.read(length, data)) return false;
  keep(data);
  return head.skip(crc_size);
}

// Reads one chunk. Returns false where reading ends: at the image data, and wherever the file does not go on as it
// should.
template <typename Keep>
bool read_chunk(HeadReader& head, Keep keep) {
  std::string_view header;
  if (!head.read(8, header)) return false;
  const std::uint32_t length = big_endian(header.substr(0, 4));
  const std::string_view type = header.substr(4);
  if (length > longest_chunk) return false;
  if (type == "IDAT") return false;
  if (type == "tEXt") return read_text(head, length, keep);
  return head.skip(length + crc_size);
}

// Tells `uri` and `mimetype` the value of each tag of theirs, in the order of the file. A value stands only as long as
// the call: whoever needs no more than a look at it has it without a copy.
template <typename Uri, typename Mimetype>
void read_tags(std::FILE* file, std::size_t size, Uri uri, Mimetype mimetype) {
  HeadReader head(file, size);
  std::string_view signature;
  if (!head.read(png_signature.size(), signature) || signature != png_signature) return;
  const auto keep = [&](std::string_view data) {
    if (data.starts_with(uri_keyword)) uri(data.substr(uri_keyword.size()));
    if (data.starts_with(mimetype_keyword)) mimetype(data.substr(mimetype_keyword.size()));
  };
  while (read_chunk(head, keep)) {
  }
}

bool ends_with_lowered(std::string_view text, std::string_view ending) {
  if (text.size() < ending.size()) return false;
  return std::ranges::equal(text.substr(text.size() - ending.size()), ending, {}, ascii_lower);
}

bool has_nebulark_extension(std::string_view uri) {
  // Not find_first_of: it searches each byte of the URI in the two, with a call of its own.
  const std::string_view path = uri.substr(0, std::min(uri.find('?'), uri.find('#')));
  return std::ranges::any_of(nebulark_extensions,
                             [path](std::string_view ending) { return ends_with_lowered(path, ending); });
}

bool is_nebulark_mime_type(std::string_view mimetype) {
  return std::ranges::find(nebulark_mime_types, mimetype) != nebulark_mime_types.end();
}

} // namespace

ThumbnailTags read_thumbnail_tags(std::FILE* file, std::size_t size) {
  ThumbnailTags tags;
  read_tags(
      file, size, [&](std::string_view value) { tags.uri = value; },
      [&](std::string_view value) { tags.mimetype = value; });
  return tags;
}

bool is_nebulark_thumbnail(const std::string& path, std::size_t size) {
  const FileHandle file(std::fopen(path.c_str(), "rb"));
  if (!file) return false;
  (void)std::setvbuf(file.get(), nullptr, _IONBF, 0); // the head is read into a buffer of its own
  // The last tag of each kind holds.
  bool by_uri = false;
  bool by_mimetype = false;
  read_tags(
      file.get(), size, [&](std::string_view value) { by_uri = has_nebulark_extension(value); },
      [&](std::string_view value) { by_mimetype = is_nebulark_mime_type(value); });
  return by_uri || by_mimetype;
}

} // namespace nebulark
