#include "prefs/preferences_file.h"

#include <string>
#include <string_view>

#include <sys/mman.h>

#include "base/handles.h"
#include "case.h"
#include "near_misses.h"
#include "prefs/records.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

constexpr std::size_t megabyte = 1U << 20;

Preferences preferences_in_a_file_of(std::string_view text) {
  const FileHandle file = stream_over(Descriptor(::memfd_create("preferences", MFD_CLOEXEC)), "w+");
  EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file.get()), text.size());
  std::rewind(file.get());
  return read_preferences(file.get());
}

TEST(PreferencesPath, IsTheMachineWideFile) { EXPECT_EQ(preferences_path(), "/usr/share/nebulark/preferences.conf"); }

class FileText : public testing::TestWithParam<Case<Preferences, const char*>> {};

TEST_P(FileText, IsEightLines) { EXPECT_EQ(preferences_text(GetParam().given), GetParam().expected); }

constexpr Case<Preferences, const char*> texts[] = {
    {"OfTheDefaults",
     {},
     "# Nebulark rendering preferences, machine wide.\n"
     "# Written by nebulark-ctl --set or the settings window.\n"
     "[General]\n"
     "autostretch=true\n"
     "brightness=standard\n"
     "cfa=auto\n"
     "labelformat=false\n"
     "labelcorner=bottomright\n"},
    {"WithEveryValueOtherThanItsDefault",
     {false, Brightness::Darker, CfaMode::Color, true, LabelCorner::TopRight},
     "# Nebulark rendering preferences, machine wide.\n"
     "# Written by nebulark-ctl --set or the settings window.\n"
     "[General]\n"
     "autostretch=false\n"
     "brightness=darker\n"
     "cfa=color\n"
     "labelformat=true\n"
     "labelcorner=topright\n"},
};
INSTANTIATE_TEST_SUITE_P(, FileText, testing::ValuesIn(texts), case_name);

TEST(FileTextOfEveryRecord, SpellsEachValueOnALineOfItsOwnAndReadsBackAsTheRecord) {
  const std::vector<Record> records = all_records();
  EXPECT_EQ(records.size(), 144U);
  for (const Record& record : records) {
    std::string expected = "# Nebulark rendering preferences, machine wide.\n"
                           "# Written by nebulark-ctl --set or the settings window.\n"
                           "[General]\n";
    expected.append("autostretch=").append(record.preferences.autostretch ? "true" : "false");
    expected.append("\nbrightness=").append(record.brightness);
    expected.append("\ncfa=").append(record.cfa);
    expected.append("\nlabelformat=").append(record.preferences.labelformat ? "true" : "false");
    expected.append("\nlabelcorner=").append(record.labelcorner).append("\n");
    EXPECT_EQ(preferences_text(record.preferences), expected);
    EXPECT_EQ(preferences_in_a_file_of(expected), record.preferences);
  }
}

TEST(FileTextOfStrayValues, SpellsThemAsTheDefaults) {
  for (const std::int32_t value : stray_values) {
    const Preferences preferences{.brightness = static_cast<Brightness>(value),
                                  .cfa = static_cast<CfaMode>(value),
                                  .labelcorner = static_cast<LabelCorner>(value)};
    EXPECT_EQ(preferences_text(preferences), preferences_text({}));
  }
}

class TextOfAFile : public testing::TestWithParam<Case<std::string_view, Preferences>> {};

TEST_P(TextOfAFile, Sets) { EXPECT_EQ(preferences_in_a_file_of(GetParam().given), GetParam().expected); }

constexpr Case<std::string_view, Preferences> readings[] = {
    {"NothingWhenEmpty", "", {}},
    {"NothingWhenOnlyALineFeed", "\n", {}},
    {"NothingWhenOnlyBlanksAndLineFeeds", " \t\r\n\r\n\n  ", {}},
    {"ASwitchInCapitalsAmongSpaces", "AutoStretch = OFF\n", {.autostretch = false}},
    {"AValueInCapitalsAmongBlanks", " \tcfa=MONO \t\n", {.cfa = CfaMode::Mono}},
    {"AValueBeforeACarriageReturn", "labelcorner=TopLeft\r\n", {.labelcorner = LabelCorner::TopLeft}},
    {"EachLineOfAFileWithCarriageReturns",
     "[General]\r\ncfa=color\r\n\r\nlabelformat=true\r\n",
     {.cfa = CfaMode::Color, .labelformat = true}},
    {"EachLineOfAnIndentedFile",
     "\t[General]\n\t# comment\n\tcfa=color\n    labelformat=true\n",
     {.cfa = CfaMode::Color, .labelformat = true}},
    {"TheLastLineWithoutALineFeed", "cfa=mono\nlabelformat=on", {.cfa = CfaMode::Mono, .labelformat = true}},
    {"NoSwitchByAWordThatBreaksOff", "cfa=mono\nlabelformat=o", {.cfa = CfaMode::Mono}},
    {"ALineUnderAnyHeader", "[Other]\ncfa=mono\n", {.cfa = CfaMode::Mono}},
    {"ALineUnderAHeaderThatIsNotClosed", "[General\ncfa=mono\n", {.cfa = CfaMode::Mono}},
    {"ALineUnderNoHeader", "cfa=mono\n[General]\n", {.cfa = CfaMode::Mono}},
    {"ALineUnderASecondHeader", "[General]\n[Other]\ncfa=mono\n", {.cfa = CfaMode::Mono}},
    {"TheLastOfTwoValues", "brightness=darker\nbrightness=brighter\n", {.brightness = Brightness::Brighter}},
    {"TheLastGoodOfTwoValues", "brightness=darker\nbrightness=dim\n", {.brightness = Brightness::Darker}},
    {"TheOneGoodOfTwoValues", "brightness=dim\nbrightness=darker\n", {.brightness = Brightness::Darker}},
    {"ADefaultAfterAnotherValue", "cfa=mono\ncfa=auto\n", {}},
    {"ASwitchByYes", "autostretch=off\nautostretch=yes\n", {}},
    {"ASwitchByOne", "autostretch=off\nautostretch=1\n", {}},
    {"ASwitchByTrue", "labelformat=true\n", {.labelformat = true}},
    {"ASwitchByOn", "labelformat=on\n", {.labelformat = true}},
    {"ASwitchByNo", "autostretch=no\n", {.autostretch = false}},
    {"ASwitchByZero", "autostretch=0\n", {.autostretch = false}},
    {"ASwitchByFalse", "autostretch=false\n", {.autostretch = false}},
    {"ASwitchByOff", "labelformat=on\nlabelformat=off\n", {}},
    {"NoSwitchByMaybe", "autostretch=off\nautostretch=maybe\n", {.autostretch = false}},
    {"TheLineAfterOneWithAByteOrderMark", "\uFEFFautostretch=off\nlabelformat=on\n", {.labelformat = true}},
    {"TheLineAfterOneOfANul", "\0\ncfa=mono\n"sv, {.cfa = CfaMode::Mono}},
    {"TheLineAfterEmptyLines", "\n\n\n\ncfa=mono", {.cfa = CfaMode::Mono}},
};
INSTANTIATE_TEST_SUITE_P(, TextOfAFile, testing::ValuesIn(readings), case_name);

// The line must change nothing, wherever it stands and however it ends, and its neighbours must be read all the same.
void expect_ignored(std::string_view line) {
  const std::string text(line);
  EXPECT_EQ(preferences_in_a_file_of(text), Preferences{});

  const Preferences neighbours{false, Brightness::Darker, CfaMode::Color, true, LabelCorner::BottomLeft};
  for (const std::string end : {"\n", "\r\n", " \t\n"}) {
    EXPECT_EQ(preferences_in_a_file_of("autostretch=no\nbrightness=darker\ncfa=color\n" + text + end +
                                       "labelformat=yes\nlabelcorner=bottomleft"),
              neighbours);
    EXPECT_EQ(preferences_in_a_file_of("autostretch=no\nbrightness=darker\ncfa=color\nlabelformat=yes\n"
                                       "labelcorner=bottomleft\n" +
                                       text + end),
              neighbours);
  }
}

class IgnoredLine : public testing::TestWithParam<Case<std::string_view>> {};

TEST_P(IgnoredLine, ChangesNothing) { expect_ignored(GetParam().given); }

constexpr Case<std::string_view> ignored[] = {
    {"Empty", ""},
    {"Blank", " \t\r"},
    {"CommentSign", "#"},
    {"Comment", "#cfa=mono"},
    {"CommentAfterBlanks", " \t# cfa=mono"},
    {"CommentWithSemicolon", ";cfa=mono"},
    {"CommentWithSemicolonAfterBlanks", "  ; cfa=mono"},
    {"Section", "[General]"},
    {"SectionNotClosed", "[General"},
    {"SectionWithAnAssignment", "[cfa=mono"},
    {"AssignmentBehindASection", "[General] cfa=mono"},
    {"SectionNameBeforeEquals", "[cfa]=mono"},
    {"NameWithoutEquals", "cfa"},
    {"NameAndValueWithoutEquals", "cfa mono"},
    {"NameAndColon", "cfa: mono"},
    {"ValueWithoutName", "=mono"},
    {"ValueWithBlankName", " \t =mono"},
    {"EqualsAlone", "="},
    {"NameWithoutValue", "cfa="},
    {"UnknownValue", "cfa=colour"},
    {"ValueBeforeAComment", "cfa=mono # comment"},
    {"ValueBeforeASemicolon", "cfa=mono;"},
    {"CommentSignInTheName", "cfa#=mono"},
    {"ValueInQuotes", "cfa=\"mono\""},
    {"ValueByNumber", "cfa=2"},
    {"ValueOfAnotherName", "cfa=darker"},
    {"SwitchByMaybe", "autostretch=maybe"},
    {"SwitchByTwo", "labelformat=2"},
    {"SecondEquals", "cfa=mono=mono"},
    {"DoubledEquals", "cfa==mono"},
    {"UnknownName", "colour=mono"},
    {"BeginningOfAName", "auto=off"},
    {"NameWithASection", "General/cfa=mono"},
    {"NameBehindAFormFeed", "\fcfa=mono"},
    {"NameBehindAVerticalTab", "\vcfa=mono"},
    {"NameBehindAByteOrderMark", "\uFEFFcfa=mono"},
    {"NameBehindAnotherSign", "!cfa=mono"},
    {"NulAlone", "\0"sv},
    {"NulBeforeTheName", "\0cfa=mono"sv},
    {"NulInTheName", "c\0fa=mono"sv},
    {"NulBehindTheValue", "cfa=mono\0"sv},
    {"NulBeforeEquals", "cfa\0=mono"sv},
    {"NonBreakingSpaceBehindTheValue", "cfa=mono\xC2\xA0"},
    {"TwoAssignmentsSplitByACarriageReturn", "cfa=mono\rlabelformat=off"},
    {"TwoAssignmentsSplitByAComma", "cfa=mono,labelformat=off"},
};
INSTANTIATE_TEST_SUITE_P(, IgnoredLine, testing::ValuesIn(ignored), case_name);

TEST(IgnoredLines, AreThoseThatAreNearlyAnAssignment) {
  for (const std::string_view line :
       {"autostretch=on", "brightness=standard", "cfa=auto", "labelformat=off", "labelcorner=bottomright"})
    for (const std::string& text : near_misses(line))
      if (text.find('\n') == std::string::npos) { // which would make it two lines
        SCOPED_TRACE(text);
        expect_ignored(text);
      }
}

TEST(IgnoredLines, MayBeAMegabyteLong) {
  const std::string text(megabyte, 'x');
  for (const std::string& line : {text, "# " + text, "[" + text, "cfa=" + text, text + "=mono",
                                  std::string(megabyte, '\0'), std::string(megabyte, ' ')})
    EXPECT_EQ(preferences_in_a_file_of("cfa=color\n" + line + "\nlabelformat=on"),
              (Preferences{.cfa = CfaMode::Color, .labelformat = true}));
}

TEST(FileLines, MayHoldAMegabyteOfBlanks) {
  const std::string blanks(megabyte, ' ');
  EXPECT_EQ(preferences_in_a_file_of(blanks + "cfa" + blanks + "=" + blanks + "mono" + blanks + "\n"),
            Preferences{.cfa = CfaMode::Mono});
}

TEST(FileLines, MayBeAnyNumber) {
  std::string text;
  for (int line = 0; line < 10000; ++line)
    text += "cfa=color\n\n# comment\n";
  EXPECT_EQ(preferences_in_a_file_of(text + "cfa=mono"), Preferences{.cfa = CfaMode::Mono});
}

} // namespace

} // namespace nebulark
