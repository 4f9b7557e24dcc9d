// A second reader of assignments and the preferences file, slow and plain. The tool must give the same answers.

#pragma once

#include <initializer_list>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "prefs/preferences.h"

namespace nebulark {

static_assert(preference_fields.size() == 5, "a new preference belongs in PrintTo() and plain_assign()");

inline void PrintTo(const Preferences& preferences, std::ostream* out) {
  *out << "{autostretch " << preferences.autostretch << ", brightness " << static_cast<int>(preferences.brightness)
       << ", cfa " << static_cast<int>(preferences.cfa) << ", labelformat " << preferences.labelformat
       << ", labelcorner " << static_cast<int>(preferences.labelcorner) << "}";
}

template <typename Value>
using PlainWords = std::initializer_list<std::pair<std::string_view, Value>>;

inline const PlainWords<bool> plain_switches{{"1", true},  {"true", true},   {"yes", true}, {"on", true},
                                             {"0", false}, {"false", false}, {"no", false}, {"off", false}};
inline const PlainWords<Brightness> plain_brightness{
    {"darker", Brightness::Darker}, {"standard", Brightness::Standard}, {"brighter", Brightness::Brighter}};
inline const PlainWords<CfaMode> plain_cfa{{"auto", CfaMode::Auto}, {"color", CfaMode::Color}, {"mono", CfaMode::Mono}};
inline const PlainWords<LabelCorner> plain_label_corner{{"topleft", LabelCorner::TopLeft},
                                                        {"topright", LabelCorner::TopRight},
                                                        {"bottomleft", LabelCorner::BottomLeft},
                                                        {"bottomright", LabelCorner::BottomRight}};

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

// These return the reason for a rejection, or "".
template <typename Value>
std::string plain_set(Value& field, PlainWords<Value> words, const std::string& text, const char* reason) {
  for (const auto& [word, value] : words) {
    if (word != text) continue;
    field = value;
    return "";
  }
  return reason;
}

inline std::string plain_assign(const std::string& assignment, Preferences& record) {
  const std::size_t equals = assignment.find('=');
  if (equals == std::string::npos) return "expected name=value";
  const std::string name = plain_word(assignment.substr(0, equals));
  const std::string text = plain_word(assignment.substr(equals + 1));
  if (name == "autostretch")
    return plain_set(record.autostretch, plain_switches, text, "autostretch: expected on or off");
  if (name == "brightness")
    return plain_set(record.brightness, plain_brightness, text, "brightness: expected darker, standard or brighter");
  if (name == "cfa") return plain_set(record.cfa, plain_cfa, text, "cfa: expected auto, color or mono");
  if (name == "labelformat")
    return plain_set(record.labelformat, plain_switches, text, "labelformat: expected on or off");
  if (name == "labelcorner")
    return plain_set(record.labelcorner, plain_label_corner, text,
                     "labelcorner: expected topleft, topright, bottomleft or bottomright");
  return "unknown preference: " + name;
}

// Comments and sections need no rule: no name begins with their signs.
inline Preferences plain_preferences(const std::string& text) {
  Preferences record{true, Brightness::Standard, CfaMode::Auto, false, LabelCorner::BottomRight};
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    (void)plain_assign(line, record);
  return record;
}

} // namespace nebulark
