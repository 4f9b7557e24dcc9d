// The five rendering preferences of the Nebulark thumbnailer: their names, their words, their defaults, and how one
// NAME=VALUE text changes them.
//
// The names stand once, in `preference_fields`; the words of each enumeration stand once, in preferences.cpp. The
// command line, the file and the listing all read them from there.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace nebulark {

enum class Brightness : std::int32_t { Darker = 0, Standard = 1, Brighter = 2 };
enum class CfaMode : std::int32_t { Auto = 0, Color = 1, Mono = 2 };
enum class LabelCorner : std::int32_t { TopLeft = 0, TopRight = 1, BottomLeft = 2, BottomRight = 3 };

struct Preferences {
  bool autostretch = true;                            // stretch the picture automatically
  Brightness brightness = Brightness::Standard;       // the background level that the stretch aims at
  CfaMode cfa = CfaMode::Auto;                        // what becomes of a colour filter array
  bool labelformat = false;                           // write the file's format on its thumbnail
  LabelCorner labelcorner = LabelCorner::BottomRight; // where that label sits

  friend bool operator==(const Preferences&, const Preferences&) = default;
};

template <typename Value>
struct PreferenceField {
  std::string_view name;
  Value Preferences::*member;
};

// Every preference, in the order in which the file and the listing show them.
inline constexpr std::tuple preference_fields{
    PreferenceField<bool>{"autostretch", &Preferences::autostretch},
    PreferenceField<Brightness>{"brightness", &Preferences::brightness},
    PreferenceField<CfaMode>{"cfa", &Preferences::cfa},
    PreferenceField<bool>{"labelformat", &Preferences::labelformat},
    PreferenceField<LabelCorner>{"labelcorner", &Preferences::labelcorner},
};

// Calls `visit` with each PreferenceField in that order.
template <typename Visit>
void for_each_preference(Visit visit) {
  std::apply([&](const auto&... field) { (visit(field), ...); }, preference_fields);
}

// The one word for a value. A value outside its enumeration is spelled as the default.
[[nodiscard]] std::string_view brightness_word(Brightness value);
[[nodiscard]] std::string_view cfa_word(CfaMode value);
[[nodiscard]] std::string_view label_corner_word(LabelCorner value);

// The value of a word that is trimmed and in lower case already; nothing for any other text.
[[nodiscard]] std::optional<Brightness> parse_brightness(std::string_view word);
[[nodiscard]] std::optional<CfaMode> parse_cfa_mode(std::string_view word);
[[nodiscard]] std::optional<LabelCorner> parse_label_corner(std::string_view word);

// The level, from 0 (black) to 1 (white), to which the sky's background is stretched. A value outside the enumeration
// gives the level of Standard.
[[nodiscard]] float target_background(Brightness value);

// Applies one NAME=VALUE text: a word of the command line, or a line of the file. It is split at its first "="; blanks
// around name and value, and the case of both, do not matter.
//
// Returns true when applied; `error` is then as it was. Returns false when rejected; `preferences` is then as it was,
// and `error` holds the reason, without prefix or line break. The name in it is the user's own bytes, whatever they
// are.
[[nodiscard]] bool apply_assignment(std::string_view assignment, Preferences& preferences, std::string& error);

} // namespace nebulark
