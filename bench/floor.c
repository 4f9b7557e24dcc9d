/* Clears a thumbnail cache with as few system calls as possible, to compare nebulark-ctl --clear-thumb-cache with.
 *
 *     floor CACHE         deletes the thumbnails of astronomical files in the five directories of CACHE/thumbnails
 *     floor CACHE --all   deletes every file there
 *
 * It prints how many files it deleted and how many it left. A file costs one fstatat; without --all also an openat, a
 * read of 4 KiB and a close; and an unlinkat if it is deleted. Never use it on a real cache: it assumes that calls
 * succeed, and that every file is a whole PNG file with its tags in the first 4 KiB.
 */

#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

enum { HEAD = 4096, LISTING = 1 << 18 };

static long removed, left;

static unsigned big_endian(const unsigned char* at) {
  return (unsigned)at[0] << 24 | (unsigned)at[1] << 16 | (unsigned)at[2] << 8 | at[3];
}

static bool ends_with(const char* text, size_t size, const char* ending) {
  size_t length = strlen(ending);
  return size >= length && strncasecmp(text + size - length, ending, length) == 0;
}

static bool is_astronomical_uri(const char* uri, size_t size) {
  return ends_with(uri, size, ".xisf") || ends_with(uri, size, ".fits") || ends_with(uri, size, ".fit") ||
         ends_with(uri, size, ".fts") || ends_with(uri, size, ".kxproj");
}

static bool is_astronomical_type(const char* type, size_t size) {
  return (size == 12 && memcmp(type, "image/x-xisf", 12) == 0) ||
         (size == 16 && memcmp(type, "application/fits", 16) == 0) ||
         (size == 10 && memcmp(type, "image/fits", 10) == 0) || (size == 12 && memcmp(type, "image/x-fits", 12) == 0) ||
         (size == 20 && memcmp(type, "application/x-kxproj", 20) == 0);
}

static bool is_astronomical_tag(const char* tag, size_t size) {
  if (size > 11 && memcmp(tag, "Thumb::URI", 11) == 0) return is_astronomical_uri(tag + 11, size - 11);
  if (size > 16 && memcmp(tag, "Thumb::Mimetype", 16) == 0) return is_astronomical_type(tag + 16, size - 16);
  return false;
}

static bool is_astronomical(int directory, const char* name) {
  unsigned char head[HEAD];
  int file = openat(directory, name, O_RDONLY);
  ssize_t size = read(file, head, sizeof head);
  close(file);
  for (ssize_t at = 8; at + 8 <= size; at += 12 + (ssize_t)big_endian(head + at)) {
    if (memcmp(head + at + 4, "IDAT", 4) == 0) return false;
    if (memcmp(head + at + 4, "tEXt", 4) == 0 && is_astronomical_tag((char*)head + at + 8, big_endian(head + at)))
      return true;
  }
  return false;
}

static void clear(int directory, bool all) {
  _Alignas(struct dirent64) char listing[LISTING];
  ssize_t size;
  while ((size = getdents64(directory, listing, sizeof listing)) > 0) {
    const struct dirent64* entry;
    for (ssize_t at = 0; at < size; at += entry->d_reclen) {
      struct stat status;
      entry = (const struct dirent64*)(listing + at);
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW);
      if (S_ISDIR(status.st_mode)) {
        int below = openat(directory, entry->d_name, O_RDONLY | O_DIRECTORY);
        clear(below, all);
        close(below);
      } else if (all || is_astronomical(directory, entry->d_name)) {
        unlinkat(directory, entry->d_name, 0);
        ++removed;
      } else {
        ++left;
      }
    }
  }
}

int main(int argc, char** argv) {
  static const char* const sizes[] = {"normal", "large", "x-large", "xx-large", "fail"};
  bool all = argc > 2 && strcmp(argv[2], "--all") == 0;
  if (argc < 2 || chdir(argv[1]) != 0 || chdir("thumbnails") != 0) return 1;
  for (size_t i = 0; i < sizeof sizes / sizeof *sizes; ++i) {
    int directory = open(sizes[i], O_RDONLY | O_DIRECTORY);
    if (directory < 0) continue;
    clear(directory, all);
    close(directory);
  }
  printf("%ld removed, %ld left\n", removed, left);
  return 0;
}
