// nebulark-ctl: the command-line companion of the Nebulark thumbnailer.
//
// The first argument is the command word; what follows belongs to that command:
//
//     --help, -h           cli/usage.h
//     --version            here
//     --prefs, --set       cli/preference_commands.h, over prefs/; with cli/elevation.h where rights are missing
//     --clear-thumb-cache  thumbcache/clearing.h
//
// Command words are matched whole: no abbreviations, no values after an equals sign. A command ignores words that it
// does not use. It returns the exit status: 0 done, 1 failed, 2 usage error.

#include <array>
#include <cstdio>
#include <string_view>

#include "cli/preference_commands.h"
#include "cli/usage.h"
#include "cli/words.h"
#include "thumbcache/clearing.h"
#include "version.h"

namespace nebulark {

namespace {

int help(Words) {
  print_usage();
  return 0;
}

int print_version(Words) {
  (void)std::printf("nebulark-ctl %s\n", version);
  return 0;
}

int prefs(Words) { return show_preferences(); }

// Only the next word can be "--all": a typo must never delete more.
int clear(Words words) {
  const bool all = words.size() > 1 && std::string_view(words[1]) == "--all";
  return clear_thumbnail_cache(all);
}

struct Command {
  std::string_view word;
  int (*run)(Words words); // starting with the command word
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
  const nebulark::Words arguments(argv, static_cast<std::size_t>(argc));
  return nebulark::run(arguments.subspan(arguments.empty() ? 0 : 1));
}
