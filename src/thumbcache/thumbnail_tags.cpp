#include "thumbcache/thumbnail_tags.h"

#include <array>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include <unistd.h>

namespace nebulark {

namespace {

constexpr std::string_view png_signature = "\x89PNG\r\n\x1a\n";
constexpr std::size_t header_size = 8; // length and type
constexpr std::size_t crc_size = 4;
constexpr std::uint32_t longest_chunk = 1U << 20; // bytes; no thumbnailer writes a tag near this

// With the NUL that ends a keyword: a longer keyword must not match.
constexpr std::string_view uri_keyword("Thumb::URI\0", 11);
constexpr std::string_view mimetype_keyword("Thumb::Mimetype\0", 16);

// Returns the number of bytes read, 0 on failure.
std::size_t read_at(int file, std::uint64_t offset, char* bytes, std::size_t size) {
  const ssize_t got = ::pread(file, bytes, size, static_cast<off_t>(offset));
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// Reads a file forward, by offset. A thumbnail's tags are in its first few hundred bytes: one read gets all of them
// into the window.
class Reader {
public:
  explicit Reader(int file) : file_(file) {}

  // The `size` bytes at `offset`, valid until the next call; nothing if they cannot all be read.
  [[nodiscard]] std::optional<std::string_view> read(std::uint64_t offset, std::size_t size) {
    if (!holds(offset, size) && !at_end_) {
      if (size > window_.size()) return read_long(offset, size);
      move_to(offset);
    }
    if (!holds(offset, size)) return std::nullopt;
    return std::string_view(window_.data() + (offset - start_), size);
  }

private:
  [[nodiscard]] bool holds(std::uint64_t offset, std::size_t size) const { return offset + size <= start_ + size_; }

  void move_to(std::uint64_t offset) {
    start_ = offset;
    size_ = read_at(file_, offset, window_.data(), window_.size());
    at_end_ = size_ < window_.size(); // a regular file gives less than asked only at its end
  }

  [[nodiscard]] std::optional<std::string_view> read_long(std::uint64_t offset, std::size_t size) {
    long_.reset();                              // never hold two
    long_.reset(new (std::nothrow) char[size]); // throwing allocates too, and may fail where memory is scarce
    if (!long_ || read_at(file_, offset, long_.get(), size) < size) return std::nullopt;
    return std::string_view(long_.get(), size);
  }

  int file_;
  std::uint64_t start_ = 0; // the window's offset in the file
  std::size_t size_ = 0;    // how much of the window is filled
  bool at_end_ = false;     // whether the file ends in the window
  std::array<char, 4096> window_;
  std::unique_ptr<char[]> long_; // for what the window cannot hold
};

// Written out: compilers turn this form into a single load.
std::uint32_t big_endian(std::string_view bytes) {
  const auto byte = [bytes](std::size_t at) { return std::uint32_t{static_cast<unsigned char>(bytes[at])}; };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

void keep_if_tag(std::string_view data, ThumbnailTags& tags) {
  if (data.starts_with(uri_keyword)) tags.uri = data.substr(uri_keyword.size());
  if (data.starts_with(mimetype_keyword)) tags.mimetype = data.substr(mimetype_keyword.size());
}

void read_chunks(Reader& reader, ThumbnailTags& tags) {
  std::uint64_t at = png_signature.size();
  while (const auto header = reader.read(at, header_size)) {
    const std::uint32_t length = big_endian(header->substr(0, 4));
    const std::string_view type = header->substr(4);
    if (length > longest_chunk || type == "IDAT") return;
    if (type == "tEXt") {
      const auto data = reader.read(at + header_size, length);
      if (!data) return;
      keep_if_tag(*data, tags);
    }
    at += header_size + length + crc_size;
  }
}

} // namespace

ThumbnailTags read_thumbnail_tags(int file) {
  ThumbnailTags tags;
  Reader reader(file);
  if (reader.read(0, png_signature.size()) != png_signature) return tags;
  try {
    read_chunks(reader, tags);
  } catch (const std::bad_alloc&) { // one file's text must not stop the clearing of the others
  }
  return tags;
}

} // namespace nebulark
