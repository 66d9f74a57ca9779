// What shrinking a photo to a byte budget costs at the least: the daemon's search of sizes and
// qualities with nothing but libjpeg-turbo, which decodes at 4/8, 2/8, 1/8 and encodes what it
// gets. No scaling in between, no metadata, no bus.
//
//     jpeg_floor IN OUT BYTES
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include <jpeglib.h>

namespace {

using Bytes = std::vector<unsigned char>;

struct Plane {
  size_t rowBytes;
  Bytes samples;
};

struct Picture {
  JDIMENSION width;
  JDIMENSION height;
  jpeg_component_info components[3];
  Plane planes[3];
};

// The rows of each plane that one call of libjpeg takes.
struct Rows {
  std::vector<JSAMPROW> rows[3];
  JSAMPARRAY arrays[3];

  void point(Picture* picture, int component, size_t first, size_t count) {
    Plane& plane = picture->planes[component];
    rows[component].clear();
    for (size_t y = first; y < first + count; y++) {
      rows[component].push_back(plane.samples.data() + y * plane.rowBytes);
    }
    arrays[component] = rows[component].data();
  }
};

Picture decode(const Bytes& file, int eighths) {
  jpeg_decompress_struct decoder;
  jpeg_error_mgr errors;
  decoder.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&decoder);
  jpeg_mem_src(&decoder, file.data(), file.size());
  jpeg_read_header(&decoder, TRUE);
  decoder.scale_num = static_cast<unsigned>(eighths);
  decoder.scale_denom = 8;
  decoder.raw_data_out = TRUE;
  jpeg_start_decompress(&decoder);
  Picture picture = {decoder.output_width, decoder.output_height, {}, {}};
  constexpr size_t kSpareRows = 64;
  for (int i = 0; i < 3; i++) {
    const jpeg_component_info& component = decoder.comp_info[i];
    picture.components[i] = component;
    const auto size = static_cast<size_t>(component.DCT_scaled_size);
    picture.planes[i].rowBytes = (component.width_in_blocks + 4) * size;
    picture.planes[i].samples.resize(picture.planes[i].rowBytes *
                                     (component.height_in_blocks * size + kSpareRows));
  }
  Rows rows;
  for (size_t step = 0; decoder.output_scanline < decoder.output_height; step++) {
    for (int i = 0; i < 3; i++) {
      const auto count = static_cast<size_t>(picture.components[i].v_samp_factor *
                                             picture.components[i].DCT_scaled_size);
      rows.point(&picture, i, step * count, count);
    }
    jpeg_read_raw_data(
        &decoder, rows.arrays,
        static_cast<JDIMENSION>(decoder.max_v_samp_factor * decoder.min_DCT_scaled_size));
  }
  jpeg_destroy_decompress(&decoder);
  return picture;
}

Bytes encode(Picture* picture, int quality) {
  jpeg_compress_struct encoder;
  jpeg_error_mgr errors;
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* memory = nullptr;
  unsigned long sizeBytes = 0;
  jpeg_mem_dest(&encoder, &memory, &sizeBytes);
  encoder.image_width = picture->width;
  encoder.image_height = picture->height;
  encoder.input_components = 3;
  encoder.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&encoder);
  jpeg_set_quality(&encoder, quality, TRUE);
  // In the sampling that came out: luma has as many samples as chroma, or a multiple.
  for (int i = 0; i < 3; i++) {
    const auto times = [&](JDIMENSION mine, JDIMENSION least) {
      return static_cast<int>((mine + least / 2) / least);
    };
    encoder.comp_info[i].h_samp_factor =
        times(picture->components[i].downsampled_width, picture->components[1].downsampled_width);
    encoder.comp_info[i].v_samp_factor =
        times(picture->components[i].downsampled_height, picture->components[1].downsampled_height);
  }
  encoder.raw_data_in = TRUE;
  jpeg_start_compress(&encoder, TRUE);
  Rows rows;
  for (size_t step = 0; encoder.next_scanline < encoder.image_height; step++) {
    for (int i = 0; i < 3; i++) {
      const auto count = static_cast<size_t>(encoder.comp_info[i].v_samp_factor * DCTSIZE);
      rows.point(picture, i, step * count, count);
    }
    jpeg_write_raw_data(&encoder, rows.arrays,
                        static_cast<JDIMENSION>(encoder.max_v_samp_factor * DCTSIZE));
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  Bytes bytes(memory, memory + sizeBytes);
  free(memory);
  return bytes;
}

Bytes readFile(const char* path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  Bytes bytes(static_cast<size_t>(file.tellg()));
  file.seekg(0).read(reinterpret_cast<char*>(bytes.data()),
                     static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const long budget = atol(argv[3]);
  const auto fileBytes = static_cast<long>(std::filesystem::file_size(argv[1]));
  // The daemon's plan: the divisor is the largest even number not above the root of the shrinkage.
  int eighths = 8;
  for (long divisor = 2; divisor <= 8 && divisor * divisor * budget <= fileBytes; divisor *= 2) {
    eighths = static_cast<int>(8 / divisor);
  }
  for (; eighths >= 1; eighths /= 2) {
    for (int quality = 85; quality >= 50;) {
      Picture picture = decode(readFile(argv[1]), eighths);
      const Bytes encoded = encode(&picture, quality);
      const long size = static_cast<long>(encoded.size());
      if (size <= budget) {
        std::ofstream file(argv[2], std::ios::binary);
        file.write(reinterpret_cast<const char*>(encoded.data()), size);
        return file.good() ? 0 : 1;
      }
      quality = quality == 85 ? static_cast<int>(85 * budget / size) : 0;
    }
  }
  return 1;
}
