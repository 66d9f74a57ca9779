#include "tests/support/jpeg_media.h"

#include <cstdio>
// libjpeg's header relies on stdio's.
#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string_view>

namespace {

constexpr size_t kIccChunkBytes = 65519;  // what a segment holds beside the profile's own header
constexpr int kMarkerXmp = JPEG_APP0 + 1;
constexpr int kMarkerIptc = JPEG_APP0 + 13;

void append(Bytes* to, std::string_view text) {
  to->insert(to->end(), text.begin(), text.end());
}

void putU32(Bytes* to, size_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    to->push_back(static_cast<uint8_t>(value >> shift));
  }
}

Bytes xmpPayload(const std::string& packet) {
  Bytes payload;
  append(&payload, std::string_view("http://ns.adobe.com/xap/1.0/\0", 29));
  append(&payload, packet);
  return payload;
}

// One resource block (1028, IPTC) with the version and the caption.
Bytes iptcPayload(const std::string& caption) {
  Bytes record = {0x1C,
                  2,
                  0,
                  0,
                  2,
                  0,
                  4,
                  0x1C,
                  2,
                  120,
                  static_cast<uint8_t>(caption.size() >> 8),
                  static_cast<uint8_t>(caption.size())};
  append(&record, caption);
  Bytes payload;
  append(&payload, std::string_view("Photoshop 3.0\0", 14));
  append(&payload, std::string_view("8BIM\x04\x04\0\0", 8));
  putU32(&payload, record.size());
  payload.insert(payload.end(), record.begin(), record.end());
  if (payload.size() % 2 != 0) payload.push_back(0);
  return payload;
}

void writeMetadata(jpeg_compress_struct* encoder, const JpegRecipe& recipe) {
  const auto write = [&](int marker, const Bytes& payload) {
    jpeg_write_marker(encoder, marker, payload.data(), static_cast<unsigned>(payload.size()));
  };
  if (recipe.exif) write(kMarkerXmp, makeExif(*recipe.exif, recipe.width, recipe.height));
  if (!recipe.xmp.empty()) write(kMarkerXmp, xmpPayload(recipe.xmp));
  if (!recipe.iptcCaption.empty()) write(kMarkerIptc, iptcPayload(recipe.iptcCaption));
  if (recipe.iccBytes > 0) {
    const Bytes profile = makeIccProfile(recipe.iccBytes);
    const size_t chunks = (profile.size() + kIccChunkBytes - 1) / kIccChunkBytes;
    for (size_t i = 0; i < chunks; ++i) {
      Bytes payload;
      append(&payload, std::string_view("ICC_PROFILE\0", 12));
      payload.push_back(static_cast<uint8_t>(i + 1));
      payload.push_back(static_cast<uint8_t>(chunks));
      const auto first = profile.begin() + static_cast<ptrdiff_t>(i * kIccChunkBytes);
      const size_t left = profile.size() - i * kIccChunkBytes;
      payload.insert(payload.end(), first,
                     first + static_cast<ptrdiff_t>(std::min(left, kIccChunkBytes)));
      write(JPEG_APP0 + 2, payload);
    }
  }
  if (!recipe.comment.empty()) write(JPEG_COM, Bytes(recipe.comment.begin(), recipe.comment.end()));
}

struct Factors {
  int across;
  int down;
};

// Of the first component; the others have one sample for so many.
Factors samplingOf(Subsampling subsampling) {
  switch (subsampling) {
    case Subsampling::Gray:
    case Subsampling::S444:
      return {1, 1};
    case Subsampling::S422:
      return {2, 1};
    case Subsampling::S420:
      return {2, 2};
    case Subsampling::S440:
      return {1, 2};
    case Subsampling::S411:
      return {4, 1};
    case Subsampling::S410:
      return {4, 2};
  }
  return {1, 1};
}

J_COLOR_SPACE codedColours(const JpegRecipe& recipe) {
  if (recipe.subsampling == Subsampling::Gray) return JCS_GRAYSCALE;
  switch (recipe.colours) {
    case Colours::Rgb:
      return JCS_RGB;
    case Colours::CmykInverted:
    case Colours::CmykPlain:
      return JCS_CMYK;
    case Colours::YcckInverted:
      return JCS_YCCK;
    default:
      return JCS_YCbCr;
  }
}

bool hasInks(const JpegRecipe& recipe) {
  const J_COLOR_SPACE colours = codedColours(recipe);
  return colours == JCS_CMYK || colours == JCS_YCCK;
}

void separateScans(jpeg_compress_struct* encoder) {
  static jpeg_scan_info scans[MAX_COMPONENTS];
  for (int i = 0; i < encoder->num_components; ++i) {
    scans[i] = {1, {i}, 0, DCTSIZE2 - 1, 0, 0};
  }
  encoder->scan_info = scans;
  encoder->num_scans = encoder->num_components;
}

void configure(jpeg_compress_struct* encoder, const JpegRecipe& recipe) {
  const bool gray = recipe.subsampling == Subsampling::Gray;
  encoder->image_width = static_cast<JDIMENSION>(recipe.width);
  encoder->image_height = static_cast<JDIMENSION>(recipe.height);
  encoder->input_components = gray ? 1 : hasInks(recipe) ? 4 : 3;
  encoder->in_color_space = gray ? JCS_GRAYSCALE : hasInks(recipe) ? JCS_CMYK : JCS_RGB;
  jpeg_set_defaults(encoder);
  jpeg_set_colorspace(encoder, codedColours(recipe));
  if (recipe.colours == Colours::CmykPlain) encoder->write_Adobe_marker = FALSE;
  jpeg_set_quality(encoder, recipe.quality, TRUE);
  const Factors factors = samplingOf(recipe.subsampling);
  encoder->comp_info[0].h_samp_factor = factors.across;
  encoder->comp_info[0].v_samp_factor = factors.down;
  if (hasInks(recipe)) {
    encoder->comp_info[3].h_samp_factor = factors.across;
    encoder->comp_info[3].v_samp_factor = factors.down;
  }
  if (recipe.progressive) jpeg_simple_progression(encoder);
  if (recipe.separateScans) separateScans(encoder);
  encoder->arith_code = recipe.arithmetic ? TRUE : FALSE;
  encoder->restart_in_rows = recipe.restartRows;
  encoder->write_JFIF_header = recipe.jfif && codedColours(recipe) != JCS_RGB && !hasInks(recipe);
  encoder->density_unit = 1;
  encoder->X_density = encoder->Y_density = static_cast<UINT16>(recipe.density);
}

// Red, green, blue.
std::array<int, 3> gradientAt(const JpegRecipe& recipe, int x, int y) {
  return {x * 255 / recipe.width, y * 255 / recipe.height,
          255 - (x + y) * 255 / (recipe.width + recipe.height)};
}

// The light that each ink leaves: black takes as much as it can.
std::array<int, 4> inksOf(const std::array<int, 3>& colour) {
  const int black = std::max(1, *std::max_element(colour.begin(), colour.end()));
  return {colour[0] * 255 / black, colour[1] * 255 / black, colour[2] * 255 / black, black};
}

void fillRow(const JpegRecipe& recipe, int y, std::minstd_rand* random, Bytes* row) {
  const size_t components = row->size() / static_cast<size_t>(recipe.width);
  for (size_t i = 0; i < row->size(); ++i) {
    const size_t component = i % components;
    const auto colour = gradientAt(recipe, static_cast<int>(i / components), y);
    int smooth = components == 4 ? inksOf(colour)[component] : colour[component];
    if (components == 4 && recipe.colours == Colours::CmykPlain) smooth = 255 - smooth;
    (*row)[i] = recipe.content == Content::Noise ? static_cast<uint8_t>((*random)() >> 8)
                                                 : static_cast<uint8_t>(smooth);
  }
}

struct DecodeErrors {
  jpeg_error_mgr manager;
  jmp_buf failed;
};

[[noreturn]] void leaveDecoding(j_common_ptr decoder) {
  longjmp(reinterpret_cast<DecodeErrors*>(decoder->err)->failed, 1);
}

// Whether all rows are there without a warning. No object with a destructor may live in here.
bool decodeInto(const Bytes& jpeg, Bytes* pixels) {
  DecodeErrors errors;
  jpeg_decompress_struct decoder;
  decoder.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = leaveDecoding;
  errors.manager.output_message = [](j_common_ptr) {};
  if (setjmp(errors.failed) != 0) {
    jpeg_destroy_decompress(&decoder);
    return false;
  }
  jpeg_create_decompress(&decoder);
  jpeg_mem_src(&decoder, jpeg.data(), jpeg.size());
  jpeg_read_header(&decoder, TRUE);
  decoder.out_color_space = JCS_RGB;
  jpeg_start_decompress(&decoder);
  const size_t rowBytes = size_t{decoder.output_width} * 3;
  pixels->resize(rowBytes * decoder.output_height);
  while (decoder.output_scanline < decoder.output_height) {
    JSAMPROW rows[] = {pixels->data() + rowBytes * decoder.output_scanline};
    jpeg_read_scanlines(&decoder, rows, 1);
  }
  const bool isClean = errors.manager.num_warnings == 0;
  jpeg_destroy_decompress(&decoder);
  return isClean;
}

}  // namespace

Bytes makeJpeg(const JpegRecipe& recipe) {
  jpeg_error_mgr errors{};
  jpeg_compress_struct encoder{};
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* memory = nullptr;
  unsigned long sizeBytes = 0;
  jpeg_mem_dest(&encoder, &memory, &sizeBytes);
  configure(&encoder, recipe);

  jpeg_start_compress(&encoder, TRUE);
  writeMetadata(&encoder, recipe);
  std::minstd_rand random(1);
  Bytes row(static_cast<size_t>(recipe.width) * static_cast<size_t>(encoder.input_components));
  for (int y = 0; y < recipe.height; ++y) {
    fillRow(recipe, y, &random, &row);
    JSAMPROW rows[] = {row.data()};
    jpeg_write_scanlines(&encoder, rows, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  const std::unique_ptr<unsigned char, decltype(&free)> owned(memory, free);
  return Bytes(memory, memory + sizeBytes);
}

Bytes gradientPixels(int width, int height, bool gray) {
  JpegRecipe recipe;
  recipe.width = width;
  recipe.height = height;
  Bytes pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const auto colour = gradientAt(recipe, x, y);
      for (size_t i = 0; i < 3; ++i) {
        pixels.push_back(static_cast<uint8_t>(gray ? colour[0] : colour[i]));
      }
    }
  }
  return pixels;
}

Bytes decodePixels(const Bytes& jpeg) {
  Bytes pixels;
  if (!decodeInto(jpeg, &pixels)) pixels.clear();
  return pixels;
}

bool hasReadableHeader(const Bytes& jpeg) {
  DecodeErrors errors;
  jpeg_decompress_struct decoder;
  decoder.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = leaveDecoding;
  errors.manager.output_message = [](j_common_ptr) {};
  const bool isRead = setjmp(errors.failed) == 0;
  if (isRead) {
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, jpeg.data(), jpeg.size());
    jpeg_read_header(&decoder, TRUE);
  }
  jpeg_destroy_decompress(&decoder);
  return isRead;
}

Bytes makeIccProfile(size_t sizeBytes) {
  constexpr size_t kHeaderBytes = 132;  // 128 and the number of tags, none
  Bytes profile(std::max(sizeBytes, kHeaderBytes));
  const auto put = [&](size_t at, std::string_view text) {
    std::copy(text.begin(), text.end(), profile.begin() + static_cast<ptrdiff_t>(at));
  };
  for (size_t i = kHeaderBytes; i < profile.size(); ++i) {
    profile[i] = static_cast<uint8_t>(i * 13);
  }
  Bytes length;
  putU32(&length, profile.size());
  std::copy(length.begin(), length.end(), profile.begin());
  put(8, std::string_view("\x02\x40\0\0", 4));
  put(12, "mntrRGB XYZ ");
  put(36, "acsp");
  put(48, "TARN");
  return profile;
}

Bytes makeSegment(uint8_t marker, const Bytes& payload) {
  const size_t length = payload.size() + 2;
  Bytes segment = {0xFF, marker, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
  segment.insert(segment.end(), payload.begin(), payload.end());
  return segment;
}

Bytes insertBytes(const Bytes& whole, size_t offset, const Bytes& inserted) {
  Bytes result = whole;
  result.insert(result.begin() + static_cast<ptrdiff_t>(offset), inserted.begin(), inserted.end());
  return result;
}

bool writeBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  std::copy(bytes.begin(), bytes.end(), std::ostreambuf_iterator<char>(file));
  file.close();
  return !file.fail();
}

Bytes readBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
