#include "thumbcache/ownership.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/handles.h"
#include "scratch.h"
#include "thumbcache/plain_reader.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

bool is_nebulark(std::initializer_list<std::string_view> chunks) {
  const ScratchDirectory directory;
  return is_nebulark_thumbnail(AT_FDCWD, directory.write("thumbnail.png", png(chunks)).c_str());
}

bool is_nebulark_uri(std::string_view uri) { return is_nebulark({uri_chunk(uri)}); }

bool is_nebulark_mimetype(std::string_view mimetype) { return is_nebulark({mimetype_chunk(mimetype)}); }

TEST(NebularkFiles, HaveFiveEndingsAndFiveMimeTypes) {
  EXPECT_TRUE(std::ranges::equal(nebulark_extensions, plain_extensions));
  EXPECT_TRUE(std::ranges::equal(nebulark_mime_types, plain_mime_types));
}

TEST(IsNebularkThumbnail, IsTrueForAnEndingOfTheUri) {
  for (const std::string_view ending : plain_extensions)
    EXPECT_TRUE(is_nebulark_uri("file:///data/m31" + std::string(ending))) << ending;
  for (const std::string_view uri :
       {"/M31.FITS"sv, "/m31.XiSf"sv, "/m31.png.fits"sv, "/.kxproj"sv, "https://m31.fits"sv, ".fit"sv,
        "\0\xFF\n .fits"sv, "/m31.fits?rev=2"sv, "/m31.fit#top"sv, "/m31.fts?a#b"sv, "/m31.fts#a?b"sv,
        "/m31.fits#a#b"sv, "/m31.xisf?a?b.png"sv, "/m31.fits?"sv})
    EXPECT_TRUE(is_nebulark_uri(uri)) << testing::PrintToString(uri);
}

TEST(IsNebularkThumbnail, IsFalseForAnotherUri) {
  for (const std::string_view uri :
       {// no ending
        ""sv, "fits"sv, "/fits"sv, "/m31.png"sv, "/m31.fits.gz"sv, "/m31fits"sv, "/m31-fits"sv, "/m31.its"sv,
        "/m31.fi"sv, "/m31.xis"sv, "/stack.kxpro"sv, "/m31.f\xC9ts"sv, "/m31.FI@S"sv, "image/fits"sv,
        // an ending elsewhere
        "/m31.fitsx"sv, "/m31.fits "sv, "/m31.fits\n"sv, "/m31.fits\0"sv, "/m31.fits\0.png"sv, "/m31.fits.png"sv,
        "/m31.fits/"sv, "/m31.fits/m31.png"sv, "/m31.png?m31.fits"sv, "/m31.png#m31.fits"sv, "/m31.png#a?b.fits"sv,
        "?.fits"sv, "#.fits"sv,
        // not decoded, not cut off
        "/m31%2Efits"sv, "/m31%2efits"sv, "/m31.fit%73"sv, "/m31.fits%3Frev=2"sv, "/m31.fits%23top"sv, "/m31.fits%20"sv,
        "/m31.fits%00"sv, "/m31.fits;v=1"sv, "/m31.fits&v=1"sv})
    EXPECT_FALSE(is_nebulark_uri(uri)) << testing::PrintToString(uri);
}

TEST(IsNebularkThumbnail, ComparesWholeMimetypes) {
  for (const std::string_view mimetype : plain_mime_types)
    EXPECT_TRUE(is_nebulark_mimetype(mimetype)) << mimetype;
  for (const std::string_view mimetype : {""sv, "image/png"sv, "Image/FITS"sv, "image/fitS"sv, " image/fits"sv,
                                          "image/fits; charset=binary"sv, "image/fits\0"sv, "file:///data/m31.fits"sv})
    EXPECT_FALSE(is_nebulark_mimetype(mimetype)) << testing::PrintToString(mimetype);
}

TEST(IsNebularkThumbnail, IsTrueIfOneTagFits) {
  EXPECT_TRUE(is_nebulark({uri_chunk("m31.fits"), mimetype_chunk("image/fits")}));
  EXPECT_TRUE(is_nebulark({uri_chunk("m31.fits"), mimetype_chunk("image/png")}));
  EXPECT_TRUE(is_nebulark({uri_chunk("m31.fits.gz"), mimetype_chunk("image/fits")}));
  EXPECT_FALSE(is_nebulark({uri_chunk("m31.png"), mimetype_chunk("image/png")}));
  EXPECT_FALSE(is_nebulark({}));
}

TEST(IsNebularkThumbnail, IsFalseForWhatCannotBeOpenedAtOnceOrRead) {
  const ScratchDirectory directory;
  const std::string file = directory.write("m31.png", png({uri_chunk("m31.fits")}));
  const std::string link = directory.path() + "/link";
  const std::string pipe = directory.path() + "/pipe"; // nobody writes to it
  std::filesystem::create_symlink(file, link);
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {link, pipe, "/absent/m31.fits"s, "/dev/null/m31.fits"s, "/dev/null"s, "/"s, ""s})
    EXPECT_FALSE(is_nebulark_thumbnail(AT_FDCWD, path.c_str())) << path;
}

TEST(IsNebularkThumbnail, ReadsTheNamedFileOfTheDirectory) {
  const ScratchDirectory directory;
  (void)directory.write("m31.png", png({uri_chunk("m31.fits")}));
  (void)directory.write("m31.fits", png({uri_chunk("m31.png")}));
  const Descriptor descriptor(::open(directory.path().c_str(), O_RDONLY));
  EXPECT_TRUE(is_nebulark_thumbnail(descriptor.get(), "m31.png"));
  EXPECT_FALSE(is_nebulark_thumbnail(descriptor.get(), "m31.fits"));
}

} // namespace

} // namespace nebulark
