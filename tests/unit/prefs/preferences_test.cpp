#include "prefs/preferences.h"

#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "prefs/plain_preferences.h"

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

// Outside every enumeration; or 3, the default corner.
constexpr std::int32_t stray_values[] = {std::numeric_limits<std::int32_t>::min(), -256, -1, 3, 4, 256, 65536,
                                         std::numeric_limits<std::int32_t>::max()};

// An enumeration is numbered from 0 in the order of its words, and knows only these words: not even with blanks or
// capitals, which the caller removes, or as numbers.
template <typename Value>
void expect_words(PlainWords<Value> words, std::string_view (*word_of)(Value),
                  std::optional<Value> (*parse)(std::string_view), std::string_view default_word) {
  std::int32_t number = 0;
  for (const auto& [word, value] : words) {
    EXPECT_EQ(static_cast<std::int32_t>(value), number++) << word;
    EXPECT_EQ(word_of(value), word);
    EXPECT_EQ(parse(word), value) << word;
  }
  for (const std::string_view text :
       {""sv, "0"sv, "1"sv, "on"sv, "default"sv, "Darker"sv, "monO"sv, " auto"sv, "topleft\0"sv, "top"sv, "colour"sv})
    EXPECT_EQ(parse(text), std::nullopt) << testing::PrintToString(text);
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(word_of(static_cast<Value>(value)), default_word) << value;
}

TEST(Brightness, HasThreeWords) { expect_words(plain_brightness, brightness_word, parse_brightness, "standard"); }

TEST(CfaMode, HasThreeWords) { expect_words(plain_cfa, cfa_word, parse_cfa_mode, "auto"); }

TEST(LabelCorner, HasFourWords) {
  expect_words(plain_label_corner, label_corner_word, parse_label_corner, "bottomright");
}

TEST(TargetBackground, IsTheLevelOfTheBrightness) {
  EXPECT_EQ(target_background(Brightness::Darker), 0.15F);
  EXPECT_EQ(target_background(Brightness::Standard), 0.25F);
  EXPECT_EQ(target_background(Brightness::Brighter), 0.35F);
  for (const std::int32_t value : stray_values)
    EXPECT_EQ(target_background(static_cast<Brightness>(value)), 0.25F) << value;
}

// The defaults, and a record that differs in every member.
constexpr Preferences records[] = {{}, {false, Brightness::Darker, CfaMode::Mono, true, LabelCorner::TopLeft}};

template <typename Value>
void expect_applied(const std::string& assignment, Value Preferences::*member, Value value) {
  SCOPED_TRACE(testing::PrintToString(assignment));
  for (Preferences preferences : records) {
    Preferences expected = preferences;
    expected.*member = value;
    std::string error = "as it was";
    EXPECT_TRUE(apply_assignment(assignment, preferences, error));
    EXPECT_EQ(preferences, expected);
    EXPECT_EQ(error, "as it was");
  }
}

template <typename Value>
void expect_all_applied(const std::string& name, Value Preferences::*member, PlainWords<Value> words) {
  for (const auto& [word, value] : words)
    expect_applied(name + "=" + std::string(word), member, value);
}

TEST(ApplyAssignment, SetsOneMemberAndKeepsTheErrorText) {
  expect_all_applied("autostretch", &Preferences::autostretch, plain_switches);
  expect_all_applied("brightness", &Preferences::brightness, plain_brightness);
  expect_all_applied("cfa", &Preferences::cfa, plain_cfa);
  expect_all_applied("labelformat", &Preferences::labelformat, plain_switches);
  expect_all_applied("labelcorner", &Preferences::labelcorner, plain_label_corner);
}

TEST(ApplyAssignment, IgnoresCaseAndBlanksAround) {
  expect_applied("autostretch= True\t", &Preferences::autostretch, true);
  expect_applied("\tBrightness\r=Darker", &Preferences::brightness, Brightness::Darker);
  expect_applied(" \t\rCFA\r\t = \r\tMONO\t \r", &Preferences::cfa, CfaMode::Mono);
}

TEST(ApplyAssignment, RejectsOtherTextsAndReplacesTheErrorText) {
  const std::pair<std::string_view, std::vector<std::string_view>> rejected[] = {
      {"expected name=value", {"", " \t\r", "autostretch", "autostretch:on", "autostretch\0on"sv}},
      {"autostretch: expected on or off",
       {"autostretch=", "autostretch= \t\r", "autostretch=2", "autostretch=on off", "autostretch=on\n",
        "autostretch=on\0"sv, "AutoStretch=maybe"}},
      {"brightness: expected darker, standard or brighter",
       {"brightness=", "brightness=dark", "brightness=on", "brightness=1", "brightness=darker=darker"}},
      {"cfa: expected auto, color or mono", {"cfa=", "cfa=colour", "cfa=standard", "cfa=\nmono", "cfa=mono # comment"}},
      {"labelformat: expected on or off", {"labelformat=", "labelformat==on", "labelformat=topleft"}},
      {"labelcorner: expected topleft, topright, bottomleft or bottomright",
       {"labelcorner=", "labelcorner=top left", "labelcorner=top-left"}},
      // The name is repeated, trimmed and lowered.
      {"unknown preference: ", {"=", "==", " \t\r=on"}},
      {"unknown preference: foo bar", {"\t Foo Bar\r =on"}},
      {"unknown preference: auto", {"auto=on"}},
      {"unknown preference: auto stretch", {"auto stretch=on"}},
      {"unknown preference: autostretch\0"sv, {"autostretch\0=on"sv}},
      {"unknown preference: \xC3\x84rger", {"\xC3\x84RGER=on"}},
      {"unknown preference: \x1B[31m%s%n", {"\x1B[31m%s%n=on"}},
  };
  for (const auto& [message, assignments] : rejected) {
    for (const std::string_view assignment : assignments) {
      SCOPED_TRACE(testing::PrintToString(assignment));
      Preferences preferences = records[1];
      std::string error = "an earlier message, longer than any other, so that a rest of it would show";
      EXPECT_FALSE(apply_assignment(assignment, preferences, error));
      EXPECT_EQ(preferences, records[1]);
      EXPECT_EQ(error, message);
    }
  }
}

} // namespace

} // namespace nebulark
