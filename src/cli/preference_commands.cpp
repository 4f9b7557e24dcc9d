#include "cli/preference_commands.h"

#include <cstdio>
#include <string>

#include "cli/elevation.h"
#include "prefs/listing.h"
#include "prefs/preferences.h"
#include "prefs/preferences_file.h"

namespace nebulark {

namespace {

void list(const Preferences& preferences) { (void)std::printf("%s", print_preferences(preferences).c_str()); }

int write_directly(const Preferences& preferences) {
  if (!save_preferences(preferences)) {
    (void)std::fprintf(stderr, "nebulark-ctl: could not write %s\n", preferences_path().c_str());
    return 1;
  }
  list(preferences);
  (void)std::printf("\nAlready-cached thumbnails keep their old rendering. Use\n--clear-thumb-cache to redraw them.\n");
  return 0;
}

// The second run prints its own listing and hint. This listing repeats it on purpose: it shows what the file holds now.
int write_with_elevation(Words words) {
  // Printed before elevation is tried: no password prompt may come unannounced.
  (void)std::printf(
      "Preferences are machine wide, so this needs administrator\nrights. You may be asked for your password.\n\n");
  (void)std::fflush(stdout);

  if (reexec_with_pkexec(words) != 0) {
    (void)std::fprintf(stderr, "nebulark-ctl: cannot write %s\n  Try:  sudo nebulark-ctl --set ...\n",
                       preferences_path().c_str());
    return 1;
  }
  list(load_preferences());
  return 0;
}

} // namespace

int show_preferences() {
  list(load_preferences());
  (void)std::printf("\nstored in %s%s\n", preferences_path().c_str(),
                    preferences_writable() ? "" : " (needs sudo to change)");
  return 0;
}

int set_preferences(Words words) {
  const Words assignments = words.subspan(1);
  if (assignments.empty()) {
    (void)std::fprintf(stderr, "nebulark-ctl: --set needs at least one NAME=VALUE\n");
    return 2;
  }

  Preferences preferences = load_preferences();
  for (const char* const assignment : assignments) {
    std::string error;
    if (!apply_assignment(assignment, preferences, error)) {
      (void)std::fprintf(stderr, "nebulark-ctl: %s\n", error.c_str());
      return 2;
    }
  }
  return preferences_writable() ? write_directly(preferences) : write_with_elevation(words);
}

} // namespace nebulark
