#include "prefs/listing.h"

#include <array>
#include <string>

#include "case.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

class Listing : public testing::TestWithParam<Case<Preferences, const char*>> {};

TEST_P(Listing, IsFiveAlignedLines) { EXPECT_EQ(print_preferences(GetParam().given), GetParam().expected); }

constexpr Case<Preferences, const char*> listings[] = {
    {"OfTheDefaults",
     {},
     "autostretch = on\n"
     "brightness  = standard  (target background 0.25)\n"
     "cfa         = auto\n"
     "labelformat = off\n"
     "labelcorner = bottomright\n"},
    {"WithEveryValueOtherThanItsDefault",
     {false, Brightness::Brighter, CfaMode::Mono, true, LabelCorner::TopLeft},
     "autostretch = off\n"
     "brightness  = brighter  (target background 0.35)\n"
     "cfa         = mono\n"
     "labelformat = on\n"
     "labelcorner = topleft\n"},
    {"OfADarkerPicture",
     {true, Brightness::Darker, CfaMode::Color, true, LabelCorner::BottomLeft},
     "autostretch = on\n"
     "brightness  = darker  (target background 0.15)\n"
     "cfa         = color\n"
     "labelformat = on\n"
     "labelcorner = bottomleft\n"},
};
INSTANTIATE_TEST_SUITE_P(, Listing, testing::ValuesIn(listings), case_name);

TEST(ListingOfEveryRecord, SpellsEachValueOnALineOfItsOwn) {
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

TEST(ListingOfStrayValues, SpellsThemAsTheDefaults) {
  for (const std::int32_t value : stray_values) {
    const Preferences preferences{false, static_cast<Brightness>(value), static_cast<CfaMode>(value), true,
                                  static_cast<LabelCorner>(value)};
    EXPECT_EQ(print_preferences(preferences), "autostretch = off\n"
                                              "brightness  = standard  (target background 0.25)\n"
                                              "cfa         = auto\n"
                                              "labelformat = on\n"
                                              "labelcorner = bottomright\n");
  }
}

} // namespace

} // namespace nebulark
