// A second reader of assignments and the preferences file, slow and plain. The tool must give the same answers.

#pragma once

#include <sstream>
#include <string>

#include "prefs/records.h"

namespace nebulark {

static_assert(preference_fields.size() == 5, "a new preference belongs in plain_assign()");

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
template <typename Spellings, typename Value>
std::string plain_set(const Spellings& spellings, const std::string& text, Value& field, const char* reason) {
  for (const auto& [value, word] : spellings) {
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
    return plain_set(switch_spellings, text, record.autostretch, "autostretch: expected on or off");
  if (name == "brightness")
    return plain_set(brightness_spellings, text, record.brightness,
                     "brightness: expected darker, standard or brighter");
  if (name == "cfa") return plain_set(cfa_spellings, text, record.cfa, "cfa: expected auto, color or mono");
  if (name == "labelformat")
    return plain_set(switch_spellings, text, record.labelformat, "labelformat: expected on or off");
  if (name == "labelcorner")
    return plain_set(label_corner_spellings, text, record.labelcorner,
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
