#include "fit/picture/jpeg_writing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
// libjpeg's headers rely on stdio's.
#include <jpeglib.h>

namespace {

using Table = std::array<unsigned, DCTSIZE2>;

// ITU-T T.81, annex K, in rows.
constexpr Table kLuma = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                         14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                         18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                         49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr Table kChroma = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                           24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                           99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                           99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// The tables are made for a picture that is looked at as it is. A smaller one is looked at
// enlarged, where its finest detail is not fine any more: the steps are drawn nearer to each other,
// by the power that looks best after enlarging.
constexpr double kEvenness = 0.7;
constexpr double kMiddle = 16;

Table scaled(const Table& table, double coarseness) {
  Table made;
  for (size_t i = 0; i < made.size(); ++i) {
    const double step = kMiddle * std::pow(table[i] / kMiddle, kEvenness) * coarseness;
    made[i] = static_cast<unsigned>(std::clamp(std::lround(step), 1L, 255L));
  }
  return made;
}

// No object with a destructor may live between its calls: libjpeg leaves an error by longjmp.
struct Encoder {
  jpeg_compress_struct library = {};
  jpeg_decompress_struct reader = {};
  jpeg_error_mgr errors = {};
  jmp_buf failed = {};
  unsigned char* made = nullptr;
  unsigned long madeBytes = 0;

  Encoder() = default;
  ~Encoder() {
    jpeg_destroy_compress(&library);
    jpeg_destroy_decompress(&reader);
    free(made);
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  bool encode(const Picture& picture, const Table& luma, const Table& chroma);
  bool recode(const std::vector<uint8_t>& file);
  void handleErrors();
  void setUp(const Picture& picture, const Table& luma, const Table& chroma);
  void writeRows(const Picture& picture);
};

void Encoder::setUp(const Picture& picture, const Table& luma, const Table& chroma) {
  const bool isGray = picture.planes.size() == 1;
  library.image_width = static_cast<JDIMENSION>(picture.size.width);
  library.image_height = static_cast<JDIMENSION>(picture.size.height);
  library.input_components = isGray ? 1 : 3;
  library.in_color_space = isGray ? JCS_GRAYSCALE : JCS_YCbCr;
  jpeg_set_defaults(&library);  // halves the colour differences
  jpeg_add_quant_table(&library, 0, luma.data(), 100, TRUE);
  jpeg_add_quant_table(&library, 1, chroma.data(), 100, TRUE);
  library.raw_data_in = TRUE;
  library.optimize_coding = TRUE;
  library.dct_method = JDCT_ISLOW;
}

// Rows beyond the last are the last again.
void Encoder::writeRows(const Picture& picture) {
  JSAMPROW rows[3][2 * DCTSIZE];
  JSAMPARRAY places[3] = {rows[0], rows[1], rows[2]};
  const auto lines = static_cast<int>(library.max_v_samp_factor) * DCTSIZE;
  while (library.next_scanline < library.image_height) {
    for (size_t i = 0; i < picture.planes.size(); ++i) {
      const Plane& plane = picture.planes[i];
      const int count = library.comp_info[i].v_samp_factor * DCTSIZE;
      const int first = static_cast<int>(library.next_scanline) / lines * count;
      for (int y = 0; y < count; ++y) {
        rows[i][y] = const_cast<JSAMPROW>(plane.row(std::min(first + y, plane.height - 1)));
      }
    }
    jpeg_write_raw_data(&library, places, static_cast<JDIMENSION>(lines));
  }
}

void Encoder::handleErrors() {
  library.err = reader.err = jpeg_std_error(&errors);
  errors.error_exit = [](j_common_ptr common) {
    longjmp(static_cast<Encoder*>(common->client_data)->failed, 1);
  };
  errors.output_message = [](j_common_ptr) {};
  library.client_data = reader.client_data = this;
}

// The quantised coefficients go over as they are.
bool Encoder::recode(const std::vector<uint8_t>& file) {
  handleErrors();
  if (setjmp(failed) != 0) return false;
  jpeg_create_decompress(&reader);
  jpeg_mem_src(&reader, file.data(), file.size());
  jpeg_read_header(&reader, TRUE);
  jvirt_barray_ptr* const coefficients = jpeg_read_coefficients(&reader);
  jpeg_create_compress(&library);
  jpeg_mem_dest(&library, &made, &madeBytes);
  jpeg_copy_critical_parameters(&reader, &library);
  library.optimize_coding = TRUE;
  jpeg_simple_progression(&library);
  jpeg_write_coefficients(&library, coefficients);
  jpeg_finish_compress(&library);
  return true;
}

bool Encoder::encode(const Picture& picture, const Table& luma, const Table& chroma) {
  handleErrors();
  if (setjmp(failed) != 0) return false;
  jpeg_create_compress(&library);
  jpeg_mem_dest(&library, &made, &madeBytes);
  setUp(picture, luma, chroma);
  jpeg_start_compress(&library, TRUE);
  writeRows(picture);
  jpeg_finish_compress(&library);
  return true;
}

}  // namespace

double coarsenessOfQuality(int quality) {
  const int q = std::clamp(quality, 1, 100);
  return q < 50 ? 50.0 / q : std::max(0.01, (200 - 2 * q) / 100.0);
}

int qualityOfCoarseness(double coarseness) {
  const double quality = coarseness > 1 ? 50 / coarseness : 100 - 50 * coarseness;
  return static_cast<int>(std::clamp(std::lround(quality), 1L, 100L));
}

bool makeProgressive(const std::vector<uint8_t>& file, std::vector<uint8_t>* progressive,
                     std::string* error) {
  Encoder encoder;
  if (!encoder.recode(file)) {
    *error = "There is not enough memory to encode the picture";
    return false;
  }
  progressive->assign(encoder.made, encoder.made + encoder.madeBytes);
  return true;
}

bool writeJpeg(const Picture& picture, double coarseness, std::vector<uint8_t>* file,
               std::string* error) {
  const Table luma = scaled(kLuma, coarseness);
  const Table chroma = scaled(kChroma, coarseness);
  Encoder encoder;
  if (!encoder.encode(picture, luma, chroma)) {
    *error = "There is not enough memory to encode the picture";
    return false;
  }
  file->assign(encoder.made, encoder.made + encoder.madeBytes);
  return true;
}
