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

std::uint32_t big_endian(std::string_view bytes) {
  std::uint32_t number = 0;
  for (const char byte : bytes)
    number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

// Keeps the value of a text chunk whose keyword is one of the two that count. Without a NUL there is no keyword.
void keep_tag(std::string_view data, ThumbnailTags& tags) {
  const std::size_t nul = data.find('\0');
  if (nul == std::string_view::npos) return;
  const std::string_view keyword = data.substr(0, nul);
  if (keyword == "Thumb::URI") tags.uri = data.substr(nul + 1);
  if (keyword == "Thumb::Mimetype") tags.mimetype = data.substr(nul + 1);
}

bool read_tag(HeadReader& head, std::uint32_t length, ThumbnailTags& tags) {
  std::string_view data;
  if (!head.read(length, data)) return false;
  keep_tag(data, tags);
  return head.skip(crc_size);
}

// Reads one chunk. Returns false where reading ends: at the image data, and wherever the file does not go on as it
// should.
bool read_chunk(HeadReader& head, ThumbnailTags& tags) {
  std::string_view header;
  if (!head.read(8, header)) return false;
  const std::uint32_t length = big_endian(header.substr(0, 4));
  const std::string_view type = header.substr(4);
  if (length > longest_chunk) return false;
  if (type == "IDAT") return false;
  if (type == "tEXt") return read_tag(head, length, tags);
  return head.skip(length + crc_size);
}

bool ends_with_lowered(std::string_view text, std::string_view ending) {
  if (text.size() < ending.size()) return false;
  return std::ranges::equal(text.substr(text.size() - ending.size()), ending, {}, ascii_lower);
}

bool has_nebulark_extension(std::string_view uri) {
  const std::string_view path = uri.substr(0, uri.find_first_of("?#"));
  return std::ranges::any_of(nebulark_extensions,
                             [path](std::string_view ending) { return ends_with_lowered(path, ending); });
}

bool is_nebulark_mime_type(std::string_view mimetype) {
  return std::ranges::find(nebulark_mime_types, mimetype) != nebulark_mime_types.end();
}

} // namespace

ThumbnailTags read_thumbnail_tags(std::FILE* file, std::size_t size) {
  ThumbnailTags tags;
  HeadReader head(file, size);
  std::string_view signature;
  if (!head.read(png_signature.size(), signature) || signature != png_signature) return tags;
  while (read_chunk(head, tags)) {
  }
  return tags;
}

bool is_nebulark_thumbnail(const std::string& path, std::size_t size) {
  const FileHandle file(std::fopen(path.c_str(), "rb"));
  if (!file) return false;
  (void)std::setvbuf(file.get(), nullptr, _IONBF, 0); // the head is read into a buffer of its own
  const ThumbnailTags tags = read_thumbnail_tags(file.get(), size);
  return has_nebulark_extension(tags.uri) || is_nebulark_mime_type(tags.mimetype);
}

} // namespace nebulark
