#include "cli/usage.h"

#include <cstdio>

namespace nebulark {

namespace {

// Leaves out "-h", and "--all": that deletes other programs' thumbnails too, and the manual explains it.
constexpr char usage_text[] = R"(nebulark-ctl: set how Nebulark draws thumbnails, and clear the cached ones

usage:
  nebulark-ctl --prefs             show rendering preferences
  nebulark-ctl --set NAME=VALUE... change them (asks for a password)

  Preferences: autostretch=on|off  brightness=darker|standard|brighter
               cfa=auto|color|mono  labelformat=on|off
               labelcorner=topleft|topright|bottomleft|bottomright
  They are machine wide: GNOME's thumbnail sandbox cannot read a per-user
  file, so a per-user setting would silently do nothing there.
  nebulark-ctl --clear-thumb-cache drop cached and failed thumbnails

  --version   version and exit
  --help      this text

Documentation: /usr/share/doc/nebulark/index.html
)";

} // namespace

void print_usage() { (void)std::fputs(usage_text, stderr); }

} // namespace nebulark
