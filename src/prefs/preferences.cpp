#include "prefs/preferences.h"

#include <algorithm>
#include <array>

#include "prefs/text.h"

namespace nebulark {

namespace {

// The words of each enumeration. A word's position is its value.
template <std::size_t N>
using Words = std::array<std::string_view, N>;

constexpr Words<3> brightness_words{"darker", "standard", "brighter"};
constexpr Words<3> cfa_words{"auto", "color", "mono"};
constexpr Words<4> label_corner_words{"topleft", "topright", "bottomleft", "bottomright"};

template <typename Value, std::size_t N>
std::string_view word_of(const Words<N>& words, Value value, Value fallback) {
  const auto position = static_cast<std::size_t>(value); // a negative value lies far behind the last word
  return words[position < N ? position : static_cast<std::size_t>(fallback)];
}

template <typename Value, std::size_t N>
std::optional<Value> value_of(const Words<N>& words, std::string_view word) {
  const auto found = std::ranges::find(words, word);
  if (found == words.end()) return std::nullopt;
  return static_cast<Value>(found - words.begin());
}

// "auto, color or mono"
template <std::size_t N>
std::string any_of(const Words<N>& words) {
  std::string text(words.front());
  for (std::size_t position = 1; position < N; ++position) {
    text += position + 1 == N ? " or " : ", ";
    text += words[position];
  }
  return text;
}

// One overload of `store` and of `accepted` for each type of preference. `store` touches the field only when the whole
// text is one of its words.
template <typename Value>
bool store_if_any(std::optional<Value> parsed, Value& field) {
  if (parsed) field = *parsed;
  return parsed.has_value();
}

bool store(std::string_view text, bool& field) { return parse_bool(text, field); }
bool store(std::string_view text, Brightness& field) { return store_if_any(parse_brightness(text), field); }
bool store(std::string_view text, CfaMode& field) { return store_if_any(parse_cfa_mode(text), field); }
bool store(std::string_view text, LabelCorner& field) { return store_if_any(parse_label_corner(text), field); }

// A switch knows more spellings than these two; they are for scripts, and need no advertising.
std::string accepted(bool) { return "on or off"; }
std::string accepted(Brightness) { return any_of(brightness_words); }
std::string accepted(CfaMode) { return any_of(cfa_words); }
std::string accepted(LabelCorner) { return any_of(label_corner_words); }

} // namespace

std::string_view brightness_word(Brightness value) {
  return word_of(brightness_words, value, Preferences{}.brightness);
}

std::string_view cfa_word(CfaMode value) { return word_of(cfa_words, value, Preferences{}.cfa); }

std::string_view label_corner_word(LabelCorner value) {
  return word_of(label_corner_words, value, Preferences{}.labelcorner);
}

std::optional<Brightness> parse_brightness(std::string_view word) {
  return value_of<Brightness>(brightness_words, word);
}

std::optional<CfaMode> parse_cfa_mode(std::string_view word) { return value_of<CfaMode>(cfa_words, word); }

std::optional<LabelCorner> parse_label_corner(std::string_view word) {
  return value_of<LabelCorner>(label_corner_words, word);
}

float target_background(Brightness value) {
  switch (value) {
  case Brightness::Darker: return 0.15F;
  case Brightness::Brighter: return 0.35F;
  case Brightness::Standard: break;
  }
  return 0.25F;
}

bool apply_assignment(std::string_view assignment, Preferences& preferences, std::string& error) {
  const std::size_t equals = assignment.find('=');
  if (equals == std::string_view::npos) {
    error = "expected name=value";
    return false;
  }
  const std::string name = normalised(assignment.substr(0, equals));
  const std::string value = normalised(assignment.substr(equals + 1));

  bool known = false;
  bool applied = false;
  for_each_preference([&](const auto& field) {
    if (field.name != name) return;
    known = true;
    applied = store(value, preferences.*field.member);
    if (!applied) error = name + ": expected " + accepted(preferences.*field.member);
  });
  if (!known) error = "unknown preference: " + name;
  return applied;
}

} // namespace nebulark
