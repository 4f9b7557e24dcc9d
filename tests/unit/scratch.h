// A directory for the files of a test.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace nebulark {

// A new directory, removed at the end with its contents.
class ScratchDirectory {
public:
  ScratchDirectory() {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no directory for files");
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

  // Makes a new file, in the place of an older one, and returns its path.
  [[nodiscard]] std::string write(const std::string& name, std::string_view bytes) const {
    const std::string file = path_ + "/" + name;
    std::filesystem::remove(file); // on some file systems much faster than to overwrite it
    if (!(std::ofstream(file, std::ios::binary) << bytes).flush()) throw std::runtime_error("no file");
    return file;
  }

private:
  std::string path_ = std::filesystem::temp_directory_path() / "nebulark-XXXXXX";
};

} // namespace nebulark
