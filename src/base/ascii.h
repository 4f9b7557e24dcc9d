// ASCII letters without a locale.

#pragma once

namespace nebulark {

// Lowers A to Z; returns any other byte unchanged, 0x80 and above included. Names, words and file name endings are
// bytes here, in any locale.
[[nodiscard]] constexpr char ascii_lower(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

} // namespace nebulark
