#include "prefs/preferences_file.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "base/handles.h"
#include "prefs/plain_preferences.h"

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

TEST(PreferencesText, HoldsEightLines) {
  EXPECT_EQ(preferences_text({}), "# Nebulark rendering preferences, machine wide.\n"
                                  "# Written by nebulark-ctl --set or the settings window.\n"
                                  "[General]\n"
                                  "autostretch=true\n"
                                  "brightness=standard\n"
                                  "cfa=auto\n"
                                  "labelformat=false\n"
                                  "labelcorner=bottomright\n");
  EXPECT_EQ(preferences_text({false, Brightness::Darker, CfaMode::Color, true, LabelCorner::TopLeft}),
            "# Nebulark rendering preferences, machine wide.\n"
            "# Written by nebulark-ctl --set or the settings window.\n"
            "[General]\n"
            "autostretch=false\n"
            "brightness=darker\n"
            "cfa=color\n"
            "labelformat=true\n"
            "labelcorner=topleft\n");
}

TEST(PreferencesText, HoldsValuesOutsideTheirEnumerationsAsTheDefaults) {
  EXPECT_EQ(preferences_text({true, Brightness{3}, CfaMode{3}, false, LabelCorner{4}}), preferences_text({}));
  EXPECT_EQ(preferences_text({true, Brightness{-1}, CfaMode{-1}, false, LabelCorner{-1}}), preferences_text({}));
}

TEST(ReadPreferences, AppliesEachLineToTheDefaults) {
  const struct {
    std::string_view text;
    Preferences expected;
  } files[] = {
      {"", {}},
      {" \t\r\n\r\n\n  ", {}},
      {"AutoStretch = OFF\n", {.autostretch = false}},
      {"[General]\r\ncfa=color\r\n\r\nlabelformat=1\r\n", {.cfa = CfaMode::Color, .labelformat = true}},
      {"\t[General]\n\t# comment\n\tcfa=color\n    labelformat=yes\n", {.cfa = CfaMode::Color, .labelformat = true}},
      // The last line needs no line feed.
      {"cfa=mono\nlabelformat=on", {.cfa = CfaMode::Mono, .labelformat = true}},
      {"cfa=mono\nlabelformat=o", {.cfa = CfaMode::Mono}},
      // Sections have no meaning.
      {"[Other]\ncfa=mono\n", {.cfa = CfaMode::Mono}},
      {"[General]\ncfa=mono\n[Other]\n", {.cfa = CfaMode::Mono}},
      // The last good line for a name wins.
      {"brightness=darker\nbrightness=brighter\n", {.brightness = Brightness::Brighter}},
      {"brightness=darker\nbrightness=dim\n", {.brightness = Brightness::Darker}},
      {"cfa=mono\ncfa=auto\n", {}},
      // A bad line does not end the reading.
      {"\uFEFFautostretch=off\nlabelformat=on\n", {.labelformat = true}},
      {"\0\ncfa=mono\n"sv, {.cfa = CfaMode::Mono}},
  };
  for (const auto& [text, expected] : files)
    EXPECT_EQ(read(text), expected) << testing::PrintToString(text);
}

// The lines before and after it still count.
void expect_ignored(std::string_view line) {
  const Preferences around{.cfa = CfaMode::Color, .labelformat = true};
  EXPECT_EQ(read("cfa=color\n" + std::string(line) + "\nlabelformat=on"), around)
      << testing::PrintToString(line.substr(0, 100));
}

TEST(ReadPreferences, IgnoresCommentsSectionsAndRejectedLines) {
  constexpr std::string_view lines[] = {
      // comments and sections
      "", " \t\r", "#", " \t# cfa=mono", "  ; cfa=mono", "[General", "[cfa=mono", "[General] cfa=mono", "[cfa]=mono",
      // no assignment
      "cfa", "cfa mono", "cfa: mono", "=mono", " \t =mono", "=",
      // no value of this name
      "cfa=", "cfa=colour", "cfa=mono # comment", "cfa=mono;", "cfa=\"mono\"", "cfa=2", "cfa=darker", "cfa==mono",
      "cfa=mono\0"sv, "cfa=mono\xC2\xA0", "cfa=mono\rlabelformat=off", "cfa=mono,labelformat=off", "autostretch=maybe",
      // no name
      "colour=mono", "auto=off", "General/cfa=mono", "!cfa=mono", "\fcfa=mono", "\vcfa=mono", "\uFEFFcfa=mono", "\0"sv,
      "cfa\0=mono"sv};
  for (const std::string_view line : lines)
    expect_ignored(line);
}

TEST(ReadPreferences, IgnoresLinesOfAMegabyte) {
  const std::string text(megabyte, 'x');
  for (const std::string& line : {text, "# " + text, "[" + text, "cfa=" + text, text + "=mono",
                                  std::string(megabyte, '\0'), std::string(megabyte, ' ')})
    expect_ignored(line);
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
