#include "prefs/listing.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace nebulark {

namespace {

// Six significant digits without trailing zeros: 0.15, although the float is 0.150000006.
std::string level_text(float level) {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%g", static_cast<double>(level));
  return text.data();
}

std::size_t longest_name() {
  return std::ranges::max(preference_fields, {}, [](const auto& field) { return field.name.size(); }).name.size();
}

} // namespace

std::string print_preferences(const Preferences& preferences) {
  const std::size_t width = longest_name();
  std::string text;
  for (const PreferenceField& field : preference_fields) {
    text += field.name;
    text.append(width - field.name.size(), ' ');
    text.append(" = ").append(word_of(field, preferences));
    if (field.name == "brightness")
      text += "  (target background " + level_text(target_background(preferences.brightness)) + ")";
    text += '\n';
  }
  return text;
}

} // namespace nebulark
