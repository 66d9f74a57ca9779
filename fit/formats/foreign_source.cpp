#include "fit/formats/foreign_source.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fit/formats/vips_metadata.h"
#include "fit/formats/vips_ref.h"
#include "fit/picture/turning.h"
#include "platform/jpeg/jpeg_colours.h"
#include "platform/jpeg/plane_resampler.h"

namespace {

constexpr int kStrip = 32;  // rows that are decoded at a time
constexpr double kWhite = 255;
constexpr double kWhiteOf16Bits = 65535;

const char* loaderOf(PhotoKind kind) {
  switch (kind) {
    case PhotoKind::Png:
      return "pngload_buffer";
    case PhotoKind::Gif:
      return "gifload_buffer";  // of an animation the first picture
    case PhotoKind::Webp:
      return "webpload_buffer";
    case PhotoKind::Tiff:
      return "tiffload_buffer";
    default:
      return "heifload_buffer";
  }
}

bool fail(const char* name, const std::string& message, FitFailure* failure) {
  *failure = {name, message, 0};
  return false;
}

bool isDeep(const VipsImage* image) {
  return image->Type == VIPS_INTERPRETATION_RGB16 || image->Type == VIPS_INTERPRETATION_GREY16;
}

bool failToRead(FitFailure* failure) {
  const std::string reason = takeVipsError();
  if (reason.find("out of memory") != reason.npos) {
    return fail("TooLarge", "The picture takes too much memory to decode", failure);
  }
  return fail("Damaged", "The picture cannot be read: " + reason, failure);
}

// Replaces the image by what an operation made of it.
bool take(int status, VipsImage* made, ImageRef* image) {
  if (status != 0) return false;
  image->reset(made);
  return true;
}

bool onWhite(ImageRef* image) {
  if (vips_image_hasalpha(image->get()) == FALSE) return true;
  VipsArrayDouble* white =
      vips_array_double_newv(1, isDeep(image->get()) ? kWhiteOf16Bits : kWhite);
  VipsImage* made = nullptr;
  const int status = vips_flatten(image->get(), &made, "background", white, nullptr);
  vips_area_unref(VIPS_AREA(white));
  return take(status, made, image);
}

bool inScreenColours(ImageRef* image) {
  VipsImage* made = nullptr;
  const VipsInterpretation is = vips_image_guess_interpretation(image->get());
  const bool isGray = is == VIPS_INTERPRETATION_B_W || is == VIPS_INTERPRETATION_GREY16;
  const int status = vips_colourspace(
      image->get(), &made, isGray ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB, nullptr);
  return take(status, made, image);
}

bool inBytes(ImageRef* image) {
  if (image->get()->BandFmt == VIPS_FORMAT_UCHAR) return true;
  VipsImage* made = nullptr;
  const int status = vips_cast_uchar(image->get(), &made, nullptr);
  return take(status, made, image);
}

// Whether its colours remain what the profile says.
bool keepsColours(const VipsImage* image) {
  switch (vips_image_guess_interpretation(image)) {
    case VIPS_INTERPRETATION_sRGB:
    case VIPS_INTERPRETATION_RGB16:
    case VIPS_INTERPRETATION_RGB:
    case VIPS_INTERPRETATION_B_W:
    case VIPS_INTERPRETATION_GREY16:
      return true;
    default:
      return false;
  }
}

// One row of the picture's colours, as JPEG tells them.
class ColourRow {
 public:
  explicit ColourRow(int width) {
    for (auto& component : components) {
      component.resize(static_cast<size_t>(width));
    }
  }
  void set(const uint8_t* pixels) {
    for (size_t x = 0; x < components[0].size(); ++x, pixels += 3) {
      const Rgb colour = {pixels[0], pixels[1], pixels[2]};
      components[0][x] = lumaOf(colour);
      components[1][x] = blueDifferenceOf(colour);
      components[2][x] = redDifferenceOf(colour);
    }
  }
  const uint8_t* component(size_t i) const { return components[i].data(); }

 private:
  std::vector<uint8_t> components[3];
};

// Scales the rows as they come.
class PlanesWriter {
 public:
  PlanesWriter(const PictureSize& from, size_t planes, Picture* picture) : row(from.width) {
    const PictureSize& to = picture->size;
    for (size_t i = 0; i < planes; ++i) {
      const int part = i == 0 ? 1 : 2;  // colour differences are halved
      picture->planes.emplace_back((to.width + part - 1) / part, (to.height + part - 1) / part);
      picture->planes[i].coveredWidth = static_cast<double>(to.width) / part;
      picture->planes[i].coveredHeight = static_cast<double>(to.height) / part;
    }
    for (Plane& plane : picture->planes) {
      resamplers.emplace_back(
          PlaneSide{from.width, static_cast<double>(from.width)},
          PlaneSide{from.height, static_cast<double>(from.height)},
          PlaneOf<uint8_t>{plane.samples.data(), plane.width, plane.height, plane.stride, 1},
          plane.coveredWidth, plane.coveredHeight);
    }
  }
  void take(const uint8_t* pixels) {
    if (resamplers.size() == 1) {
      resamplers[0].takeRow(pixels, 1);
      return;
    }
    row.set(pixels);
    for (size_t i = 0; i < resamplers.size(); ++i) {
      resamplers[i].takeRow(row.component(i), 1);
    }
  }

 private:
  ColourRow row;
  std::vector<PlaneResampler> resamplers;
};

// Hears each row from the top. False where one cannot be decoded.
bool readRows(VipsImage* image, const std::function<void(int, const uint8_t*)>& onRow) {
  const RegionRef region(vips_region_new(image));
  if (vips_image_pio_input(image) != 0) return false;
  for (int top = 0; top < image->Ysize; top += kStrip) {
    const VipsRect strip = {0, top, image->Xsize, std::min(kStrip, image->Ysize - top)};
    if (vips_region_prepare(region.get(), &strip) != 0) return false;
    for (int y = top; y < top + strip.height; ++y) {
      onRow(y, VIPS_REGION_ADDR(region.get(), 0, y));
    }
  }
  return true;
}

PictureSize sizeFor(const PictureSize& size, double pixels) {
  const double scale = std::min(1.0, std::sqrt(pixels / size.pixels()));
  const auto side = [scale](int length) {
    return std::clamp(static_cast<int>(std::ceil(length * scale)), 1, length);
  };
  return {side(size.width), side(size.height)};
}

}  // namespace

std::string takeVipsError() {
  const std::string text = vips_error_buffer();
  vips_error_clear();
  return text.substr(0, text.find('\n'));
}

ForeignSource::ForeignSource(PhotoKind photoKind, std::span<const uint8_t> bytes)
    : kind(photoKind), file(bytes) {}

bool ForeignSource::load(ImageRef* loaded, FitFailure* failure) const {
  const BlobRef blob(vips_blob_new(nullptr, file.data(), file.size()));
  VipsImage* made = nullptr;
  if (vips_call(loaderOf(kind), blob.get(), &made, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                VIPS_FAIL_ON_TRUNCATED, nullptr) != 0) {
    return failToRead(failure);
  }
  loaded->reset(made);
  if (static_cast<double>(made->Xsize) * made->Ysize <= kMostPixels) return true;
  return fail("TooLarge", "The picture has more than 64 million pixels", failure);
}

bool ForeignSource::open(FitFailure* failure) {
  if (!load(&image, failure)) return false;
  const bool isTurned = kind == PhotoKind::Heic || kind == PhotoKind::Avif;  // when it is decoded
  told = PhotoMetadata(
      metadataOf(image.get(), isTurned ? 1 : vips_image_get_orientation(image.get())));
  if (!keepsColours(image.get())) told.dropProfile();
  return true;
}

PictureSize ForeignSource::size() const {
  return turnedSize({image->Xsize, image->Ysize}, told.orientation());
}

bool ForeignSource::check(FitFailure* failure) {
  ImageRef whole;
  if (!load(&whole, failure)) return false;
  return readRows(whole.get(), [](int, const uint8_t*) {}) || failToRead(failure);
}

bool ForeignSource::read(double pixels, const std::function<void(double)>& onShare,
                         Picture* picture, FitFailure* failure) {
  const PictureSize stored = {image->Xsize, image->Ysize};
  if (!onWhite(&image) || !inScreenColours(&image) || !inBytes(&image)) {
    return fail("NotSupported", "The picture's colours cannot be read: " + takeVipsError(),
                failure);
  }
  if (image->Bands != 1 && image->Bands != 3) {
    return fail("NotSupported", "The picture has other components than colours", failure);
  }
  picture->size = sizeFor(stored, pixels);
  PlanesWriter planes(stored, image->Bands == 1 ? 1 : 3, picture);
  const auto onRow = [&](int y, const uint8_t* row) {
    planes.take(row);
    if (onShare && y % kStrip == 0) onShare(static_cast<double>(y) / stored.height);
  };
  if (!readRows(image.get(), onRow)) {
    return failToRead(failure);
  }
  for (Plane& plane : picture->planes) {
    plane.pad();
  }
  image.reset();
  turnUpright(told.orientation(), picture);
  return true;
}
