/* Fills a thumbnail cache with files that begin like real thumbnails.
 *
 *     generate CACHE COUNT PERCENT          writes COUNT files below CACHE/thumbnails, PERCENT of them thumbnails of
 *                                           astronomical files, the rest of other files
 *     generate CACHE COUNT PERCENT --holes  the same with a hole for the image data, so that a file takes one block
 *
 * The same arguments give the same names and bytes, even where some of the files exist, and a larger cache begins with
 * the files of a smaller one. Chunks, their order and their keywords are those of GNOME, Xfce and KDE; KDE compresses a
 * long URI. CRCs are zero and image data is noise. */

#define _GNU_SOURCE
#include <err.h>
#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#define LENGTH(array) (sizeof(array) / sizeof *(array))

/* Of 100 files, the number in each directory; their width in pixels and size in bytes. Most are small; a failure marker
 * holds only tags. */
static const struct size_dir {
  const char* path;
  unsigned share, width, smallest, largest;
} size_dirs[] = {
    {"normal", 50, 128, 2 << 10, 20 << 10},        {"large", 35, 256, 4 << 10, 48 << 10},
    {"x-large", 4, 512, 12 << 10, 96 << 10},       {"xx-large", 1, 1024, 24 << 10, 160 << 10},
    {"fail/gnome-thumbnail-factory", 10, 1, 0, 0},
};
static int directories[LENGTH(size_dirs)];
enum { FAILED = LENGTH(size_dirs) - 1 }; /* where the failure markers are */

static const struct kind {
  const char *ending, *type;
} kinds[2][5] = {
    {
        {"jpg", "image/jpeg"},
        {"JPG", "image/jpeg"},
        {"png", "image/png"},
        {"mp4", "video/mp4"},
        {"pdf", "application/pdf"},
    },
    {
        /* astronomical */
        {"fits", "application/fits"},
        {"fit", "application/fits"},
        {"FIT", "application/fits"},
        {"xisf", "image/x-xisf"},
        {"kxproj", "application/x-kxproj"},
    },
};

static const char* const folders[] = {
    "Pictures",
    "Downloads",
    "Pictures/2023/Winter%20holidays",
    "Documents/observatory/session%203/lights",
};

static uint64_t noise[1 << 17];

/* The part of a thumbnail that is written so far. */
struct head {
  char bytes[1024];
  size_t size;
};

/* The numbers of a fixed random sequence (splitmix64). */
static uint64_t next(uint64_t* state) {
  uint64_t z = *state += 0x9e3779b97f4a7c15u;
  z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9u;
  z = (z ^ z >> 27) * 0x94d049bb133111ebu;
  return z ^ z >> 31;
}

static void add(struct head* head, const void* bytes, size_t size) {
  memcpy(head->bytes + head->size, bytes, size);
  head->size += size;
}

static void add_number(struct head* head, size_t number) {
  const unsigned char bytes[] = {number >> 24 & 255, number >> 16 & 255, number >> 8 & 255, number & 255};
  add(head, bytes, sizeof bytes);
}

static void add_chunk_start(struct head* head, const char* type, size_t size) {
  add_number(head, size);
  add(head, type, 4);
}

static void add_chunk(struct head* head, const char* type, const void* data, size_t size) {
  add_chunk_start(head, type, size);
  add(head, data, size);
  add_number(head, 0);
}

static void add_text(struct head* head, const char* keyword, const char* text) {
  char data[256];
  add_chunk(head, "tEXt", data, (size_t)snprintf(data, sizeof data, "%s%c%s", keyword, 0, text));
}

/* Noise stands for the compressed text. */
static void add_compressed_text(struct head* head, const char* keyword, size_t size) {
  char data[256];
  const size_t start = (size_t)snprintf(data, sizeof data, "%s%c%c", keyword, 0, 0);
  memcpy(data + start, noise, size);
  add_chunk(head, "zTXt", data, start + size);
}

static void add_gnome_tags(struct head* head, const char* uri, bool failed) {
  add_chunk(head, "sBIT", "\b\b\b\b", 4);
  if (!failed) {
    add_text(head, "Thumb::Image::Width", "4032");
    add_text(head, "Thumb::Image::Height", "3024");
  }
  add_text(head, "Thumb::URI", uri);
  add_text(head, "Thumb::MTime", "1710201600");
  add_text(head, "Software", "GNOME::ThumbnailFactory");
}

static void add_xfce_tags(struct head* head, const char* uri) {
  add_chunk(head, "sBIT", "\b\b\b\b", 4);
  add_text(head, "Thumb::URI", uri);
  add_text(head, "Thumb::MTime", "1710201600.000000");
}

static void add_kde_tags(struct head* head, const char* uri, const char* type) {
  add_chunk(head, "pHYs", "\0\0\x0f\x61\0\0\x0f\x61\1", 9);
  add_text(head, "Thumb::MTime", "1710201600");
  add_text(head, "Thumb::Mimetype", type);
  if (strlen(uri) < 40) {
    add_text(head, "Thumb::URI", uri);
  } else {
    add_compressed_text(head, "Thumb::URI", strlen(uri));
  }
}

/* Everything before the image data. */
static void write_head(struct head* head, uint64_t* random, size_t size_dir, const struct kind* kind) {
  const unsigned width = size_dirs[size_dir].width;
  const unsigned char header[] = {0, 0, width >> 8, width & 255, 0, 0, width >> 8, width & 255, 8, 6, 0, 0, 0};
  char uri[128];
  snprintf(uri, sizeof uri, "file:///home/ann/%s/%06u.%s", folders[next(random) % LENGTH(folders)],
           (unsigned)(next(random) % 1000000), kind->ending);
  add(head, "\x89PNG\r\n\x1a\n", 8);
  add_chunk(head, "IHDR", header, sizeof header);
  if (size_dir == FAILED) {
    add_gnome_tags(head, uri, true);
    return;
  }
  switch (next(random) % 3) {
  case 0: add_gnome_tags(head, uri, false); break;
  case 1: add_xfce_tags(head, uri); break;
  case 2: add_kde_tags(head, uri, kind->type); break;
  }
}

static size_t choose_size_dir(uint64_t* random) {
  unsigned left = next(random) % 100;
  size_t chosen = 0;
  while (left >= size_dirs[chosen].share)
    left -= size_dirs[chosen++].share;
  return chosen;
}

/* The bytes of image data that give the file a usual size for its directory. */
static size_t choose_image_size(uint64_t* random, const struct size_dir* size_dir) {
  const uint64_t part = next(random) % 1024;
  return 11 + size_dir->smallest + (size_dir->largest - size_dir->smallest) * part * part / (1024 * 1024);
}

static void write_thumbnail(uint64_t number, bool is_astronomical, bool holes) {
  uint64_t random = number << 32;
  struct head head = {.size = 0};
  struct head tail = {.size = 0};
  char name[64];
  snprintf(name, sizeof name, "%016jx%016jx.png", (uintmax_t)next(&random), (uintmax_t)next(&random));
  const size_t size_dir = choose_size_dir(&random);
  write_head(&head, &random, size_dir, &kinds[is_astronomical][next(&random) % LENGTH(kinds[0])]);
  const size_t image_size = choose_image_size(&random, &size_dirs[size_dir]);
  add_chunk_start(&head, "IDAT", image_size);
  add_number(&tail, 0);
  add_chunk(&tail, "IEND", "", 0);

  const struct iovec parts[] = {{head.bytes, head.size},
                                {noise + next(&random) % (LENGTH(noise) / 2), holes ? 0 : image_size},
                                {tail.bytes, holes ? 0 : tail.size}};
  const off_t size = (off_t)(head.size + image_size + tail.size);
  const int file = openat(directories[size_dir], name, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (file < 0 || writev(file, parts, LENGTH(parts)) < 0 || (holes && ftruncate(file, size) != 0) || close(file) != 0)
    err(1, "%s/%s", size_dirs[size_dir].path, name);
}

static void enter(const char* directory) {
  if ((mkdir(directory, 0700) != 0 && errno != EEXIST) || chdir(directory) != 0) err(1, "%s", directory);
}

static void make_directories(const char* cache) {
  enter(cache);
  enter("thumbnails");
  if (mkdir("fail", 0700) != 0 && errno != EEXIST) err(1, "fail");
  for (size_t i = 0; i < LENGTH(size_dirs); ++i) {
    if (mkdir(size_dirs[i].path, 0700) != 0 && errno != EEXIST) err(1, "%s", size_dirs[i].path);
    directories[i] = open(size_dirs[i].path, O_RDONLY | O_DIRECTORY);
    if (directories[i] < 0) err(1, "%s", size_dirs[i].path);
  }
}

int main(int argc, char** argv) {
  if (argc < 4) errx(2, "usage: generate CACHE COUNT PERCENT [--holes]");
  const uint64_t count = strtoull(argv[2], NULL, 10);
  const uint64_t percent = strtoull(argv[3], NULL, 10);
  const bool holes = argc > 4 && strcmp(argv[4], "--holes") == 0;

  uint64_t random = 0;
  for (size_t i = 0; i < LENGTH(noise); ++i)
    noise[i] = next(&random);
  make_directories(argv[1]);
  for (uint64_t i = 0; i < count; ++i)
    write_thumbnail(i, (i + 1) * percent / 100 != i * percent / 100, holes);
  return 0;
}
