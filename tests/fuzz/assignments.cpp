// The input is words of a command line, with NUL bytes between them. They change one record in turn.

#include <string>

#include "prefs/plain_preferences.h"
#include "targets.h"

namespace nebulark {

namespace {

void require_plain_outcome(std::string_view assignment, Preferences& preferences) {
  Preferences expected = preferences;
  const std::string rejection = plain_assign(std::string(assignment), expected);

  std::string error = "as it was";
  const bool applied = apply_assignment(assignment, preferences, error);
  require(applied == rejection.empty(), "a plain reader accepts the same");
  require(preferences == expected, "a plain reader makes the same record");
  require(error == (applied ? "as it was" : rejection), "only a rejection has a reason, and it is right");
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
