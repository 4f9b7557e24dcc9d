// The text tags in a PNG file that say what a thumbnail was drawn for.
//
// A PNG file is an 8-byte signature, then chunks: the length of the data (4 bytes, big-endian), a type (4 bytes), the
// data, and a CRC (4 bytes). The data of a tEXt chunk is a keyword, a NUL byte, and the text in Latin-1. The
// freedesktop thumbnail standard asks for the source file's URI under "Thumb::URI", and offers its MIME type under
// "Thumb::Mimetype".
//
// Reading ends at the image data (IDAT) and at any chunk of more than 1 MiB. Tags in compressed or international text
// chunks (zTXt, iTXt) are ignored. CRCs are not checked.

#pragma once

#include <string>

namespace nebulark {

// The values as in the file, which may hold any byte. Empty where a tag is absent or empty.
struct ThumbnailTags {
  std::string uri;
  std::string mimetype;
};

// Reads the tags of an open file by offset; the descriptor's position is neither used nor moved. The last tag of a kind
// wins, even if it is empty. There are none if the file is no PNG file or cannot be read by offset, such as a pipe or a
// directory. If the file is cut short, or a text is too long for memory, the tags before that place count.
[[nodiscard]] ThumbnailTags read_thumbnail_tags(int file);

} // namespace nebulark
