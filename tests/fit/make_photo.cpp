// Writes a photo of a few hundred kilobytes and upwards: make_photo FILE [WIDTH HEIGHT]
#include <cstdio>
#include <cstdlib>

#include "tests/support/jpeg_media.h"

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  JpegRecipe recipe;
  recipe.width = argc > 3 ? atoi(argv[2]) : 1200;
  recipe.height = argc > 3 ? atoi(argv[3]) : 900;
  recipe.content = Content::Noise;
  return writeBytes(argv[1], makeJpeg(recipe)) ? 0 : 1;
}
