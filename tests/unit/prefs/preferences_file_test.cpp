#include "prefs/preferences_file.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "base/handles.h"
#include "near_misses.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

constexpr std::size_t megabyte = 1U << 20;

Preferences read(std::string_view text) {
  const FileHandle file = stream_over(Descriptor(::memfd_create("preferences", MFD_CLOEXEC)), "w+");
  EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file.get()), text.size());
  std::rewind(file.get());
  return read_preferences(file.get());
}

TEST(PreferencesPath, IsTheMachineWideFile) { EXPECT_EQ(preferences_path(), "/usr/share/nebulark/preferences.conf"); }

TEST(PreferencesText, HoldsTheDefaultsInEightLines) {
  EXPECT_EQ(preferences_text({}), "# Nebulark rendering preferences, machine wide.\n"
                                  "# Written by nebulark-ctl --set or the settings window.\n"
                                  "[General]\n"
                                  "autostretch=true\n"
                                  "brightness=standard\n"
                                  "cfa=auto\n"
                                  "labelformat=false\n"
                                  "labelcorner=bottomright\n");
}

TEST(PreferencesText, HoldsEveryRecordAndReadsBackAsIt) {
  for (const Record& record : all_records()) {
    std::string expected = "# Nebulark rendering preferences, machine wide.\n"
                           "# Written by nebulark-ctl --set or the settings window.\n"
                           "[General]\n";
    expected.append("autostretch=").append(record.preferences.autostretch ? "true" : "false");
    expected.append("\nbrightness=").append(record.brightness);
    expected.append("\ncfa=").append(record.cfa);
    expected.append("\nlabelformat=").append(record.preferences.labelformat ? "true" : "false");
    expected.append("\nlabelcorner=").append(record.labelcorner).append("\n");
    EXPECT_EQ(preferences_text(record.preferences), expected);
    EXPECT_EQ(read(expected), record.preferences);
  }
}

TEST(PreferencesText, HoldsTheDefaultsForStrayValues) {
  for (const std::int32_t value : stray_values) {
    const Preferences preferences{.brightness = static_cast<Brightness>(value),
                                  .cfa = static_cast<CfaMode>(value),
                                  .labelcorner = static_cast<LabelCorner>(value)};
    EXPECT_EQ(preferences_text(preferences), preferences_text({})) << value;
  }
}

TEST(ReadPreferences, AppliesEachLineToTheDefaults) {
  const struct {
    std::string_view text;
    Preferences expected;
  } files[] = {
      {"", {}},
      {"\n", {}},
      {" \t\r\n\r\n\n  ", {}},
      {"AutoStretch = OFF\n", {.autostretch = false}},
      {" \tcfa=MONO \t\n", {.cfa = CfaMode::Mono}},
      {"[General]\r\ncfa=color\r\n\r\nlabelformat=1\r\n", {.cfa = CfaMode::Color, .labelformat = true}},
      {"\t[General]\n\t# comment\n\tcfa=color\n    labelformat=yes\n", {.cfa = CfaMode::Color, .labelformat = true}},
      // The last line needs no line feed.
      {"cfa=mono\nlabelformat=on", {.cfa = CfaMode::Mono, .labelformat = true}},
      {"cfa=mono\nlabelformat=o", {.cfa = CfaMode::Mono}},
      {"\n\n\n\ncfa=mono", {.cfa = CfaMode::Mono}},
      // Sections have no meaning.
      {"[Other]\ncfa=mono\n", {.cfa = CfaMode::Mono}},
      {"[General\ncfa=mono\n", {.cfa = CfaMode::Mono}},
      {"cfa=mono\n[General]\n", {.cfa = CfaMode::Mono}},
      {"[General]\n[Other]\ncfa=mono\n", {.cfa = CfaMode::Mono}},
      // The last good line for a name wins.
      {"brightness=darker\nbrightness=brighter\n", {.brightness = Brightness::Brighter}},
      {"brightness=darker\nbrightness=dim\n", {.brightness = Brightness::Darker}},
      {"brightness=dim\nbrightness=darker\n", {.brightness = Brightness::Darker}},
      {"cfa=mono\ncfa=auto\n", {}},
      {"autostretch=0\nautostretch=yes\n", {}},
      {"labelformat=on\nlabelformat=no\n", {}},
      // A bad line does not end the reading.
      {"\uFEFFautostretch=off\nlabelformat=on\n", {.labelformat = true}},
      {"\0\ncfa=mono\n"sv, {.cfa = CfaMode::Mono}},
  };
  for (const auto& [text, expected] : files)
    EXPECT_EQ(read(text), expected) << testing::PrintToString(text);
}

// The line changes nothing, alone or among others, which still count.
void expect_ignored(std::string_view line) {
  SCOPED_TRACE(testing::PrintToString(line));
  const std::string text(line);
  EXPECT_EQ(read(text), Preferences{});

  const Preferences neighbours{false, Brightness::Darker, CfaMode::Color, true, LabelCorner::BottomLeft};
  for (const std::string end : {"\n", "\r\n", " \t\n"})
    EXPECT_EQ(read("autostretch=no\nbrightness=darker\ncfa=color\n" + text + end +
                   "labelformat=yes\nlabelcorner=bottomleft\n" + text + end),
              neighbours);
}

TEST(ReadPreferences, IgnoresCommentsSectionsAndRejectedLines) {
  constexpr std::string_view lines[] = {
      // comments and sections
      "", " \t\r", "#", "#cfa=mono", " \t# cfa=mono", ";cfa=mono", "  ; cfa=mono", "[General]", "[General", "[cfa=mono",
      "[General] cfa=mono", "[cfa]=mono",
      // no assignment
      "cfa", "cfa mono", "cfa: mono", "=mono", " \t =mono", "=",
      // no value of this name
      "cfa=", "cfa=colour", "cfa=mono # comment", "cfa=mono;", "cfa=\"mono\"", "cfa=2", "cfa=darker", "cfa=mono=mono",
      "cfa==mono", "cfa=mono\0"sv, "cfa=mono\xC2\xA0", "cfa=mono\rlabelformat=off", "cfa=mono,labelformat=off",
      "autostretch=maybe", "labelformat=2",
      // no name
      "colour=mono", "auto=off", "General/cfa=mono", "cfa#=mono", "!cfa=mono", "\fcfa=mono", "\vcfa=mono",
      "\uFEFFcfa=mono", "\0"sv, "\0cfa=mono"sv, "c\0fa=mono"sv, "cfa\0=mono"sv};
  for (const std::string_view line : lines)
    expect_ignored(line);
}

TEST(ReadPreferences, IgnoresNearMissesOfAssignments) {
  for (const std::string_view line :
       {"autostretch=on", "brightness=standard", "cfa=auto", "labelformat=off", "labelcorner=bottomright"})
    for (const std::string& text : near_misses(line))
      if (text.find('\n') == std::string::npos) expect_ignored(text); // a line feed would make it two lines
}

TEST(ReadPreferences, IgnoresLinesOfAMegabyte) {
  const std::string text(megabyte, 'x');
  for (const std::string& line : {text, "# " + text, "[" + text, "cfa=" + text, text + "=mono",
                                  std::string(megabyte, '\0'), std::string(megabyte, ' ')})
    EXPECT_EQ(read("cfa=color\n" + line + "\nlabelformat=on"),
              (Preferences{.cfa = CfaMode::Color, .labelformat = true}));
}

TEST(ReadPreferences, TakesAMegabyteOfBlanksAroundNameAndValue) {
  const std::string blanks(megabyte, ' ');
  EXPECT_EQ(read(blanks + "cfa" + blanks + "=" + blanks + "mono" + blanks + "\n"), Preferences{.cfa = CfaMode::Mono});
}

TEST(ReadPreferences, TakesAnyNumberOfLines) {
  std::string text;
  for (int line = 0; line < 10000; ++line)
    text += "cfa=color\n\n# comment\n";
  EXPECT_EQ(read(text + "cfa=mono"), Preferences{.cfa = CfaMode::Mono});
}

} // namespace

} // namespace nebulark
