#include "prefs/listing.h"

#include <array>
#include <string>

#include <gtest/gtest.h>

#include "prefs/records.h"

namespace nebulark {

namespace {

TEST(PrintPreferences, ListsTheDefaults) {
  EXPECT_EQ(print_preferences({}), "autostretch = on\n"
                                   "brightness  = standard  (target background 0.25)\n"
                                   "cfa         = auto\n"
                                   "labelformat = off\n"
                                   "labelcorner = bottomright\n");
}

TEST(PrintPreferences, ListsEveryRecord) {
  constexpr std::array levels{"0.15", "0.25", "0.35"};
  for (const Record& record : all_records()) {
    const Preferences& preferences = record.preferences;
    std::string expected;
    expected.append("autostretch = ").append(preferences.autostretch ? "on" : "off");
    expected.append("\nbrightness  = ").append(record.brightness);
    expected.append("  (target background ").append(levels[static_cast<std::size_t>(preferences.brightness)]);
    expected.append(")\ncfa         = ").append(record.cfa);
    expected.append("\nlabelformat = ").append(preferences.labelformat ? "on" : "off");
    expected.append("\nlabelcorner = ").append(record.labelcorner).append("\n");
    EXPECT_EQ(print_preferences(preferences), expected);
  }
}

TEST(PrintPreferences, ListsStrayValuesAsTheDefaults) {
  for (const std::int32_t value : stray_values) {
    const Preferences preferences{.brightness = static_cast<Brightness>(value),
                                  .cfa = static_cast<CfaMode>(value),
                                  .labelcorner = static_cast<LabelCorner>(value)};
    EXPECT_EQ(print_preferences(preferences), print_preferences({})) << value;
  }
}

} // namespace

} // namespace nebulark
