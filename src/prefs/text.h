// How every preference text is normalised, on the command line and in the file alike.

#pragma once

#include <string>
#include <string_view>

namespace nebulark {

// The text without its leading and trailing blanks; blanks inside it stay. Blanks are space, horizontal tab and
// carriage return, and no other byte: a line feed, a form feed or a NUL is text. Gives "" for a text of nothing but
// blanks.
[[nodiscard]] std::string trim_blanks(std::string_view text);

// Lowers A to Z in place; every other byte stays.
void to_lower_ascii(std::string& text);

// The text trimmed and lowered: how names and words are compared.
[[nodiscard]] std::string normalised(std::string_view text);

// Reads a switch word, blanks around it and case aside: 1, true, yes, on; 0, false, no, off.
// Returns false for any other text, and leaves `value` as it was.
[[nodiscard]] bool parse_bool(std::string_view text, bool& value);

} // namespace nebulark
