// Every record of preferences and the words of its values, written out to compare the tool's own table with.

#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string_view>
#include <vector>

#include "prefs/preferences.h"

namespace nebulark {

inline void PrintTo(const Preferences& preferences, std::ostream* out) {
  *out << "{autostretch " << preferences.autostretch << ", brightness " << static_cast<int>(preferences.brightness)
       << ", cfa " << static_cast<int>(preferences.cfa) << ", labelformat " << preferences.labelformat
       << ", labelcorner " << static_cast<int>(preferences.labelcorner) << "}";
}

template <typename Value>
struct Spelling {
  Value value;
  std::string_view word;
};

inline constexpr std::array<Spelling<bool>, 8> switch_spellings{{
    {true, "1"},
    {true, "true"},
    {true, "yes"},
    {true, "on"},
    {false, "0"},
    {false, "false"},
    {false, "no"},
    {false, "off"},
}};
inline constexpr std::array<Spelling<Brightness>, 3> brightness_spellings{{
    {Brightness::Darker, "darker"},
    {Brightness::Standard, "standard"},
    {Brightness::Brighter, "brighter"},
}};
inline constexpr std::array<Spelling<CfaMode>, 3> cfa_spellings{{
    {CfaMode::Auto, "auto"},
    {CfaMode::Color, "color"},
    {CfaMode::Mono, "mono"},
}};
inline constexpr std::array<Spelling<LabelCorner>, 4> label_corner_spellings{{
    {LabelCorner::TopLeft, "topleft"},
    {LabelCorner::TopRight, "topright"},
    {LabelCorner::BottomLeft, "bottomleft"},
    {LabelCorner::BottomRight, "bottomright"},
}};

static_assert(preference_fields.size() == 5, "a new preference belongs in PrintTo, Record and all_records()");

// A record and the words of its values, without the switches: a switch has several words.
struct Record {
  Preferences preferences;
  std::string_view brightness;
  std::string_view cfa;
  std::string_view labelcorner;
};

inline std::vector<Record> all_records() {
  std::vector<Record> records;
  for (const bool autostretch : {false, true})
    for (const auto& brightness : brightness_spellings)
      for (const auto& cfa : cfa_spellings)
        for (const bool labelformat : {false, true})
          for (const auto& labelcorner : label_corner_spellings)
            records.push_back({{autostretch, brightness.value, cfa.value, labelformat, labelcorner.value},
                               brightness.word,
                               cfa.word,
                               labelcorner.word});
  return records;
}

// Values with the default's word: outside their enumeration, or 3 as the default corner.
inline constexpr std::array<std::int32_t, 9> stray_values{
    std::numeric_limits<std::int32_t>::min(), -256, -1, 3, 4, 7, 256, 65536, std::numeric_limits<std::int32_t>::max()};

} // namespace nebulark
