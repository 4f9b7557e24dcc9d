// The input is words of a command line, with NUL bytes between them. They change one record in turn.

#include <string>

#include "plain_preferences.h"
#include "prefs/preferences.h"
#include "targets.h"

namespace nebulark {

namespace {

void require_plain_outcome(std::string_view assignment, Preferences& preferences) {
  Preferences expected = preferences;
  const std::string rejection = plain_assign(std::string(assignment), expected);

  std::string error = "as it was";
  const bool applied = apply_assignment(assignment, preferences, error);
  require(applied == rejection.empty(), "what is accepted is what a plain reader accepts");
  require(preferences == expected, "the record is what a plain reader makes of it");
  require(error == (applied ? "as it was" : rejection), "a rejection alone has a reason, and the right one");
}

} // namespace

void assignments(std::string_view input) {
  Preferences preferences;
  for (;;) {
    const std::size_t end = input.find('\0');
    require_plain_outcome(input.substr(0, end), preferences);
    if (end == std::string_view::npos) return;
    input.remove_prefix(end + 1);
  }
}

} // namespace nebulark
