// ASCII letters without a locale.

#pragma once

namespace nebulark {

// Lowers A to Z and returns every other byte unchanged.
[[nodiscard]] constexpr char ascii_lower(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

} // namespace nebulark
