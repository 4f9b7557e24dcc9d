// The input is a preferences file.

#include "prefs/preferences_file.h"

#include <string>

#include "memory_stream.h"
#include "plain_preferences.h"
#include "targets.h"

namespace nebulark {

namespace {

// What is read of a file that fails after so many bytes.
Preferences read(std::string_view text, std::size_t readable) {
  MemoryFile file{text, readable};
  return read_preferences(open_memory(file).get());
}

Preferences read(std::string_view text) { return read(text, text.size()); }

void require_the_whole_lines_before_an_error(std::string_view text) {
  const std::size_t readable = text.size() / 2;
  const std::string_view lines = text.substr(0, text.substr(0, readable).rfind('\n') + 1); // npos + 1 is 0
  require(read(text, readable) == plain_preferences(std::string(lines)), "whole lines before an error count");
}

} // namespace

void preferences_file(std::string_view input) {
  const Preferences preferences = read(input);
  require(preferences == plain_preferences(std::string(input)), "the file reads as a plain reader reads it");
  require_the_whole_lines_before_an_error(input);

  const std::string written = preferences_text(preferences);
  require(read(written) == preferences, "what is written reads back the same");
  require(plain_preferences(written) == preferences, "what is written reads back the same in a plain reader");
  require(preferences_text(read(written)) == written, "what is read back is written the same");
}

} // namespace nebulark
