#include "client/compare/comparison.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "client/compare/photo_pixels.h"
#include "client/units/byte_size.h"
#include "fit/picture/similarity.h"
#include "platform/jpeg/jpeg_colours.h"

namespace {

struct Destroy {
  void operator()(cairo_t* context) const { cairo_destroy(context); }
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, Destroy>;
using Context = std::unique_ptr<cairo_t, Destroy>;

constexpr int kMargin = 16;
constexpr int kTextHeight = 20;
constexpr int kTitleHeight = 36;

// One half: a title and the picture below it.
struct Half {
  std::string title;
  Surface picture;
  int width;  // of the wider one of both
};

Surface newSurface(int width, int height) {
  return Surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
}

uint32_t colourOf(int luma, int blue, int red) {
  const Rgb colour = toRgb(JpegColours::YCbCr, false, {luma, blue, red, 0});
  return static_cast<uint32_t>(colour.red << 16 | colour.green << 8 | colour.blue);
}

Surface surfaceOf(const Picture& picture) {
  Surface surface = newSurface(picture.size.width, picture.size.height);
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return surface;
  unsigned char* row = cairo_image_surface_get_data(surface.get());
  for (int y = 0; y < picture.size.height; ++y) {
    auto* pixel = reinterpret_cast<uint32_t*>(row);
    for (int x = 0; x < picture.size.width; ++x) {
      *pixel++ = colourOf(picture.planes[0].row(y)[x], picture.planes[1].row(y)[x],
                          picture.planes[2].row(y)[x]);
    }
    row += cairo_image_surface_get_stride(surface.get());
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

void chooseText(cairo_t* context) {
  cairo_select_font_face(context, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(context, kTextHeight);
  cairo_set_source_rgb(context, 0, 0, 0);
}

Half halfOf(const std::string& title, const Picture& picture) {
  const Surface any = newSurface(1, 1);
  const Context context(cairo_create(any.get()));
  chooseText(context.get());
  cairo_text_extents_t extents = {};
  cairo_text_extents(context.get(), title.c_str(), &extents);
  const int textWidth = static_cast<int>(std::ceil(extents.x_advance));
  return {title, surfaceOf(picture), std::max(picture.size.width, textWidth)};
}

void draw(cairo_t* context, int left, const Half& half) {
  chooseText(context);
  cairo_move_to(context, left, kMargin + kTextHeight);
  cairo_show_text(context, half.title.c_str());
  cairo_set_source_surface(context, half.picture.get(), left, kMargin + kTitleHeight);
  cairo_paint(context);
}

bool writeHalves(const Half& before, const Half& after, int height, const std::string& png,
                 std::string* error) {
  const Surface whole =
      newSurface(before.width + after.width + 3 * kMargin, height + kTitleHeight + 2 * kMargin);
  const Context context(cairo_create(whole.get()));
  cairo_set_source_rgb(context.get(), 1, 1, 1);
  cairo_paint(context.get());
  draw(context.get(), kMargin, before);
  draw(context.get(), before.width + 2 * kMargin, after);
  cairo_status_t status = cairo_status(context.get());
  if (status == CAIRO_STATUS_SUCCESS) {
    status = cairo_surface_write_to_png(whole.get(), png.c_str());
  }
  if (status != CAIRO_STATUS_SUCCESS) *error = cairo_status_to_string(status);
  return status == CAIRO_STATUS_SUCCESS;
}

bool read(const std::string& path, PhotoPixels* pixels, std::string* error) {
  if (readPhotoPixels(path, pixels, error)) return true;
  *error = path + ": " + *error;
  return false;
}

// "before: 2592 x 1944, 3.0 MB"
std::string titleOf(const std::string& name, const std::string& path, const PictureSize& size) {
  std::error_code unknown;
  const auto bytes = static_cast<int64_t>(std::filesystem::file_size(path, unknown));
  return name + ": " + std::to_string(size.width) + " x " + std::to_string(size.height) + ", " +
         formatByteSize(bytes);
}

}  // namespace

bool writeComparison(const std::string& beforePath, const std::string& afterPath,
                     const std::string& png, double* alike, std::string* error) {
  PhotoPixels before;
  PhotoPixels after;
  if (!read(beforePath, &before, error) || !read(afterPath, &after, error)) return false;
  const PictureSize size = before.picture.size;
  Picture shown;
  shown.size = size;
  for (const Plane& plane : after.picture.planes) {
    shown.planes.push_back(scaledPlane(plane, size.width, size.height));
  }
  *alike = similarity(before.picture.planes[0], shown.planes[0]);
  char ssim[32];
  snprintf(ssim, sizeof ssim, ", SSIM %.3f", *alike);
  return writeHalves(halfOf(titleOf("before", beforePath, before.whole), before.picture),
                     halfOf(titleOf("after", afterPath, after.whole) + ssim, shown), size.height,
                     png, error);
}
