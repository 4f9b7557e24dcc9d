// The input is a thumbnail, where it begins like a PNG file; else it is the tags of one: the URI, a line feed, and the
// MIME type.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>

#include "targets.h"
#include "thumbcache/ownership.h"
#include "thumbcache/plain_reader.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

std::string thumbnail(std::string_view input) {
  if (input.starts_with(signature.substr(0, 4))) return std::string(input);
  const std::size_t line_feed = std::min(input.find('\n'), input.size());
  const std::string_view mimetype = input.substr(std::min(line_feed + 1, input.size()));
  return png({uri_chunk(input.substr(0, line_feed)), mimetype_chunk(mimetype), chunk("IDAT", "data")});
}

// A file with a name, in a directory of its own.
class NamedFile {
public:
  NamedFile() { require(::mkdtemp(directory_.data()) != nullptr, "there is a directory"); }
  ~NamedFile() { std::filesystem::remove_all(directory_); }
  NamedFile(const NamedFile&) = delete;
  NamedFile& operator=(const NamedFile&) = delete;

  [[nodiscard]] std::string path() const { return directory_ + "/thumbnail.png"; }

private:
  std::string directory_ = std::filesystem::temp_directory_path() / "nebulark-XXXXXX";
};

bool is_nebulark(const std::string& bytes) {
  static const NamedFile file; // each input is written over the one before it
  std::ofstream(file.path(), std::ios::binary) << bytes;
  return is_nebulark_thumbnail(AT_FDCWD, file.path().c_str());
}

} // namespace

void ownership(std::string_view input) {
  const std::string bytes = thumbnail(input);
  require(is_nebulark(bytes) == plain_is_nebulark(plain_tags(bytes)), "the answer is that of a plain reader");
}

} // namespace nebulark
