// How preference texts are normalised, on the command line and in the file alike.

#pragma once

#include <string>
#include <string_view>

namespace nebulark {

// The text without the blanks at its ends: space, tab and carriage return. Every other byte is text, even a line feed
// or a NUL.
[[nodiscard]] std::string trim_blanks(std::string_view text);

// Lowers A to Z in place; every other byte stays.
void to_lower_ascii(std::string& text);

// The text trimmed and lowered, as names and words are compared.
[[nodiscard]] std::string normalised(std::string_view text);

// Reads a switch word: 1, true, yes or on; 0, false, no or off. Blanks around it and its case do not matter.
// Returns false for any other text, and leaves `value` unchanged.
[[nodiscard]] bool parse_bool(std::string_view text, bool& value);

} // namespace nebulark
