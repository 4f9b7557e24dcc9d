// Which cached thumbnails are Nebulark's, by their tags.

#pragma once

#include <array>
#include <string_view>

namespace nebulark {

// The files that Nebulark draws: the endings of their names, in lower case, and their MIME types.
inline constexpr std::array<std::string_view, 5> nebulark_extensions{".xisf", ".fits", ".fit", ".fts", ".kxproj"};
inline constexpr std::array<std::string_view, 5> nebulark_mime_types{"image/x-xisf", "application/fits", "image/fits",
                                                                     "image/x-fits", "application/x-kxproj"};

// Whether a thumbnail, named as for openat(), was drawn for one of Nebulark's files: its URI without query and fragment
// ends in one of nebulark_extensions (in any case), or its MIME type is one of nebulark_mime_types (byte for byte).
//
// False for what cannot be opened at once: a symbolic link, a file without read permission, a file on which another
// program holds a write lease. Never waits for a pipe.
[[nodiscard]] bool is_nebulark_thumbnail(int directory, const char* name);

} // namespace nebulark
