// PNG files, built chunk by chunk.

#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace nebulark {

inline constexpr std::string_view signature{"\x89PNG\r\n\x1A\n", 8};

// Its CRC is wrong: the tool checks none. The samples in tests/fuzz/corpus have right ones.
inline std::string chunk(std::string_view type, std::string_view data) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0})
    bytes += static_cast<char>(data.size() >> shift & 0xFF);
  return bytes.append(type).append(data).append("CRC!");
}

inline std::string text_chunk(std::string_view keyword, std::string_view text) {
  return chunk("tEXt", std::string(keyword).append(1, '\0').append(text));
}

inline std::string uri_chunk(std::string_view uri) { return text_chunk("Thumb::URI", uri); }

inline std::string mimetype_chunk(std::string_view mimetype) { return text_chunk("Thumb::Mimetype", mimetype); }

inline std::string png(std::initializer_list<std::string_view> chunks) {
  std::string file(signature);
  for (const std::string_view bytes : chunks)
    file += bytes;
  return file;
}

} // namespace nebulark
