#include "prefs/preferences.h"

#include <string>
#include <string_view>
#include <type_traits>

#include "case.h"
#include "near_misses.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

TEST(Preferences, HaveTheirDefaults) {
  const Preferences preferences;
  EXPECT_EQ(preferences.autostretch, true);
  EXPECT_EQ(preferences.brightness, Brightness::Standard);
  EXPECT_EQ(preferences.cfa, CfaMode::Auto);
  EXPECT_EQ(preferences.labelformat, false);
  EXPECT_EQ(preferences.labelcorner, LabelCorner::BottomRight);
}

TEST(Preferences, AreEqualWhenEveryFieldIs) {
  const Preferences preferences;
  EXPECT_EQ(preferences, Preferences{});
  EXPECT_NE(preferences, Preferences{.autostretch = false});
  EXPECT_NE(preferences, Preferences{.brightness = Brightness::Darker});
  EXPECT_NE(preferences, Preferences{.cfa = CfaMode::Mono});
  EXPECT_NE(preferences, Preferences{.labelformat = true});
  EXPECT_NE(preferences, Preferences{.labelcorner = LabelCorner::TopLeft});
}

TEST(Preferences, AreStoredAsSmallIntegers) {
  testing::StaticAssertTypeEq<std::underlying_type_t<Brightness>, std::int32_t>();
  testing::StaticAssertTypeEq<std::underlying_type_t<CfaMode>, std::int32_t>();
  testing::StaticAssertTypeEq<std::underlying_type_t<LabelCorner>, std::int32_t>();
  static_assert(sizeof(Preferences::autostretch) == 1);
  static_assert(sizeof(Preferences::labelformat) == 1);
}

TEST(Preferences, AreNumberedInTheOrderOfTheirWords) {
  EXPECT_EQ(static_cast<int>(Brightness::Darker), 0);
  EXPECT_EQ(static_cast<int>(Brightness::Standard), 1);
  EXPECT_EQ(static_cast<int>(Brightness::Brighter), 2);
  EXPECT_EQ(static_cast<int>(CfaMode::Auto), 0);
  EXPECT_EQ(static_cast<int>(CfaMode::Color), 1);
  EXPECT_EQ(static_cast<int>(CfaMode::Mono), 2);
  EXPECT_EQ(static_cast<int>(LabelCorner::TopLeft), 0);
  EXPECT_EQ(static_cast<int>(LabelCorner::TopRight), 1);
  EXPECT_EQ(static_cast<int>(LabelCorner::BottomLeft), 2);
  EXPECT_EQ(static_cast<int>(LabelCorner::BottomRight), 3);
}

TEST(BrightnessWord, SpellsEachValue) {
  for (const auto& [value, word] : brightness_spellings)
    EXPECT_EQ(brightness_word(value), word);
}

TEST(CfaWord, SpellsEachValue) {
  for (const auto& [value, word] : cfa_spellings)
    EXPECT_EQ(cfa_word(value), word);
}

TEST(LabelCornerWord, SpellsEachValue) {
  for (const auto& [value, word] : label_corner_spellings)
    EXPECT_EQ(label_corner_word(value), word);
}

TEST(BrightnessWord, SpellsAStrayValueAsStandard) {
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(brightness_word(static_cast<Brightness>(value)), "standard") << value;
}

TEST(CfaWord, SpellsAStrayValueAsAuto) {
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(cfa_word(static_cast<CfaMode>(value)), "auto") << value;
}

TEST(LabelCornerWord, SpellsAStrayValueAsBottomRight) {
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(label_corner_word(static_cast<LabelCorner>(value)), "bottomright") << value;
}

// `parse` must know the words of one enumeration to the byte, and nothing else.
template <typename Spellings, typename Parse>
void expect_words(const Spellings& spellings, Parse parse) {
  for (const auto& [value, word] : spellings) {
    EXPECT_EQ(parse(word), value) << word;
    for (const std::string& text : near_misses(word))
      EXPECT_EQ(parse(text), std::nullopt) << testing::PrintToString(text);
    EXPECT_EQ(parse(std::string(word).append(1, '\0')), std::nullopt) << word;
    for (std::size_t place = 0; place < word.size(); ++place) {
      std::string text(word);
      text[place] = static_cast<char>(text[place] - 0x20);
      EXPECT_EQ(parse(text), std::nullopt) << text;
    }
  }
  for (const std::string_view text : {""sv, "0"sv, "1"sv, "2"sv, "3"sv, " "sv, "\0"sv, "on"sv, "true"sv, "default"sv})
    EXPECT_EQ(parse(text), std::nullopt) << testing::PrintToString(text);
}

template <typename Spellings, typename Parse>
void expect_no_words(const Spellings& spellings, Parse parse) {
  for (const auto& [value, word] : spellings)
    EXPECT_EQ(parse(word), std::nullopt) << word;
}

TEST(ParseBrightness, KnowsItsThreeWordsAlone) {
  expect_words(brightness_spellings, parse_brightness);
  expect_no_words(cfa_spellings, parse_brightness);
  expect_no_words(label_corner_spellings, parse_brightness);
}

TEST(ParseCfaMode, KnowsItsThreeWordsAlone) {
  expect_words(cfa_spellings, parse_cfa_mode);
  expect_no_words(brightness_spellings, parse_cfa_mode);
  expect_no_words(label_corner_spellings, parse_cfa_mode);
}

TEST(ParseLabelCorner, KnowsItsFourWordsAlone) {
  expect_words(label_corner_spellings, parse_label_corner);
  expect_no_words(brightness_spellings, parse_label_corner);
  expect_no_words(cfa_spellings, parse_label_corner);
}

TEST(ParseFunctions, LeaveTrimmingAndLoweringToTheCaller) {
  for (const std::string_view blank : {" ", "\t", "\r"}) {
    const std::string before(blank);
    EXPECT_EQ(parse_brightness(before + "darker"), std::nullopt);
    EXPECT_EQ(parse_cfa_mode(before + "mono"), std::nullopt);
    EXPECT_EQ(parse_label_corner(before + "topleft"), std::nullopt);
    EXPECT_EQ(parse_brightness("darker" + before), std::nullopt);
    EXPECT_EQ(parse_cfa_mode("mono" + before), std::nullopt);
    EXPECT_EQ(parse_label_corner("topleft" + before), std::nullopt);
  }
}

TEST(TargetBackground, IsTheSinglePrecisionLevelOfEachBrightness) {
  testing::StaticAssertTypeEq<decltype(target_background(Brightness::Standard)), float>();
  EXPECT_EQ(target_background(Brightness::Darker), 0.15F);
  EXPECT_EQ(target_background(Brightness::Standard), 0.25F);
  EXPECT_EQ(target_background(Brightness::Brighter), 0.35F);
}

TEST(TargetBackground, IsThatOfStandardForAStrayValue) {
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(target_background(static_cast<Brightness>(value)), 0.25F) << value;
}

using Change = void (*)(Preferences& preferences);

constexpr Change autostretch_on = [](Preferences& preferences) { preferences.autostretch = true; };
constexpr Change autostretch_off = [](Preferences& preferences) { preferences.autostretch = false; };
constexpr Change darker = [](Preferences& preferences) { preferences.brightness = Brightness::Darker; };
constexpr Change standard = [](Preferences& preferences) { preferences.brightness = Brightness::Standard; };
constexpr Change brighter = [](Preferences& preferences) { preferences.brightness = Brightness::Brighter; };
constexpr Change cfa_auto = [](Preferences& preferences) { preferences.cfa = CfaMode::Auto; };
constexpr Change cfa_color = [](Preferences& preferences) { preferences.cfa = CfaMode::Color; };
constexpr Change cfa_mono = [](Preferences& preferences) { preferences.cfa = CfaMode::Mono; };
constexpr Change labelformat_on = [](Preferences& preferences) { preferences.labelformat = true; };
constexpr Change labelformat_off = [](Preferences& preferences) { preferences.labelformat = false; };
constexpr Change top_left = [](Preferences& preferences) { preferences.labelcorner = LabelCorner::TopLeft; };
constexpr Change top_right = [](Preferences& preferences) { preferences.labelcorner = LabelCorner::TopRight; };
constexpr Change bottom_left = [](Preferences& preferences) { preferences.labelcorner = LabelCorner::BottomLeft; };
constexpr Change bottom_right = [](Preferences& preferences) { preferences.labelcorner = LabelCorner::BottomRight; };

// The assignment must set its one field, whatever the record was, and leave the error text alone.
void expect_applied(std::string_view assignment, Change change) {
  for (const Record& record : all_records()) {
    Preferences preferences = record.preferences;
    Preferences expected = record.preferences;
    change(expected);
    std::string error = "as it was";
    EXPECT_TRUE(apply_assignment(assignment, preferences, error));
    EXPECT_EQ(preferences, expected);
    EXPECT_EQ(error, "as it was");
  }
}

// The assignment must leave every record as it is, and replace the whole error text.
void expect_rejected(std::string_view assignment, std::string_view message) {
  for (const Record& record : all_records()) {
    Preferences preferences = record.preferences;
    std::string error = "an earlier message, which is longer than any that is to come, so that its end would show";
    EXPECT_FALSE(apply_assignment(assignment, preferences, error));
    EXPECT_EQ(preferences, record.preferences);
    EXPECT_EQ(error, message);
  }
}

class AppliedAssignment : public testing::TestWithParam<Case<std::string_view, Change>> {};

TEST_P(AppliedAssignment, SetsItsFieldAlone) { expect_applied(GetParam().given, GetParam().expected); }

constexpr Case<std::string_view, Change> applied[] = {
    {"AutostretchOn", "autostretch=on", autostretch_on},
    {"AutostretchYes", "autostretch=yes", autostretch_on},
    {"AutostretchTrue", "autostretch=true", autostretch_on},
    {"AutostretchOne", "autostretch=1", autostretch_on},
    {"AutostretchOff", "autostretch=off", autostretch_off},
    {"AutostretchNo", "autostretch=no", autostretch_off},
    {"AutostretchFalse", "autostretch=false", autostretch_off},
    {"AutostretchZero", "autostretch=0", autostretch_off},
    {"SwitchInCapitals", "autostretch=YES", autostretch_on},
    {"SwitchBetweenBlanks", "autostretch= True\t", autostretch_on},
    {"LabelformatOn", "labelformat=on", labelformat_on},
    {"LabelformatYes", "labelformat=yes", labelformat_on},
    {"LabelformatTrue", "labelformat=true", labelformat_on},
    {"LabelformatOne", "labelformat=1", labelformat_on},
    {"LabelformatOff", "labelformat=off", labelformat_off},
    {"LabelformatNo", "labelformat=no", labelformat_off},
    {"LabelformatFalse", "labelformat=false", labelformat_off},
    {"LabelformatZero", "labelformat=0", labelformat_off},
    {"SwitchInMixedCase", "labelformat=Off", labelformat_off},
    {"BrightnessDarker", "brightness=darker", darker},
    {"BrightnessStandard", "brightness=standard", standard},
    {"BrightnessBrighter", "brightness=brighter", brighter},
    {"CfaAuto", "cfa=auto", cfa_auto},
    {"CfaColor", "cfa=color", cfa_color},
    {"CfaMono", "cfa=mono", cfa_mono},
    {"LabelcornerTopLeft", "labelcorner=topleft", top_left},
    {"LabelcornerTopRight", "labelcorner=topright", top_right},
    {"LabelcornerBottomLeft", "labelcorner=bottomleft", bottom_left},
    {"LabelcornerBottomRight", "labelcorner=bottomright", bottom_right},
    {"NameAndValueBetweenSpaces", "Brightness = Brighter", brighter},
    {"ValueBetweenTabAndCarriageReturn", "brightness=\tbrighter\r", brighter},
    {"NameBetweenTabAndCarriageReturn", "\tbrightness\r=darker", darker},
    {"EveryBlankAnywhereAround", " \t\rcfa\r\t = \r\tmono\t \r", cfa_mono},
    {"NameInCapitals", "LABELCORNER=topleft", top_left},
    {"ValueInCapitals", "labelcorner=BOTTOMLEFT", bottom_left},
    {"ValueInMixedCase", "labelcorner=TopLeft", top_left},
};
INSTANTIATE_TEST_SUITE_P(, AppliedAssignment, testing::ValuesIn(applied), case_name);

constexpr const char* corner_message = "labelcorner: expected topleft, topright, bottomleft or bottomright";
constexpr const char* brightness_message = "brightness: expected darker, standard or brighter";
constexpr const char* cfa_message = "cfa: expected auto, color or mono";
constexpr const char* autostretch_message = "autostretch: expected on or off";
constexpr const char* labelformat_message = "labelformat: expected on or off";

class RejectedAssignment : public testing::TestWithParam<Case<std::string_view, std::string_view>> {};

TEST_P(RejectedAssignment, ReplacesTheErrorTextAlone) { expect_rejected(GetParam().given, GetParam().expected); }

constexpr Case<std::string_view, std::string_view> rejected[] = {
    {"Empty", "", "expected name=value"},
    {"Blank", " \t\r", "expected name=value"},
    {"NameAlone", "autostretch", "expected name=value"},
    {"NameAndColon", "autostretch:on", "expected name=value"},
    {"UnknownNameAlone", "foo", "expected name=value"},
    {"NameAndNul", "autostretch\0on"sv, "expected name=value"},

    {"SwitchWithoutValue", "autostretch=", autostretch_message},
    {"SwitchWithBlankValue", "autostretch= \t\r", autostretch_message},
    {"SwitchOfTwo", "autostretch=2", autostretch_message},
    {"SwitchEnabled", "autostretch=enabled", autostretch_message},
    {"SwitchWithWordOfAnother", "autostretch=auto", autostretch_message},
    {"SwitchWithTwoWords", "autostretch=on off", autostretch_message},
    {"SwitchWithLineFeed", "autostretch=on\n", autostretch_message},
    {"SwitchWithNul", "autostretch=on\0"sv, autostretch_message},
    {"SwitchNamedInMixedCase", "AutoStretch=maybe", autostretch_message},
    {"SwitchWithSecondEquals", "labelformat=on=off", labelformat_message},
    {"SwitchWithDoubledEquals", "labelformat==on", labelformat_message},
    {"SwitchWithWordOfACorner", "labelformat=topleft", labelformat_message},

    {"BrightnessWithoutValue", "brightness=", brightness_message},
    {"BrightnessDark", "brightness=dark", brightness_message},
    {"BrightnessOn", "brightness=on", brightness_message},
    {"BrightnessByNumber", "brightness=1", brightness_message},
    {"BrightnessWithLineFeed", "brightness=brighter\n", brightness_message},
    {"BrightnessWithFormFeed", "brightness=\fbrighter", brightness_message},
    {"BrightnessWithNul", "brightness=darker\0"sv, brightness_message},
    {"BrightnessWithHighByte", "brightness=d\xE1rker", brightness_message},
    {"BrightnessWithSecondEquals", "brightness=darker=darker", brightness_message},
    {"BrightnessNamedInCapitals", "BRIGHTNESS = dim", brightness_message},

    {"CfaWithoutValue", "cfa=", cfa_message},
    {"CfaColour", "cfa=colour", cfa_message},
    {"CfaWithWordOfBrightness", "cfa=standard", cfa_message},
    {"CfaWithLineFeed", "cfa=\nmono", cfa_message},
    {"CfaWithComment", "cfa=mono # comment", cfa_message},

    {"LabelcornerWithoutValue", "labelcorner=", corner_message},
    {"LabelcornerWithBlankInside", "labelcorner=top left", corner_message},
    {"LabelcornerWithHyphen", "labelcorner=top-left", corner_message},
    {"LabelcornerTop", "labelcorner=top", corner_message},
    {"LabelcornerWithLineFeed", "labelcorner=topleft\n", corner_message},

    {"NoNameButAValue", "=on", "unknown preference: "},
    {"NothingButEquals", "=", "unknown preference: "},
    {"BlankName", " \t\r=on", "unknown preference: "},
    {"DoubledEquals", "==", "unknown preference: "},
    {"UnknownNameInMixedCase", "Foo=bar", "unknown preference: foo"},
    {"UnknownNameBetweenBlanks", "\t Foo Bar\r =on", "unknown preference: foo bar"},
    {"UnknownNameWithoutValue", "foo=", "unknown preference: foo"},
    {"NameThatBeginsAnother", "auto=on", "unknown preference: auto"},
    {"AbbreviatedName", "bright=darker", "unknown preference: bright"},
    {"NameWithLineFeed", "autostretch\n=on", "unknown preference: autostretch\n"},
    {"NameAfterLineFeed", "\nautostretch=on", "unknown preference: \nautostretch"},
    {"NameWithNul", "autostretch\0=on"sv, "unknown preference: autostretch\0"sv},
    {"NameWithBlankInside", "auto stretch=on", "unknown preference: auto stretch"},
    {"NameWithHighBytes", "\xC3\x84RGER=on", "unknown preference: \xC3\x84rger"},
    {"NameWithPercentSigns", "%s%n%d=on", "unknown preference: %s%n%d"},
    {"NameAfterByteOrderMark", "\uFEFFcfa=mono", "unknown preference: \uFEFFcfa"},
    {"CommandWord", "--set=on", "unknown preference: --set"},
};
INSTANTIATE_TEST_SUITE_P(, RejectedAssignment, testing::ValuesIn(rejected), case_name);

TEST(RejectedAssignments, AreThoseToWhatIsNearlyAName) {
  for (const PreferenceField& field : preference_fields) {
    for (const std::string& name : near_misses(field.name)) {
      SCOPED_TRACE(testing::PrintToString(name));
      expect_rejected(name + "=on", "unknown preference: " + name);
    }
  }
}

TEST(AppliedAssignments, AddUpAndTheLastToANameWins) {
  Preferences preferences;
  std::string error;
  EXPECT_TRUE(apply_assignment("cfa=mono", preferences, error));
  EXPECT_TRUE(apply_assignment("labelformat=on", preferences, error));
  EXPECT_TRUE(apply_assignment("cfa=color", preferences, error));
  EXPECT_EQ(preferences, (Preferences{.cfa = CfaMode::Color, .labelformat = true}));
}

TEST(AppliedAssignments, StayWhenALaterOneIsRejected) {
  Preferences preferences;
  std::string error;
  EXPECT_TRUE(apply_assignment("cfa=mono", preferences, error));
  EXPECT_FALSE(apply_assignment("cfa=colour", preferences, error));
  EXPECT_EQ(preferences, Preferences{.cfa = CfaMode::Mono});
}

} // namespace

} // namespace nebulark
