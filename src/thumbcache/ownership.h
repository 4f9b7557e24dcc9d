// Whose a cached thumbnail is, by the text tags in its PNG file.
//
// A PNG file is an 8-byte signature, then chunks: a length of the data (4 bytes, big-endian), a type (4 bytes), the
// data, and a CRC (4 bytes). The data of a tEXt chunk is a keyword, a NUL byte, and the text in Latin-1. The
// freedesktop thumbnail standard asks for the source file's URI under "Thumb::URI", and offers its MIME type under
// "Thumb::Mimetype".
//
// Only the head of the file counts: reading ends at the image data (IDAT) and at any chunk of more than 1 MiB, and tags
// in compressed or international text chunks (zTXt, iTXt) are not seen. CRCs are not checked.

#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

namespace nebulark {

// The endings of the files that Nebulark draws, in lower case, and their MIME types.
inline constexpr std::array<std::string_view, 5> nebulark_extensions{".xisf", ".fits", ".fit", ".fts", ".kxproj"};
inline constexpr std::array<std::string_view, 5> nebulark_mime_types{"image/x-xisf", "application/fits", "image/fits",
                                                                     "image/x-fits", "application/x-kxproj"};

// The values as they stand in the file, any byte included; empty where a tag is absent or empty.
struct ThumbnailTags {
  std::string uri;
  std::string mimetype;
};

// Reads the tags of an open file that stands at its start, and leaves the file open, standing anywhere. The last tag of
// a kind wins, an empty one too. A file that is no PNG has no tags; one that breaks off or is malformed has those that
// come before that place.
//
// `size` is the file's size in bytes where the caller knows it, else 0. It spares reading a short file twice, and a
// wrong one changes nothing else.
[[nodiscard]] ThumbnailTags read_thumbnail_tags(std::FILE* file, std::size_t size = 0);

// Whether the thumbnail at `path` was drawn for one of Nebulark's files: its URI, less query and fragment, ends in one
// of nebulark_extensions (in any case), or its MIME type is one of nebulark_mime_types (to the byte). A file that
// cannot be opened is nobody's: false. `size` as above.
[[nodiscard]] bool is_nebulark_thumbnail(const std::string& path, std::size_t size = 0);

} // namespace nebulark
