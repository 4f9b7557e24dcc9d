#include "prefs/listing.h"

#include <gtest/gtest.h>

namespace nebulark {

namespace {

TEST(PrintPreferences, ListsNamesAndWordsAndTheLevelOfTheBrightness) {
  EXPECT_EQ(print_preferences({}), "autostretch = on\n"
                                   "brightness  = standard  (target background 0.25)\n"
                                   "cfa         = auto\n"
                                   "labelformat = off\n"
                                   "labelcorner = bottomright\n");
  EXPECT_EQ(print_preferences({false, Brightness::Darker, CfaMode::Color, true, LabelCorner::TopLeft}),
            "autostretch = off\n"
            "brightness  = darker  (target background 0.15)\n"
            "cfa         = color\n"
            "labelformat = on\n"
            "labelcorner = topleft\n");
  EXPECT_EQ(print_preferences({true, Brightness::Brighter, CfaMode::Mono, false, LabelCorner::BottomLeft}),
            "autostretch = on\n"
            "brightness  = brighter  (target background 0.35)\n"
            "cfa         = mono\n"
            "labelformat = off\n"
            "labelcorner = bottomleft\n");
}

TEST(PrintPreferences, ListsValuesOutsideTheirEnumerationsAsTheDefaults) {
  EXPECT_EQ(print_preferences({true, Brightness{3}, CfaMode{3}, false, LabelCorner{4}}), print_preferences({}));
  EXPECT_EQ(print_preferences({true, Brightness{-1}, CfaMode{-1}, false, LabelCorner{-1}}), print_preferences({}));
}

} // namespace

} // namespace nebulark
