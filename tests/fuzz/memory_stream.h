// A stream over bytes in memory, with the faults of a disk.

#pragma once

#include <cerrno>
#include <cstdio>
#include <string_view>

#include <sys/types.h>

#include "base/handles.h"

namespace nebulark {

struct MemoryFile {
  std::string_view bytes;
  std::size_t readable = bytes.size(); // from there on reading fails
  std::size_t at = 0;
};

inline ssize_t read_memory(void* cookie, char* buffer, std::size_t size) {
  MemoryFile& file = *static_cast<MemoryFile*>(cookie);
  if (file.at == file.bytes.size()) return 0;
  if (file.at == file.readable) {
    errno = EIO;
    return -1;
  }
  const std::size_t given = file.bytes.substr(0, file.readable).copy(buffer, size, file.at);
  file.at += given;
  return static_cast<ssize_t>(given);
}

inline FileHandle open_memory(MemoryFile& file) {
  return FileHandle(::fopencookie(&file, "rb", {read_memory, nullptr, nullptr, nullptr}));
}

} // namespace nebulark
