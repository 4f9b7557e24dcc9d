// Assignments and the preferences file once more, slow and plain: every assignment that is accepted, and what it does.
// What the tool answers is held against what this answers for the same text.

#pragma once

#include <map>
#include <sstream>
#include <string>

#include "prefs/preferences.h"

namespace nebulark {

inline const std::map<std::string, void (*)(Preferences&)> plain_assignments{
    {"autostretch=1", [](Preferences& record) { record.autostretch = true; }},
    {"autostretch=true", [](Preferences& record) { record.autostretch = true; }},
    {"autostretch=yes", [](Preferences& record) { record.autostretch = true; }},
    {"autostretch=on", [](Preferences& record) { record.autostretch = true; }},
    {"autostretch=0", [](Preferences& record) { record.autostretch = false; }},
    {"autostretch=false", [](Preferences& record) { record.autostretch = false; }},
    {"autostretch=no", [](Preferences& record) { record.autostretch = false; }},
    {"autostretch=off", [](Preferences& record) { record.autostretch = false; }},
    {"brightness=darker", [](Preferences& record) { record.brightness = Brightness::Darker; }},
    {"brightness=standard", [](Preferences& record) { record.brightness = Brightness::Standard; }},
    {"brightness=brighter", [](Preferences& record) { record.brightness = Brightness::Brighter; }},
    {"cfa=auto", [](Preferences& record) { record.cfa = CfaMode::Auto; }},
    {"cfa=color", [](Preferences& record) { record.cfa = CfaMode::Color; }},
    {"cfa=mono", [](Preferences& record) { record.cfa = CfaMode::Mono; }},
    {"labelformat=1", [](Preferences& record) { record.labelformat = true; }},
    {"labelformat=true", [](Preferences& record) { record.labelformat = true; }},
    {"labelformat=yes", [](Preferences& record) { record.labelformat = true; }},
    {"labelformat=on", [](Preferences& record) { record.labelformat = true; }},
    {"labelformat=0", [](Preferences& record) { record.labelformat = false; }},
    {"labelformat=false", [](Preferences& record) { record.labelformat = false; }},
    {"labelformat=no", [](Preferences& record) { record.labelformat = false; }},
    {"labelformat=off", [](Preferences& record) { record.labelformat = false; }},
    {"labelcorner=topleft", [](Preferences& record) { record.labelcorner = LabelCorner::TopLeft; }},
    {"labelcorner=topright", [](Preferences& record) { record.labelcorner = LabelCorner::TopRight; }},
    {"labelcorner=bottomleft", [](Preferences& record) { record.labelcorner = LabelCorner::BottomLeft; }},
    {"labelcorner=bottomright", [](Preferences& record) { record.labelcorner = LabelCorner::BottomRight; }},
};

inline const std::map<std::string, std::string> plain_rejections{
    {"autostretch", "autostretch: expected on or off"},
    {"brightness", "brightness: expected darker, standard or brighter"},
    {"cfa", "cfa: expected auto, color or mono"},
    {"labelformat", "labelformat: expected on or off"},
    {"labelcorner", "labelcorner: expected topleft, topright, bottomleft or bottomright"},
};

inline std::string plain_word(std::string text) {
  const auto is_blank = [](char byte) { return byte == ' ' || byte == '\t' || byte == '\r'; };
  while (!text.empty() && is_blank(text.front()))
    text.erase(0, 1);
  while (!text.empty() && is_blank(text.back()))
    text.pop_back();
  for (char& byte : text)
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte + 32);
  return text;
}

// Returns the reason of a rejection, or "".
inline std::string plain_assign(const std::string& assignment, Preferences& record) {
  const std::size_t equals = assignment.find('=');
  if (equals == std::string::npos) return "expected name=value";
  const std::string name = plain_word(assignment.substr(0, equals));
  const std::string value = plain_word(assignment.substr(equals + 1));
  if (!plain_rejections.contains(name)) return "unknown preference: " + name;
  if (!plain_assignments.contains(name + "=" + value)) return plain_rejections.at(name);
  plain_assignments.at(name + "=" + value)(record);
  return "";
}

// Comments and sections need no rule of their own here: what begins with their signs is not the name of a preference.
inline Preferences plain_preferences(const std::string& text) {
  Preferences record{true, Brightness::Standard, CfaMode::Auto, false, LabelCorner::BottomRight};
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    (void)plain_assign(line, record);
  return record;
}

} // namespace nebulark
