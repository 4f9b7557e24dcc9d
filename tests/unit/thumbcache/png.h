// PNG files, valid or broken, built chunk by chunk.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace nebulark {

inline constexpr std::string_view signature{"\x89PNG\r\n\x1A\n", 8};

inline std::string big_endian(std::uint32_t number) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0})
    bytes += static_cast<char>(number >> shift & 0xFF);
  return bytes;
}

// PNG's CRC.
inline std::string crc_of(std::string_view bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit)
      crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return big_endian(~crc);
}

// A chunk's first 8 bytes. The length need not be true.
inline std::string chunk_header(std::uint32_t length, std::string_view type) { return big_endian(length).append(type); }

inline std::string chunk(std::string_view type, std::string_view data, std::string_view crc) {
  return chunk_header(static_cast<std::uint32_t>(data.size()), type).append(data).append(crc);
}

inline std::string chunk(std::string_view type, std::string_view data) {
  return chunk(type, data, crc_of(std::string(type).append(data)));
}

inline std::string text_data(std::string_view keyword, std::string_view text) {
  return std::string(keyword).append(1, '\0').append(text);
}

inline std::string text_chunk(std::string_view keyword, std::string_view text) {
  return chunk("tEXt", text_data(keyword, text));
}

inline std::string uri_chunk(std::string_view uri) { return text_chunk("Thumb::URI", uri); }

inline std::string mimetype_chunk(std::string_view mimetype) { return text_chunk("Thumb::Mimetype", mimetype); }

inline std::string png(std::initializer_list<std::string_view> chunks) {
  std::string file(signature);
  for (const std::string_view bytes : chunks)
    file += bytes;
  return file;
}

// The first `offset` bytes of a file, 20 at least: the signature and a chunk to skip.
inline std::string head(std::size_t offset) {
  const std::size_t around = signature.size() + 12;
  return png({chunk("skIp", std::string(offset - around, 's'), "CRC!")});
}

} // namespace nebulark
