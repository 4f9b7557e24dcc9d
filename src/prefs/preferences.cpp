#include "prefs/preferences.h"

#include <algorithm>
#include <tuple>
#include <type_traits>

#include "prefs/text.h"

namespace nebulark {

namespace {

using WordList = std::span<const std::string_view>;

// Names every member, twice. Compiles only if there are as many here, in `Preferences` and in `preference_fields`.
static_assert([] {
  const auto [autostretch, brightness, cfa, labelformat, labelcorner] = Preferences{};
  const std::tuple members(autostretch, brightness, cfa, labelformat, labelcorner);
  return std::tuple_size_v<decltype(members)> == preference_fields.size();
}());

std::int32_t value_of(const PreferenceField& field, const Preferences& preferences) {
  return std::visit([&](auto member) { return static_cast<std::int32_t>(preferences.*member); }, field.member);
}

void set_value(const PreferenceField& field, std::int32_t value, Preferences& preferences) {
  std::visit(
      [&](auto member) {
        using Value = std::remove_reference_t<decltype(preferences.*member)>;
        preferences.*member = static_cast<Value>(value);
      },
      field.member);
}

std::string_view word_at(WordList words, std::int32_t value, std::int32_t fallback) {
  const auto position = static_cast<std::size_t>(value); // a negative value becomes a huge position
  return words[position < words.size() ? position : static_cast<std::size_t>(fallback)];
}

std::optional<std::int32_t> position_of(std::string_view word, WordList words) {
  const auto found = std::ranges::find(words, word);
  if (found == words.end()) return std::nullopt;
  return static_cast<std::int32_t>(found - words.begin());
}

std::optional<std::int32_t> parse_value(const PreferenceField& field, std::string_view word) {
  if (!is_switch(field)) return position_of(word, field.words);
  bool value = false;
  if (!parse_bool(word, value)) return std::nullopt;
  return value;
}

// "auto, color or mono". A switch also takes other words, for scripts; the message need not name them.
std::string expected_words(const PreferenceField& field) {
  if (is_switch(field)) return "on or off";
  std::string text(field.words.front());
  for (const std::string_view word : field.words.subspan(1)) {
    text += word == field.words.back() ? " or " : ", ";
    text += word;
  }
  return text;
}

template <typename Value>
std::string_view word_of_value(WordList words, Value value, Value fallback) {
  return word_at(words, static_cast<std::int32_t>(value), static_cast<std::int32_t>(fallback));
}

template <typename Value>
std::optional<Value> value_of_word(std::string_view word, WordList words) {
  const auto position = position_of(word, words);
  return position ? std::optional(static_cast<Value>(*position)) : std::nullopt;
}

} // namespace

bool is_switch(const PreferenceField& field) { return std::holds_alternative<bool Preferences::*>(field.member); }

std::string_view word_of(const PreferenceField& field, const Preferences& preferences) {
  return word_at(field.words, value_of(field, preferences), value_of(field, Preferences{}));
}

std::string_view brightness_word(Brightness value) {
  return word_of_value(brightness_words, value, Preferences{}.brightness);
}

std::string_view cfa_word(CfaMode value) { return word_of_value(cfa_words, value, Preferences{}.cfa); }

std::string_view label_corner_word(LabelCorner value) {
  return word_of_value(label_corner_words, value, Preferences{}.labelcorner);
}

std::optional<Brightness> parse_brightness(std::string_view word) {
  return value_of_word<Brightness>(word, brightness_words);
}

std::optional<CfaMode> parse_cfa_mode(std::string_view word) { return value_of_word<CfaMode>(word, cfa_words); }

std::optional<LabelCorner> parse_label_corner(std::string_view word) {
  return value_of_word<LabelCorner>(word, label_corner_words);
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
  const auto* const field = std::ranges::find(preference_fields, name, &PreferenceField::name);
  if (field == preference_fields.end()) {
    error = "unknown preference: " + name;
    return false;
  }

  const auto value = parse_value(*field, normalised(assignment.substr(equals + 1)));
  if (!value) {
    error = name + ": expected " + expected_words(*field);
    return false;
  }
  set_value(*field, *value, preferences);
  return true;
}

} // namespace nebulark
