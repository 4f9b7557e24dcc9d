// Owners of what the C library opens. A handle closes on every way out of its scope.

#pragma once

#include <cstdio>
#include <memory>

#include <dirent.h>

namespace nebulark {

// What closing answers is not looked at. A file that was read loses nothing by it; the one file that is written is
// closed by hand where it is written.
struct CloseFile {
  void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { (void)::closedir(directory); }
};

using FileHandle = std::unique_ptr<std::FILE, CloseFile>;
using DirectoryHandle = std::unique_ptr<DIR, CloseDirectory>;

} // namespace nebulark
