#include "prefs/preferences_file.h"

#include <array>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/handles.h"
#include "prefs/text.h"

namespace nebulark {

namespace {

constexpr std::string_view file_path = "/usr/share/nebulark/preferences.conf";
static_assert(file_path.rfind('/') != std::string_view::npos);

std::string directory_path() { return std::string(file_path.substr(0, file_path.rfind('/'))); }

// The file spells its switches true and false, as the settings window does; people are shown on and off.
std::string_view stored(bool value) { return value ? "true" : "false"; }
std::string_view stored(Brightness value) { return brightness_word(value); }
std::string_view stored(CfaMode value) { return cfa_word(value); }
std::string_view stored(LabelCorner value) { return label_corner_word(value); }

bool is_comment_or_section(char first) { return first == '#' || first == ';' || first == '['; }

void apply_line(std::string_view line, Preferences& preferences) {
  const std::string text = trim_blanks(line);
  if (text.empty() || is_comment_or_section(text.front())) return;
  std::string error; // there is nobody to tell
  (void)apply_assignment(text, preferences, error);
}

// The file's whole text; where reading fails part way, the whole lines before that point.
std::string read_text(std::FILE* file) {
  std::string text;
  std::array<char, 4096> part;
  std::size_t got = 0;
  do {
    got = std::fread(part.data(), 1, part.size(), file);
    text.append(part.data(), got);
  } while (got == part.size());                                  // fewer: the end, or an error
  if (std::ferror(file) != 0) text.resize(text.rfind('\n') + 1); // no line feed: npos + 1 is 0
  return text;
}

} // namespace

std::string preferences_path() { return std::string(file_path); }

Preferences preferences_from_text(std::string_view text) {
  Preferences preferences;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    apply_line(text.substr(0, end), preferences);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return preferences;
}

std::string preferences_text(const Preferences& preferences) {
  std::string text = "# Nebulark rendering preferences, machine wide.\n"
                     "# Written by nebulark-ctl --set or the settings window.\n"
                     "[General]\n";
  for_each_preference([&](const auto& field) {
    text += field.name;
    text += '=';
    text += stored(preferences.*field.member);
    text += '\n';
  });
  return text;
}

Preferences load_preferences() {
  const FileHandle file(std::fopen(preferences_path().c_str(), "r"));
  if (!file) return {};
  return preferences_from_text(read_text(file.get()));
}

bool save_preferences(const Preferences& preferences) {
  const std::string path = preferences_path();
  const std::string temporary = path + ".tmp";

  // A directory that could not be made shows when the file in it is opened.
  (void)::mkdir(directory_path().c_str(), 0755);

  // Whatever the umask, nobody else may open the new file for writing: they could still write once it is in place.
  FileHandle file =
      stream_over(Descriptor(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)), "w");
  if (!file) return false;
  (void)std::fputs(preferences_text(preferences).c_str(), file.get());
  if (std::ferror(file.get()) != 0) return false;

  // The text leaves the buffer here, and what closing answers is not looked at by design: the save goes on.
  file.reset();

  // Readable by every user whatever the umask. Where that cannot be had, the new preferences still count.
  (void)::chmod(temporary.c_str(), 0644);
  return std::rename(temporary.c_str(), path.c_str()) == 0;
}

bool preferences_writable() {
  const std::string path = preferences_path();
  if (::access(path.c_str(), W_OK) == 0) return true;
  if (::access(path.c_str(), F_OK) == 0) return false;
  return ::access(directory_path().c_str(), W_OK) == 0;
}

} // namespace nebulark
