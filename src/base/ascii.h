// ASCII letters without a locale.

#pragma once

namespace nebulark {

// The byte, with A to Z lowered. Every other byte, those of 0x80 and above included, is returned as it is, in any
// locale: names, words and file name endings are bytes here, not language.
[[nodiscard]] constexpr char ascii_lower(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

} // namespace nebulark
