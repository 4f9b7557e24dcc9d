// The input is a preferences file.

#include "prefs/preferences_file.h"

#include <string>

#include <sys/types.h>

#include "base/handles.h"
#include "prefs/plain_preferences.h"
#include "targets.h"

namespace nebulark {

namespace {

struct Disk {
  std::string_view rest; // still to be read
  bool fails;            // after the rest
};

ssize_t read_disk(void* cookie, char* buffer, std::size_t size) {
  Disk& disk = *static_cast<Disk*>(cookie);
  if (disk.rest.empty() && disk.fails) return -1;
  const std::size_t given = disk.rest.copy(buffer, size);
  disk.rest.remove_prefix(given);
  return static_cast<ssize_t>(given);
}

Preferences read(std::string_view text, bool fails = false) {
  Disk disk{text, fails};
  const FileHandle file(::fopencookie(&disk, "rb", {read_disk, nullptr, nullptr, nullptr}));
  return read_preferences(file.get());
}

} // namespace

void preferences_file(std::string_view input) {
  const Preferences preferences = read(input);
  require(preferences == plain_preferences(std::string(input)), "a plain reader reads the same");

  const std::string_view half = input.substr(0, input.size() / 2);
  const std::string_view lines = half.substr(0, half.rfind('\n') + 1); // npos + 1 is 0
  require(read(half, true) == plain_preferences(std::string(lines)), "whole lines before an error count");

  const std::string written = preferences_text(preferences);
  require(read(written) == preferences, "what is written reads back the same");
  require(plain_preferences(written) == preferences, "what is written reads back the same in a plain reader");
}

} // namespace nebulark
