// nebulark-ctl: the command-line companion of the Nebulark thumbnailer.
//
// The first argument is a command word and chooses one command; what follows belongs to that command:
//
//     --help, -h           cli/usage.h
//     --version            here
//     --prefs, --set       cli/preference_commands.h, over prefs/; with cli/elevation.h where rights are missing
//     --clear-thumb-cache  thumbcache/clearing.h
//
// Command words are whole: no abbreviations, no values behind an equals sign. Words that a command does not use are not
// looked at. What a command returns is the exit status: 0 done, 1 could not be done, 2 wrongly asked.

#include <array>
#include <cstdio>
#include <span>
#include <string_view>

#include "cli/preference_commands.h"
#include "cli/usage.h"
#include "thumbcache/clearing.h"
#include "version.h"

namespace nebulark {

namespace {

// The command line from the command word on.
using Words = std::span<char* const>;

int help(Words) {
  print_usage();
  return 0;
}

int print_version(Words) {
  (void)std::printf("nebulark-ctl %s\n", version);
  return 0;
}

int prefs(Words) { return show_preferences(); }

// "--all" counts in this one place: a slip must not widen what is deleted.
int clear(Words words) {
  const bool all = words.size() > 1 && std::string_view(words[1]) == "--all";
  return clear_thumbnail_cache(all);
}

struct Command {
  std::string_view word;
  int (*run)(Words words);
};

constexpr std::array<Command, 6> commands{{
    {"--help", help},
    {"-h", help},
    {"--version", print_version},
    {"--prefs", prefs},
    {"--set", set_preferences},
    {"--clear-thumb-cache", clear},
}};

int run(Words words) {
  if (words.empty()) {
    print_usage();
    return 2;
  }
  for (const Command& command : commands) {
    if (command.word == words.front()) return command.run(words);
  }
  (void)std::fprintf(stderr, "nebulark-ctl: unknown command %s\n", words.front());
  print_usage();
  return 2;
}

} // namespace

} // namespace nebulark

int main(int argc, char** argv) {
  const std::span<char* const> arguments(argv, static_cast<std::size_t>(argc));
  return nebulark::run(arguments.subspan(arguments.empty() ? 0 : 1));
}
