#include "fit/formats/vips_formats.h"

#include <array>

#include "fit/formats/foreign_source.h"
#include "fit/formats/vips_metadata.h"
#include "fit/formats/vips_ref.h"
#include "platform/jpeg/jpeg_colours.h"

namespace {

// Loaders are blocked but for these; a file goes to the one of its first bytes.
constexpr const char* kLoaders[] = {"VipsForeignLoadPng", "VipsForeignLoadNsgif",
                                    "VipsForeignLoadWebp", "VipsForeignLoadTiff",
                                    "VipsForeignLoadHeif"};
constexpr const char* kSavers[] = {"VipsForeignSaveWebp", "VipsForeignSaveHeif"};
constexpr int kWebpEffort = 4;  // of 6
// Of 9: what is beyond takes seconds more for a few hundredths of the bytes.
constexpr int kAvifEffort = 3;

const char* saverOf(PhotoKind kind) {
  return kind == PhotoKind::Webp ? "webpsave_buffer" : "heifsave_buffer";
}

// Of three components, of the picture's size; of a gray picture its luma.
std::vector<uint8_t> pixelsOf(const Picture& picture) {
  const auto width = static_cast<size_t>(picture.size.width);
  const auto height = static_cast<size_t>(picture.size.height);
  const size_t bands = picture.planes.size();
  std::vector<uint8_t> pixels(width * height * bands);
  std::vector<Plane> full = picture.planes;
  for (size_t i = 1; i < bands; ++i) {
    full[i] = scaledPlane(full[i], picture.size.width, picture.size.height);
  }
  uint8_t* to = pixels.data();
  for (int y = 0; y < picture.size.height; ++y) {
    for (int x = 0; x < picture.size.width; ++x, to += bands) {
      if (bands == 1) {
        *to = full[0].row(y)[x];
        continue;
      }
      const Rgb colour = toRgb(JpegColours::YCbCr, false,
                               {full[0].row(y)[x], full[1].row(y)[x], full[2].row(y)[x], 0});
      to[0] = static_cast<uint8_t>(colour.red);
      to[1] = static_cast<uint8_t>(colour.green);
      to[2] = static_cast<uint8_t>(colour.blue);
    }
  }
  return pixels;
}

}  // namespace

bool VipsFormats::start(std::string* error) {
  g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, gpointer) {}, nullptr);
  // A decoded picture beyond it would go to a file, which cannot be made.
  g_setenv("VIPS_DISC_THRESHOLD", "1g", TRUE);
  if (vips_init("fit-formats") != 0) {
    *error = takeVipsError();
    return false;
  }
  vips_concurrency_set(1);
  vips_cache_set_max(0);
  vips_operation_block_set("VipsForeign", TRUE);
  for (const auto& names : {std::span<const char* const>(kLoaders), {kSavers}}) {
    for (const char* name : names) {
      vips_operation_block_set(name, FALSE);
    }
  }
  return true;
}

std::unique_ptr<PhotoSource> VipsFormats::source(PhotoKind kind, std::span<const uint8_t> file) {
  return std::make_unique<ForeignSource>(kind, file);
}

bool VipsFormats::writes(PhotoKind kind) const {
  return (kind == PhotoKind::Webp || kind == PhotoKind::Avif) &&
         vips_type_find("VipsOperation", saverOf(kind)) != 0;
}

bool VipsFormats::write(PhotoKind kind, const Picture& picture, int quality,
                        const Segments& metadata, std::vector<uint8_t>* file, std::string* error) {
  const std::vector<uint8_t> pixels = pixelsOf(picture);
  const auto bands = static_cast<int>(picture.planes.size());
  const ImageRef bare(vips_image_new_from_memory(pixels.data(), pixels.size(), picture.size.width,
                                                 picture.size.height, bands, VIPS_FORMAT_UCHAR));
  VipsImage* copy = nullptr;
  if (!bare ||
      vips_copy(bare.get(), &copy, "interpretation",
                bands == 1 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_sRGB, nullptr) != 0) {
    *error = takeVipsError();
    return false;
  }
  const ImageRef image(copy);
  putMetadata(metadata, copy);
  VipsBlob* made = nullptr;
  const int status =
      kind == PhotoKind::Webp
          ? vips_call(saverOf(kind), copy, &made, "Q", quality, "effort", kWebpEffort, nullptr)
          : vips_call(saverOf(kind), copy, &made, "Q", quality, "effort", kAvifEffort,
                      "compression", VIPS_FOREIGN_HEIF_COMPRESSION_AV1, nullptr);
  if (status != 0) {
    *error = "The picture cannot be written: " + takeVipsError();
    return false;
  }
  const BlobRef owned(made);
  size_t size = 0;
  const auto* const bytes = static_cast<const uint8_t*>(vips_blob_get(made, &size));
  file->assign(bytes, bytes + size);
  return true;
}
