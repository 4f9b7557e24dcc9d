// The input is the text of a preferences file.

#include "prefs/preferences_file.h"

#include <string>

#include "plain_preferences.h"
#include "targets.h"

namespace nebulark {

void preferences_file(std::string_view input) {
  const Preferences preferences = preferences_from_text(input);
  require(preferences == plain_preferences(std::string(input)), "the text reads as a plain reader reads it");

  const std::string written = preferences_text(preferences);
  require(preferences_from_text(written) == preferences, "what is written reads back the same");
  require(plain_preferences(written) == preferences, "what is written reads back the same in a plain reader");
  require(preferences_text(preferences_from_text(written)) == written, "what is read back is written the same");
}

} // namespace nebulark
