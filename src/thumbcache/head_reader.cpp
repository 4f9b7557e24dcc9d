#include "thumbcache/head_reader.h"

#include <algorithm>

namespace nebulark {

// Moves what is not yet taken to the front of the buffer, and reads behind it. Returns false at the end of the file.
bool HeadReader::fill() {
  std::copy(buffer_.data() + at_, buffer_.data() + end_, buffer_.data());
  end_ -= at_;
  at_ = 0;
  const std::size_t got = std::fread(buffer_.data() + end_, 1, std::min(ask_, buffer_size - end_), file_);
  ask_ = buffer_size;
  end_ += got;
  return got > 0;
}

bool HeadReader::read_long(std::size_t size, std::string_view& bytes) {
  long_.assign(buffer_.data() + at_, available());
  const std::size_t got = long_.size();
  at_ = end_ = 0;
  long_.resize(size);
  bytes = long_;
  return std::fread(long_.data() + got, 1, size - got, file_) == size - got;
}

bool HeadReader::read_on(std::size_t size, std::string_view& bytes) {
  if (size > buffer_size) return read_long(size, bytes);
  while (size > available()) {
    if (!fill()) return false;
  }
  return read(size, bytes);
}

bool HeadReader::seek(std::size_t size) {
  const std::size_t outside = size - available();
  at_ = end_;
  return std::fseek(file_, static_cast<long>(outside), SEEK_CUR) == 0;
}

} // namespace nebulark
