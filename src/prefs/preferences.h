// The rendering preferences of the Nebulark thumbnailer: their names, words and defaults, and how one NAME=VALUE
// text changes them.
//
// The command line, the preferences file and the listing take names and words from `preference_fields`. The usage text
// and the manuals repeat them; tests compare those with this table.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace nebulark {

enum class Brightness : std::int32_t { Darker = 0, Standard = 1, Brighter = 2 };
enum class CfaMode : std::int32_t { Auto = 0, Color = 1, Mono = 2 };
enum class LabelCorner : std::int32_t { TopLeft = 0, TopRight = 1, BottomLeft = 2, BottomRight = 3 };

struct Preferences {
  bool autostretch = true;                            // stretch the picture automatically
  Brightness brightness = Brightness::Standard;       // the background level that the stretch aims at
  CfaMode cfa = CfaMode::Auto;                        // how a colour filter array is drawn
  bool labelformat = false;                           // write the file's format on its thumbnail
  LabelCorner labelcorner = LabelCorner::BottomRight; // where that label goes

  friend bool operator==(const Preferences&, const Preferences&) = default;
};

// The words of each type, in the order of its values.
inline constexpr auto switch_words = std::to_array<std::string_view>({"off", "on"});
inline constexpr auto brightness_words = std::to_array<std::string_view>({"darker", "standard", "brighter"});
inline constexpr auto cfa_words = std::to_array<std::string_view>({"auto", "color", "mono"});
inline constexpr auto label_corner_words =
    std::to_array<std::string_view>({"topleft", "topright", "bottomleft", "bottomright"});

using PreferenceMember =
    std::variant<bool Preferences::*, Brightness Preferences::*, CfaMode Preferences::*, LabelCorner Preferences::*>;

struct PreferenceField {
  std::string_view name;
  PreferenceMember member;
  std::span<const std::string_view> words;
};

// Every preference, in the order of the file and of the listing.
inline constexpr std::array<PreferenceField, 5> preference_fields{{
    {"autostretch", &Preferences::autostretch, switch_words},
    {"brightness", &Preferences::brightness, brightness_words},
    {"cfa", &Preferences::cfa, cfa_words},
    {"labelformat", &Preferences::labelformat, switch_words},
    {"labelcorner", &Preferences::labelcorner, label_corner_words},
}};

// Whether a preference is on or off, rather than one of several words.
[[nodiscard]] bool is_switch(const PreferenceField& field);

// The word for the field's value. A value outside its enumeration has the default's word.
[[nodiscard]] std::string_view word_of(const PreferenceField& field, const Preferences& preferences);

// Word and value of one enumeration, without a record; the commands go through the table.
[[nodiscard]] std::string_view brightness_word(Brightness value);
[[nodiscard]] std::string_view cfa_word(CfaMode value);
[[nodiscard]] std::string_view label_corner_word(LabelCorner value);

// The value of a trimmed word in lower case; nothing for any other text.
[[nodiscard]] std::optional<Brightness> parse_brightness(std::string_view word);
[[nodiscard]] std::optional<CfaMode> parse_cfa_mode(std::string_view word);
[[nodiscard]] std::optional<LabelCorner> parse_label_corner(std::string_view word);

// The level, from 0 (black) to 1 (white), to which the sky's background is stretched. A value outside the enumeration
// gives the level of Standard.
[[nodiscard]] float target_background(Brightness value);

// Applies one NAME=VALUE text: an argument of --set, or a line of the file. The first "=" splits it; blanks around name
// and value, and the case of both, do not matter.
//
// Returns true when applied; `error` is then unchanged. Returns false when rejected; `preferences` is then unchanged,
// and `error` is the reason, without prefix or line break. The reason repeats an unknown name, which may hold any byte.
[[nodiscard]] bool apply_assignment(std::string_view assignment, Preferences& preferences, std::string& error);

} // namespace nebulark
