// Owners of open files, directories and descriptors. Each closes what it owns.

#pragma once

#include <cstdio>
#include <memory>
#include <utility>

#include <dirent.h>
#include <unistd.h>

namespace nebulark {

// The result of closing is ignored. It matters only for a file that was written: see save_preferences().
struct CloseFile {
  void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { (void)::closedir(directory); }
};

using FileHandle = std::unique_ptr<std::FILE, CloseFile>;
using DirectoryHandle = std::unique_ptr<DIR, CloseDirectory>;

// Owns a file descriptor as open() returns it; -1 is none.
class Descriptor {
public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (number_ != -1) (void)::close(number_);
  }

  [[nodiscard]] explicit operator bool() const { return number_ != -1; }
  [[nodiscard]] int get() const { return number_; }

  // Gives up the descriptor without closing it.
  [[nodiscard]] int release() { return std::exchange(number_, -1); }

private:
  int number_;
};

// Makes a stream or directory that owns the descriptor. Returns null if there is no descriptor, or if the C library
// fails; the descriptor is then closed.
[[nodiscard]] inline FileHandle stream_over(Descriptor descriptor, const char* mode) {
  if (!descriptor) return nullptr; // not every fdopen() looks at it
  FileHandle file(::fdopen(descriptor.get(), mode));
  if (file) (void)descriptor.release();
  return file;
}

[[nodiscard]] inline DirectoryHandle directory_over(Descriptor descriptor) {
  if (!descriptor) return nullptr; // some C libraries would ask the kernel
  DirectoryHandle directory(::fdopendir(descriptor.get()));
  if (directory) (void)descriptor.release();
  return directory;
}

} // namespace nebulark
