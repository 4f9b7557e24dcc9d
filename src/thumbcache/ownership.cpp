#include "thumbcache/ownership.h"

#include <algorithm>
#include <cstdint>

#include "base/ascii.h"
#include "base/handles.h"

namespace nebulark {

namespace {

constexpr std::string_view png_signature = "\x89PNG\r\n\x1a\n";
constexpr std::uint32_t longest_chunk = 1U << 20; // bytes; no thumbnailer writes a tag near this
constexpr long crc_size = 4;

struct ChunkHeader {
  std::uint32_t length = 0; // of the data, in bytes
  std::array<char, 4> type{};

  [[nodiscard]] bool is(std::string_view name) const { return std::string_view(type.data(), type.size()) == name; }
};

bool read_exactly(std::FILE* file, char* data, std::size_t size) { return std::fread(data, 1, size, file) == size; }

bool skip(std::FILE* file, long size) { return std::fseek(file, size, SEEK_CUR) == 0; }

bool read_signature(std::FILE* file) {
  std::array<char, png_signature.size()> signature;
  return read_exactly(file, signature.data(), signature.size()) &&
         std::string_view(signature.data(), signature.size()) == png_signature;
}

bool read_header(std::FILE* file, ChunkHeader& header) {
  std::array<char, 8> bytes;
  if (!read_exactly(file, bytes.data(), bytes.size())) return false;
  header.length = 0;
  for (std::size_t i = 0; i < 4; ++i)
    header.length = header.length << 8 | static_cast<unsigned char>(bytes[i]);
  std::copy_n(bytes.data() + 4, 4, header.type.data());
  return true;
}

// Keeps the value of a text chunk whose keyword is one of the two that count. Without a NUL there is no keyword.
void keep_tag(std::string_view data, ThumbnailTags& tags) {
  const std::size_t nul = data.find('\0');
  if (nul == std::string_view::npos) return;
  const std::string_view keyword = data.substr(0, nul);
  if (keyword == "Thumb::URI") tags.uri = data.substr(nul + 1);
  if (keyword == "Thumb::Mimetype") tags.mimetype = data.substr(nul + 1);
}

bool read_tag(std::FILE* file, std::uint32_t length, ThumbnailTags& tags) {
  std::string data(length, '\0');
  if (!read_exactly(file, data.data(), data.size())) return false;
  keep_tag(data, tags);
  return true;
}

// Reads one chunk. Returns false where reading ends: at the image data, and wherever the file does not go on as it
// should.
bool read_chunk(std::FILE* file, ThumbnailTags& tags) {
  ChunkHeader header;
  if (!read_header(file, header)) return false;
  if (header.length > longest_chunk) return false;
  if (header.is("IDAT")) return false;
  const bool passed =
      header.is("tEXt") ? read_tag(file, header.length, tags) : skip(file, static_cast<long>(header.length));
  return passed && skip(file, crc_size);
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

ThumbnailTags read_thumbnail_tags(std::FILE* file) {
  ThumbnailTags tags;
  if (!read_signature(file)) return tags;
  while (read_chunk(file, tags)) {
  }
  return tags;
}

bool is_nebulark_thumbnail(const std::string& path) {
  const FileHandle file(std::fopen(path.c_str(), "rb"));
  if (!file) return false;
  const ThumbnailTags tags = read_thumbnail_tags(file.get());
  return has_nebulark_extension(tags.uri) || is_nebulark_mime_type(tags.mimetype);
}

} // namespace nebulark
