// Whose a cached thumbnail is: the policy over what its tags say.

#pragma once

#include <array>
#include <string_view>

namespace nebulark {

// The endings of the files that Nebulark draws, in lower case, and their MIME types.
inline constexpr std::array<std::string_view, 5> nebulark_extensions{".xisf", ".fits", ".fit", ".fts", ".kxproj"};
inline constexpr std::array<std::string_view, 5> nebulark_mime_types{"image/x-xisf", "application/fits", "image/fits",
                                                                     "image/x-fits", "application/x-kxproj"};

// Whether a thumbnail, named as for openat(), was drawn for one of Nebulark's files: its URI, less query and fragment,
// ends in one of nebulark_extensions (in any case), or its MIME type is one of nebulark_mime_types (to the byte).
//
// False for what cannot be opened at once: a symbolic link, which is not followed; a file without read permission; one
// on which another program still holds a write lease. A pipe is not waited for.
[[nodiscard]] bool is_nebulark_thumbnail(int directory, const char* name);

} // namespace nebulark
