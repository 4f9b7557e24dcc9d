#include "prefs/preferences.h"

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "near_misses.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

static_assert(std::is_same_v<std::underlying_type_t<Brightness>, std::int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<CfaMode>, std::int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<LabelCorner>, std::int32_t>);
static_assert(std::is_same_v<decltype(target_background(Brightness::Standard)), float>);

TEST(Preferences, HaveDefaults) {
  EXPECT_EQ(Preferences{}, (Preferences{true, Brightness::Standard, CfaMode::Auto, false, LabelCorner::BottomRight}));
}

TEST(Preferences, DifferWhenOneFieldDoes) {
  EXPECT_NE(Preferences{}, Preferences{.autostretch = false});
  EXPECT_NE(Preferences{}, Preferences{.brightness = Brightness::Darker});
  EXPECT_NE(Preferences{}, Preferences{.cfa = CfaMode::Mono});
  EXPECT_NE(Preferences{}, Preferences{.labelformat = true});
  EXPECT_NE(Preferences{}, Preferences{.labelcorner = LabelCorner::TopLeft});
}

// Not even with blanks or capitals, which the caller removes, or as numbers.
constexpr std::string_view no_words[] = {
    "",       " ",      "\0"sv,   "0",     "1",     "2",     "on",       "true",     "default",     "Darker",
    "DARKER", "Auto",   "MONO",   "monO",  "auto ", " mono", "\tdarker", "darker\r", "bottomRight", "topleft\0"sv,
    "color ", "color=", "colour", "mono ", "dark",  "top",   "left",     "top left", "top-left",
};

// An enumeration is numbered from 0 in the order of its words, and knows only these words.
template <typename Value, std::size_t N>
void expect_words(const std::array<Spelling<Value>, N>& spellings, std::string_view (*word_of)(Value),
                  std::optional<Value> (*parse)(std::string_view), std::string_view default_word) {
  std::int32_t number = 0;
  for (const auto& [value, word] : spellings) {
    EXPECT_EQ(static_cast<std::int32_t>(value), number++) << word;
    EXPECT_EQ(word_of(value), word);
    EXPECT_EQ(parse(word), value) << word;
    for (const std::string& text : near_misses(word))
      EXPECT_EQ(parse(text), std::nullopt) << testing::PrintToString(text);
  }
  for (const std::string_view text : no_words)
    EXPECT_EQ(parse(text), std::nullopt) << testing::PrintToString(text);
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(word_of(static_cast<Value>(value)), default_word) << value;
}

TEST(Brightness, HasThreeWords) { expect_words(brightness_spellings, brightness_word, parse_brightness, "standard"); }

TEST(CfaMode, HasThreeWords) { expect_words(cfa_spellings, cfa_word, parse_cfa_mode, "auto"); }

TEST(LabelCorner, HasFourWords) {
  expect_words(label_corner_spellings, label_corner_word, parse_label_corner, "bottomright");
}

TEST(TargetBackground, IsTheLevelOfTheBrightness) {
  EXPECT_EQ(target_background(Brightness::Darker), 0.15F);
  EXPECT_EQ(target_background(Brightness::Standard), 0.25F);
  EXPECT_EQ(target_background(Brightness::Brighter), 0.35F);
}

TEST(TargetBackground, IsTheStandardLevelForAStrayValue) {
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(target_background(static_cast<Brightness>(value)), 0.25F) << value;
}

template <typename Value>
void expect_applied(const std::string& assignment, Value Preferences::*field, Value value) {
  SCOPED_TRACE(testing::PrintToString(assignment));
  for (const Record& record : all_records()) {
    Preferences preferences = record.preferences;
    Preferences expected = record.preferences;
    expected.*field = value;
    std::string error = "as it was";
    EXPECT_TRUE(apply_assignment(assignment, preferences, error));
    EXPECT_EQ(preferences, expected);
    EXPECT_EQ(error, "as it was");
  }
}

template <typename Value, std::size_t N>
void expect_applied(const std::string& name, Value Preferences::*field,
                    const std::array<Spelling<Value>, N>& spellings) {
  for (const auto& [value, word] : spellings)
    expect_applied(name + "=" + std::string(word), field, value);
}

TEST(ApplyAssignment, SetsOneFieldAndKeepsTheErrorText) {
  expect_applied("autostretch", &Preferences::autostretch, switch_spellings);
  expect_applied("brightness", &Preferences::brightness, brightness_spellings);
  expect_applied("cfa", &Preferences::cfa, cfa_spellings);
  expect_applied("labelformat", &Preferences::labelformat, switch_spellings);
  expect_applied("labelcorner", &Preferences::labelcorner, label_corner_spellings);
}

TEST(ApplyAssignment, IgnoresCaseAndBlanksAround) {
  expect_applied("autostretch=YES", &Preferences::autostretch, true);
  expect_applied("autostretch= True\t", &Preferences::autostretch, true);
  expect_applied("labelformat=Off", &Preferences::labelformat, false);
  expect_applied("Brightness = Brighter", &Preferences::brightness, Brightness::Brighter);
  expect_applied("\tbrightness\r=darker", &Preferences::brightness, Brightness::Darker);
  expect_applied(" \t\rcfa\r\t = \r\tmono\t \r", &Preferences::cfa, CfaMode::Mono);
  expect_applied("LABELCORNER=BottomLeft", &Preferences::labelcorner, LabelCorner::BottomLeft);
}

void expect_rejected(std::string_view assignment, std::string_view message) {
  SCOPED_TRACE(testing::PrintToString(assignment));
  for (const Record& record : all_records()) {
    Preferences preferences = record.preferences;
    std::string error = "an earlier message, longer than any other, so that a rest of it would show";
    EXPECT_FALSE(apply_assignment(assignment, preferences, error));
    EXPECT_EQ(preferences, record.preferences);
    EXPECT_EQ(error, message);
  }
}

TEST(ApplyAssignment, RejectsOtherWordsAndReplacesTheErrorText) {
  const std::pair<std::string_view, std::vector<std::string_view>> rejected[] = {
      {"expected name=value", {"", " \t\r", "foo", "autostretch", "autostretch:on", "autostretch\0on"sv}},
      {"autostretch: expected on or off",
       {"autostretch=", "autostretch= \t\r", "autostretch=2", "autostretch=enabled", "autostretch=auto",
        "autostretch=on off", "autostretch=on\n", "autostretch=on\0"sv, "AutoStretch=maybe"}},
      {"brightness: expected darker, standard or brighter",
       {"brightness=", "brightness=dark", "brightness=on", "brightness=1", "brightness=brighter\n",
        "brightness=\fbrighter", "brightness=d\xE1rker", "brightness=darker=darker", "BRIGHTNESS = dim"}},
      {"cfa: expected auto, color or mono", {"cfa=", "cfa=colour", "cfa=standard", "cfa=\nmono", "cfa=mono # comment"}},
      {"labelformat: expected on or off",
       {"labelformat=", "labelformat=on=off", "labelformat==on", "labelformat=topleft"}},
      {"labelcorner: expected topleft, topright, bottomleft or bottomright",
       {"labelcorner=", "labelcorner=top", "labelcorner=top left", "labelcorner=top-left", "labelcorner=topleft\n"}},
  };
  for (const auto& [message, assignments] : rejected)
    for (const std::string_view assignment : assignments)
      expect_rejected(assignment, message);
}

TEST(ApplyAssignment, RejectsAnUnknownNameAndRepeatsItTrimmedAndLowered) {
  constexpr std::pair<std::string_view, std::string_view> rejected[] = {
      {"=on", ""},
      {"=", ""},
      {" \t\r=on", ""},
      {"==", ""},
      {"Foo=bar", "foo"},
      {"foo=", "foo"},
      {"\t Foo Bar\r =on", "foo bar"},
      {"auto=on", "auto"},
      {"bright=darker", "bright"},
      {"auto stretch=on", "auto stretch"},
      {"autostretch\0=on"sv, "autostretch\0"sv},
      {"\xC3\x84RGER=on", "\xC3\x84rger"},
      {"\uFEFFcfa=mono", "\uFEFFcfa"},
      {"\x1B[31m%s%n=on", "\x1B[31m%s%n"},
  };
  for (const auto& [assignment, name] : rejected)
    expect_rejected(assignment, "unknown preference: " + std::string(name));
}

TEST(ApplyAssignment, RejectsNearMissesOfNames) {
  for (const std::string_view known : {"autostretch", "brightness", "cfa", "labelformat", "labelcorner"})
    for (const std::string& name : near_misses(known))
      expect_rejected(name + "=on", "unknown preference: " + name);
}

} // namespace

} // namespace nebulark
