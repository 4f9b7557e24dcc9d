#include "thumbcache/ownership.h"

#include <array>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/handles.h"
#include "near_misses.h"
#include "scratch.h"
#include "thumbcache/png.h"

namespace nebulark {

namespace {

using std::string_view_literals::operator""sv;

constexpr std::array extensions{".xisf"sv, ".fits"sv, ".fit"sv, ".fts"sv, ".kxproj"sv};
constexpr std::array mime_types{"image/x-xisf"sv, "application/fits"sv, "image/fits"sv, "image/x-fits"sv,
                                "application/x-kxproj"sv};

bool is_nebulark_file(const std::string& path) { return is_nebulark_thumbnail(AT_FDCWD, path.c_str()); }

bool is_nebulark(std::initializer_list<std::string_view> chunks) {
  const ScratchDirectory directory;
  const std::string file = directory.path + "/thumbnail.png";
  write(file, png(chunks) + chunk("IDAT", "data") + chunk("IEND", ""));
  return is_nebulark_file(file);
}

bool is_nebulark_uri(std::string_view uri) { return is_nebulark({uri_chunk(uri)}); }

bool is_nebulark_mimetype(std::string_view mimetype) { return is_nebulark({mimetype_chunk(mimetype)}); }

TEST(NebularkExtensions, AreTheseFive) { EXPECT_EQ(nebulark_extensions, extensions); }

TEST(NebularkMimeTypes, AreTheseFive) { EXPECT_EQ(nebulark_mime_types, mime_types); }

TEST(IsNebularkThumbnail, IsTrueForAnEndingOfTheUri) {
  for (const std::string_view ending : extensions)
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

TEST(IsNebularkThumbnail, ComparesEveryByteOfAnEndingInEitherCase) {
  for (const std::string_view ending : extensions) {
    for (std::size_t place = 0; place < ending.size(); ++place) {
      std::string uri = "file:///data/m31" + std::string(ending);
      char& byte = uri[uri.size() - ending.size() + place];
      byte = '~';
      EXPECT_FALSE(is_nebulark_uri(uri)) << uri;
      byte = static_cast<char>(ending[place] ^ 0x20); // the other case; for the dot another sign
      EXPECT_EQ(is_nebulark_uri(uri), place > 0) << uri;
    }
  }
}

TEST(IsNebularkThumbnail, ComparesEveryByteOfAMimetype) {
  for (const std::string_view mimetype : mime_types) {
    EXPECT_TRUE(is_nebulark_mimetype(mimetype)) << mimetype;
    for (const std::string& text : near_misses(mimetype))
      EXPECT_FALSE(is_nebulark_mimetype(text)) << testing::PrintToString(text);
  }
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

TEST(IsNebularkThumbnail, IsFalseForAFileThatCannotBeOpenedOrRead) {
  for (const char* const path : {"/absent/m31.fits", "/dev/null/m31.fits", "/dev/null", "/", ""})
    EXPECT_FALSE(is_nebulark_file(path)) << path;
}

TEST(IsNebularkThumbnail, IsFalseForAFileThatTheUserMayNotRead) {
  const OrdinaryUser user;
  if (!user.is_one) GTEST_SKIP() << "root reads every file, and cannot become another user here";
  const ScratchDirectory directory;
  const std::string file = directory.path + "/thumbnail.png";
  write(file, png({uri_chunk("m31.fits")}));
  EXPECT_TRUE(is_nebulark_file(file));
  const Mode unreadable(file, 0000);
  EXPECT_FALSE(is_nebulark_file(file));
}

TEST(IsNebularkThumbnail, IsFalseForALinkAndForAPipeThatNobodyWritesTo) {
  const ScratchDirectory directory;
  write(directory.path + "/m31.png", png({uri_chunk("m31.fits")}));
  std::filesystem::create_symlink("m31.png", directory.path + "/link");
  ASSERT_EQ(::mkfifo((directory.path + "/pipe").c_str(), 0600), 0);
  EXPECT_FALSE(is_nebulark_file(directory.path + "/link"));
  EXPECT_FALSE(is_nebulark_file(directory.path + "/pipe"));
}

TEST(IsNebularkThumbnail, ReadsTheNamedFileOfTheDirectoryAndLeavesNothingOpen) {
  const ScratchDirectory directory;
  write(directory.path + "/m31.png", png({uri_chunk("m31.fits")}));
  write(directory.path + "/m31.fits", png({uri_chunk("m31.png")}));
  const Descriptor descriptor(::open(directory.path.c_str(), O_RDONLY));
  const int before = next_descriptor();
  EXPECT_TRUE(is_nebulark_thumbnail(descriptor.get(), "m31.png"));
  EXPECT_FALSE(is_nebulark_thumbnail(descriptor.get(), "m31.fits"));
  EXPECT_FALSE(is_nebulark_thumbnail(descriptor.get(), "absent.png"));
  EXPECT_EQ(next_descriptor(), before);
}

} // namespace

} // namespace nebulark
