// A second reader of tags and judge of ownership, slow and plain. The tool must give the same answers.

#pragma once

#include <string>
#include <string_view>

namespace nebulark {

struct PlainTags {
  std::string uri;
  std::string mimetype;
  std::size_t end = 0; // how many bytes of the file decide this
};

inline PlainTags plain_tags(const std::string& file) {
  using namespace std::string_literals;
  PlainTags tags;
  tags.end = 8;
  if (file.substr(0, 8) != "\x89PNG\r\n\x1a\n") return tags;
  for (std::size_t at = 8;;) {
    tags.end = at + 8;
    if (file.size() < tags.end) return tags;
    std::size_t length = 0;
    for (const char byte : file.substr(at, 4))
      length = length * 256 + static_cast<unsigned char>(byte);
    const std::string type = file.substr(at + 4, 4);
    if (length > 1048576 || type == "IDAT") return tags;
    if (type == "tEXt") {
      tags.end = at + 8 + length;
      if (file.size() < tags.end) return tags;
      const std::string data = file.substr(at + 8, length);
      if (data.starts_with("Thumb::URI\0"s)) tags.uri = data.substr(11);
      if (data.starts_with("Thumb::Mimetype\0"s)) tags.mimetype = data.substr(16);
    }
    at += 8 + length + 4;
  }
}

inline constexpr std::string_view plain_extensions[] = {".xisf", ".fits", ".fit", ".fts", ".kxproj"};
inline constexpr std::string_view plain_mime_types[] = {"image/x-xisf", "application/fits", "image/fits",
                                                        "image/x-fits", "application/x-kxproj"};

inline bool plain_is_nebulark(const PlainTags& tags) {
  std::string path = tags.uri.substr(0, tags.uri.find_first_of("?#"));
  for (char& byte : path)
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte + 32);
  for (const std::string_view extension : plain_extensions)
    if (path.ends_with(extension)) return true;
  for (const std::string_view type : plain_mime_types)
    if (tags.mimetype == type) return true;
  return false;
}

} // namespace nebulark
