// The input is a preferences file.

#include "prefs/preferences_file.h"

#include <cerrno>
#include <string>

#include <sys/types.h>

#include "base/handles.h"
#include "plain_preferences.h"
#include "targets.h"

namespace nebulark {

namespace {

// A file on a disk that fails after the first `readable` bytes.
struct Disk {
  std::string_view bytes;
  std::size_t readable;
  std::size_t at = 0;
};

ssize_t read_disk(void* cookie, char* buffer, std::size_t size) {
  Disk& disk = *static_cast<Disk*>(cookie);
  if (disk.at == disk.bytes.size()) return 0;
  if (disk.at == disk.readable) {
    errno = EIO;
    return -1;
  }
  const std::size_t given = disk.bytes.substr(0, disk.readable).copy(buffer, size, disk.at);
  disk.at += given;
  return static_cast<ssize_t>(given);
}

Preferences read(std::string_view text, std::size_t readable) {
  Disk disk{text, readable};
  const FileHandle file(::fopencookie(&disk, "rb", {read_disk, nullptr, nullptr, nullptr}));
  return read_preferences(file.get());
}

Preferences read(std::string_view text) { return read(text, text.size()); }

} // namespace

void preferences_file(std::string_view input) {
  const Preferences preferences = read(input);
  require(preferences == plain_preferences(std::string(input)), "a plain reader reads the same");

  const std::size_t readable = input.size() / 2;
  const std::string_view lines = input.substr(0, input.substr(0, readable).rfind('\n') + 1); // npos + 1 is 0
  require(read(input, readable) == plain_preferences(std::string(lines)), "whole lines before an error count");

  const std::string written = preferences_text(preferences);
  require(read(written) == preferences, "what is written reads back the same");
  require(plain_preferences(written) == preferences, "what is written reads back the same in a plain reader");
  require(preferences_text(read(written)) == written, "what is read back is written the same");
}

} // namespace nebulark
