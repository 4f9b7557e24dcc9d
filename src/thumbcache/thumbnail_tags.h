// The text tags in a PNG file that say what a thumbnail was drawn for.
//
// A PNG file is an 8-byte signature, then chunks: the length of the data (4 bytes, big-endian), a type (4 bytes), the
// data, and a CRC (4 bytes). The data of a tEXt chunk is a keyword, a NUL byte, and the text in Latin-1. The
// freedesktop thumbnail standard asks for the source file's URI under "Thumb::URI", and offers its MIME type under
// "Thumb::Mimetype".
//
// Only the head of the file counts: reading ends at the image data (IDAT) and at any chunk of more than 1 MiB, and tags
// in compressed or international text chunks (zTXt, iTXt) are not seen. CRCs are not checked.

#pragma once

#include <string>

namespace nebulark {

// The values as they stand in the file, any byte included. Empty where a tag is absent or empty.
struct ThumbnailTags {
  std::string uri;
  std::string mimetype;
};

// Reads the tags of an open file by offset, so that it does not matter where the descriptor stands, nor does it move.
// The last tag of a kind wins, even if it is empty. What is no PNG file has no tags, nor has what cannot be read by
// offset, such as a pipe or a directory. A file that breaks off, is malformed, or holds a text that memory has no room
// for, has the tags that come before that place.
[[nodiscard]] ThumbnailTags read_thumbnail_tags(int file);

} // namespace nebulark
