#include "prefs/text.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"

namespace nebulark {

namespace {

constexpr std::string_view blanks = " \t\r";

constexpr std::array<std::string_view, 4> words_for_true{"1", "true", "yes", "on"};
constexpr std::array<std::string_view, 4> words_for_false{"0", "false", "no", "off"};

bool is_one_of(const std::array<std::string_view, 4>& words, std::string_view text) {
  return std::ranges::find(words, text) != words.end();
}

} // namespace

std::string trim_blanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  const std::size_t last = text.find_last_not_of(blanks);
  return std::string(text.substr(first, last - first + 1));
}

void to_lower_ascii(std::string& text) { std::ranges::transform(text, text.begin(), ascii_lower); }

std::string normalised(std::string_view text) {
  std::string word = trim_blanks(text);
  to_lower_ascii(word);
  return word;
}

bool parse_bool(std::string_view text, bool& value) {
  const std::string word = normalised(text);
  const bool is_true = is_one_of(words_for_true, word);
  if (!is_true && !is_one_of(words_for_false, word)) return false;
  value = is_true;
  return true;
}

} // namespace nebulark
