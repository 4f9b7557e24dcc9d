// Reading the head of a file in as few system calls as can be.
//
// Standard streams seek at a price: a relative seek is a system call of its own, and throws the stream's buffer away. A
// thumbnail's tags lie in its first few hundred bytes, a dozen short steps apart. So the head is read once, into a
// buffer here, and steps inside that buffer cost nothing.

#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

namespace nebulark {

class HeadReader {
public:
  static constexpr std::size_t buffer_size = 4096;

  // Reads `file` from where it stands, forward; does not close it. The stream's own buffer is of no use to it. `ahead`
  // is how many bytes the file still has, as far as the caller knows, 0 if it does not: the first read asks for no
  // more, so that a short file is not asked twice. A wrong number costs a read, and changes nothing else.
  HeadReader(std::FILE* file, std::size_t ahead) : file_(file), ask_(ahead > 0 ? ahead : buffer_size) {}

  // The next `size` bytes; they stand until the next call. Returns false where the file ends before them.
  [[nodiscard]] bool read(std::size_t size, std::string_view& bytes) {
    if (size > available()) return read_on(size, bytes);
    bytes = std::string_view(buffer_.data() + at_, size);
    at_ += size;
    return true;
  }

  // Passes over `size` bytes, with a seek if they end outside the buffer. Returns false where seeking fails; passing
  // over the end of the file does not.
  [[nodiscard]] bool skip(std::size_t size) {
    if (size > available()) return seek(size);
    at_ += size;
    return true;
  }

private:
  [[nodiscard]] std::size_t available() const { return end_ - at_; }
  [[nodiscard]] bool read_on(std::size_t size, std::string_view& bytes);
  [[nodiscard]] bool seek(std::size_t size);
  [[nodiscard]] bool fill();
  [[nodiscard]] bool read_long(std::size_t size, std::string_view& bytes);

  std::FILE* file_;
  std::size_t ask_;                      // what the next read asks for, at the most
  std::array<char, buffer_size> buffer_; // read and not yet taken: from at_ to end_
  std::size_t at_ = 0;
  std::size_t end_ = 0;
  std::string long_; // for what the buffer cannot hold
};

} // namespace nebulark
