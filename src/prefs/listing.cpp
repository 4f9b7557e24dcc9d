#include "prefs/listing.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace nebulark {

namespace {

// Six significant digits without trailing zeros, which hide that the level is a float: 0.15, not 0.150000006.
std::string level_text(float level) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%g", static_cast<double>(level));
  return text.data();
}

std::string listed(bool value) { return value ? "on" : "off"; }
std::string listed(CfaMode value) { return std::string(cfa_word(value)); }
std::string listed(LabelCorner value) { return std::string(label_corner_word(value)); }
std::string listed(Brightness value) {
  return std::string(brightness_word(value)) + "  (target background " + level_text(target_background(value)) + ")";
}

std::size_t longest_name() {
  std::size_t longest = 0;
  for_each_preference([&](const auto& field) { longest = std::max(longest, field.name.size()); });
  return longest;
}

} // namespace

std::string print_preferences(const Preferences& preferences) {
  const std::size_t width = longest_name();
  std::string text;
  for_each_preference([&](const auto& field) {
    text += field.name;
    text.append(width - field.name.size(), ' ');
    text += " = " + listed(preferences.*field.member) + "\n";
  });
  return text;
}

} // namespace nebulark
