// A stream over bytes in memory, with the faults of a disk and of a pipe.

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
  bool seekable = true;
  std::size_t at = 0;
};

inline ssize_t read_memory(void* cookie, char* buffer, std::size_t size) {
  MemoryFile& file = *static_cast<MemoryFile*>(cookie);
  if (file.at >= file.bytes.size()) return 0;
  if (file.at >= file.readable) {
    errno = EIO;
    return -1;
  }
  const std::size_t given = file.bytes.substr(0, file.readable).copy(buffer, size, file.at);
  file.at += given;
  return static_cast<ssize_t>(given);
}

// As in a file, a place behind the end is as good as any. To ask where the stream stands is always allowed.
inline int seek_memory(void* cookie, off64_t* offset, int whence) {
  MemoryFile& file = *static_cast<MemoryFile*>(cookie);
  const auto at = static_cast<off64_t>(file.at);
  const off64_t target = whence == SEEK_CUR ? at + *offset : *offset;
  if (whence == SEEK_END || target < 0 || (!file.seekable && target != at)) {
    errno = EINVAL;
    return -1;
  }
  *offset = target;
  file.at = static_cast<std::size_t>(target);
  return 0;
}

inline FileHandle open_memory(MemoryFile& file) {
  return FileHandle(::fopencookie(&file, "rb", {read_memory, nullptr, seek_memory, nullptr}));
}

} // namespace nebulark
