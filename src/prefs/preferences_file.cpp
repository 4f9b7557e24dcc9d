#include "prefs/preferences_file.h"

#include <cstdlib>
#include <new>

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

// The file stores true and false, as the settings window does; the listing shows on and off.
std::string_view stored_word(const PreferenceField& field, const Preferences& preferences) {
  const std::string_view word = word_of(field, preferences);
  if (!is_switch(field)) return word;
  return word == "on" ? "true" : "false";
}

bool is_comment_or_section(char first) { return first == '#' || first == ';' || first == '['; }

void apply_line(std::string_view line, Preferences& preferences) {
  const std::string text = trim_blanks(line.substr(0, line.find('\n')));
  if (text.empty() || is_comment_or_section(text.front())) return;
  std::string error; // a bad line is skipped without a message
  (void)apply_assignment(text, preferences, error);
}

// The buffer that getline() allocates and grows.
struct LineBuffer {
  LineBuffer& operator=(LineBuffer&&) = delete;
  ~LineBuffer() { std::free(text); }

  char* text = nullptr;
  std::size_t size = 0;
};

} // namespace

std::string preferences_path() { return std::string(file_path); }

Preferences read_preferences(std::FILE* file) {
  Preferences preferences;
  LineBuffer line;
  try {
    ssize_t length = 0;
    // When an error cuts a line short, getline() still returns its first part.
    while ((length = ::getline(&line.text, &line.size, file)) != -1 && std::ferror(file) == 0)
      apply_line({line.text, static_cast<std::size_t>(length)}, preferences);
  } catch (const std::bad_alloc&) {
    // A line too long for memory ends the reading, as an error does.
  }
  return preferences;
}

std::string preferences_text(const Preferences& preferences) {
  std::string text = "# Nebulark rendering preferences, machine wide.\n"
                     "# Written by nebulark-ctl --set or the settings window.\n"
                     "[General]\n";
  for (const PreferenceField& field : preference_fields)
    text.append(field.name).append("=").append(stored_word(field, preferences)).append("\n");
  return text;
}

Preferences load_preferences() {
  const FileHandle file(std::fopen(preferences_path().c_str(), "r"));
  return file ? read_preferences(file.get()) : Preferences{};
}

bool save_preferences(const Preferences& preferences) {
  const std::string path = preferences_path();
  const std::string temporary = path + ".tmp";

  // If the directory cannot be made, opening the file in it fails.
  (void)::mkdir(directory_path().c_str(), 0755);

  // Whatever the umask, no other user may open the new file for writing: they could write to it even after the rename.
  FileHandle file =
      stream_over(Descriptor(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)), "w");
  if (!file) return false;
  (void)std::fputs(preferences_text(preferences).c_str(), file.get());
  if (std::ferror(file.get()) != 0) return false;

  // Closing writes the buffered text. Its result is ignored by design: the save goes on.
  file.reset();

  // Every user may read it, whatever the umask. If that fails, the save still goes on.
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
