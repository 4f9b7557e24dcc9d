/* Writes a PNG file of one pixel, with standard input as the text under a keyword, as libpng writes it.
 *
 *     png_writer KEYWORD tEXt|zTXt|iTXt before|after <TEXT >FILE
 *
 * The text comes before or after the image data. libpng ends the program if it cannot write it. */

#include <png.h>
#include <stdio.h>
#include <string.h>

static int compression(const char* kind) {
  if (strcmp(kind, "zTXt") == 0) return PNG_TEXT_COMPRESSION_zTXt;
  if (strcmp(kind, "iTXt") == 0) return PNG_ITXT_COMPRESSION_NONE;
  return PNG_TEXT_COMPRESSION_NONE;
}

int main(int argc, char** argv) {
  static char value[2 << 20];
  static png_byte pixel[4];
  if (argc != 4) return 2;

  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  png_infop before = png_create_info_struct(png);
  png_infop after = png_create_info_struct(png);
  png_text text = {.compression = compression(argv[2]), .key = argv[1], .text = value};
  text.text_length = fread(value, 1, sizeof value - 1, stdin);
  png_set_text(png, strcmp(argv[3], "before") == 0 ? before : after, &text, 1);

  png_init_io(png, stdout);
  png_set_IHDR(png, before, 1, 1, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, before);
  png_write_row(png, pixel);
  png_write_end(png, after);
  png_destroy_info_struct(png, &after);
  png_destroy_write_struct(&png, &before);
  return 0;
}
