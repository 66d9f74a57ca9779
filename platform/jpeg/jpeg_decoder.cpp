#include "platform/jpeg/jpeg_decoder.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
// libjpeg's headers rely on stdio's.
#include <jerror.h>
#include <jpeglib.h>

namespace {

// Behind the data, for reading on past its end.
const JOCTET kEndMarker[] = {0xFF, JPEG_EOI};
// What libjpeg takes besides coefficients: tables, and rows as wide as a picture can be.
constexpr size_t kWorkBytes = 16 << 20;

// The samples of one component that one step of decoding brings.
struct Rows {
  int first = 0;  // of the picture
  int perStep = 0;
  size_t rowBytes = 0;
  std::vector<uint8_t> samples;
  std::vector<JSAMPROW> places;
};

bool isRestart(int marker) {
  return marker >= JPEG_RST0 && marker <= JPEG_RST0 + 7;
}

size_t roundUp(size_t value, size_t step) {
  return (value + step - 1) / step * step;
}

}  // namespace

// libjpeg reports an error by a call that may not return: it leaves by longjmp for the operation
// that called libjpeg. No object with a destructor may live in between.
struct JpegDecoder::Libjpeg {
  jpeg_decompress_struct decoder = {};
  jpeg_error_mgr errors = {};
  jpeg_source_mgr source = {};
  jpeg_progress_mgr progress = {};
  jmp_buf failed = {};

  std::vector<uint8_t> data;
  size_t takenBytes = 0;       // of data, by libjpeg
  size_t skipBytes = 0;        // of data still to come
  bool ended = false;          // no more data will come
  bool endWasMissing = false;  // and libjpeg was given an end marker in its place
  int lastScan = 0;
  unsigned componentsSeen = 0;  // a bit for each that a scan has told of

  std::vector<JpegPlane> planes;
  std::vector<Rows> rows;
  Failure failure = Failure::None;
  char text[JMSG_LENGTH_MAX] = "";

  Libjpeg();
  ~Libjpeg() { jpeg_destroy_decompress(&decoder); }
  Libjpeg(const Libjpeg&) = delete;
  Libjpeg& operator=(const Libjpeg&) = delete;

  static Libjpeg* of(j_common_ptr decoder) { return static_cast<Libjpeg*>(decoder->client_data); }
  static Libjpeg* of(j_decompress_ptr decoder) {
    return static_cast<Libjpeg*>(decoder->client_data);
  }
  [[noreturn]] void leave(Failure why, const char* words);
  Progress fail(Failure why, const char* words);
  void offerData();
  void noteTaken();
  bool fillInput();
  void noteWarning(int level);
  void noteScan();
  bool start(int eighths);
  bool readStep();
  void layOut();
  bool isIncomplete();
  static Failure reasonOf(int messageCode);
};

JpegDecoder::Libjpeg::Libjpeg() {
  decoder.err = jpeg_std_error(&errors);
  errors.error_exit = [](j_common_ptr common) {
    Libjpeg* self = of(common);
    char words[JMSG_LENGTH_MAX];
    self->errors.format_message(common, words);
    self->leave(reasonOf(self->errors.msg_code), words);
  };
  errors.emit_message = [](j_common_ptr common, int level) { of(common)->noteWarning(level); };
  errors.output_message = [](j_common_ptr) {};
  decoder.client_data = this;
  if (setjmp(failed) != 0) return;  // no memory: `failure` says so
  jpeg_create_decompress(&decoder);

  source.init_source = [](j_decompress_ptr) {};
  source.fill_input_buffer = [](j_decompress_ptr d) -> boolean {
    return of(d)->fillInput() ? TRUE : FALSE;
  };
  source.skip_input_data = [](j_decompress_ptr d, long count) {
    Libjpeg* self = of(d);
    if (count <= 0) return;
    const size_t there = std::min(static_cast<size_t>(count), self->source.bytes_in_buffer);
    self->source.next_input_byte += there;
    self->source.bytes_in_buffer -= there;
    self->skipBytes += static_cast<size_t>(count) - there;
  };
  source.resync_to_restart = jpeg_resync_to_restart;
  source.term_source = [](j_decompress_ptr) {};
  decoder.src = &source;
  progress.progress_monitor = [](j_common_ptr common) { of(common)->noteScan(); };
  decoder.progress = &progress;
}

void JpegDecoder::Libjpeg::leave(Failure why, const char* words) {
  fail(why, words);
  longjmp(failed, 1);
}

JpegDecoder::Progress JpegDecoder::Libjpeg::fail(Failure why, const char* words) {
  if (failure == Failure::None) {
    failure = why;
    snprintf(text, sizeof text, "%s", words);
  }
  return Progress::Failed;
}

JpegDecoder::Failure JpegDecoder::Libjpeg::reasonOf(int messageCode) {
  switch (messageCode) {
    case JERR_OUT_OF_MEMORY:
    case JERR_NO_BACKING_STORE:
      return Failure::NoMemory;
    case JERR_IMAGE_TOO_BIG:
    case JERR_WIDTH_OVERFLOW:
      return Failure::TooLarge;
    case JERR_BAD_PRECISION:
    case JERR_SOF_UNSUPPORTED:
    case JERR_ARITH_NOTIMPL:
    case JERR_NOTIMPL:
    case JERR_NOT_COMPILED:
    case JERR_COMPONENT_COUNT:
    case JERR_FRACT_SAMPLE_NOTIMPL:
    case JERR_CCIR601_NOTIMPL:
    case JERR_CONVERSION_NOTIMPL:
      return Failure::NotSupported;
    default:
      return Failure::Damaged;
  }
}

void JpegDecoder::Libjpeg::offerData() {
  if (endWasMissing) return;  // it is at our end marker
  const size_t skipped = std::min(skipBytes, data.size() - takenBytes);
  skipBytes -= skipped;
  takenBytes += skipped;
  source.next_input_byte = data.data() + takenBytes;
  source.bytes_in_buffer = data.size() - takenBytes;
}

// Unless libjpeg is at an end marker of ours, which stands in no data.
void JpegDecoder::Libjpeg::noteTaken() {
  takenBytes = data.size() - (endWasMissing ? 0 : source.bytes_in_buffer);
}

bool JpegDecoder::Libjpeg::fillInput() {
  if (!ended) return false;
  // Within a scan: an arithmetic decoder takes an end marker for an endless row of zeros.
  if (decoder.arith_code && decoder.input_iMCU_row + 1 < decoder.total_iMCU_rows) {
    leave(Failure::BreaksOff, "The data ends before the picture does");
  }
  endWasMissing = true;
  skipBytes = 0;
  source.next_input_byte = kEndMarker;
  source.bytes_in_buffer = sizeof kEndMarker;
  return true;
}

// libjpeg makes up the rest of a scan when it meets a marker there, and only warns. After a restart
// marker that comes too early the picture goes on, with a gap; after any other it does not.
void JpegDecoder::Libjpeg::noteWarning(int level) {
  if (level >= 0) return;
  errors.num_warnings++;
  if (errors.msg_code != JWRN_HIT_MARKER) return;
  if (isRestart(decoder.unread_marker) && decoder.restart_interval != 0) return;
  leave(Failure::BreaksOff, "The picture's data breaks off");
}

// The number rises when a scan's header is read to its end; before that it stands half told.
void JpegDecoder::Libjpeg::noteScan() {
  if (decoder.input_scan_number == lastScan) return;
  lastScan = decoder.input_scan_number;
  if (lastScan > maxScans) leave(Failure::TooLarge, "The picture has too many scans");
  if (decoder.progressive_mode && decoder.Ss != 0) return;
  for (int i = 0; i < decoder.comps_in_scan; i++) {
    componentsSeen |= 1U << decoder.cur_comp_info[i]->component_index;
  }
}

// Of a picture of several scans: whether a component has none, or the file ended before all bits of
// all coefficients were told.
bool JpegDecoder::Libjpeg::isIncomplete() {
  if (!jpeg_has_multiple_scans(&decoder)) return false;
  if (componentsSeen != (1U << decoder.num_components) - 1) return true;
  if (!endWasMissing || decoder.coef_bits == nullptr) return false;
  for (int i = 0; i < decoder.num_components; i++) {
    const int* bits = decoder.coef_bits[i];
    if (std::any_of(bits, bits + DCTSIZE2, [](int bit) { return bit != 0; })) return true;
  }
  return false;
}

bool JpegDecoder::Libjpeg::start(int eighths) {
  decoder.scale_num = static_cast<unsigned>(eighths);
  decoder.scale_denom = DCTSIZE;
  decoder.raw_data_out = TRUE;
  decoder.out_color_space = decoder.jpeg_color_space;
  decoder.dct_method = JDCT_ISLOW;
  if (jpeg_start_decompress(&decoder) == FALSE) return false;
  if (isIncomplete()) leave(Failure::BreaksOff, "The picture lacks scans");
  layOut();
  return true;
}

void JpegDecoder::Libjpeg::layOut() {
  const auto count = static_cast<size_t>(decoder.num_components);
  planes.resize(count);
  rows.resize(count);
  for (size_t i = 0; i < count; i++) {
    const jpeg_component_info& component = decoder.comp_info[i];
    const int size = component.DCT_scaled_size;
    planes[i].width = static_cast<int>(component.downsampled_width);
    planes[i].height = static_cast<int>(component.downsampled_height);
    planes[i].pictureWidth = static_cast<double>(decoder.image_width) * component.h_samp_factor *
                             size / (decoder.max_h_samp_factor * DCTSIZE);
    planes[i].pictureHeight = static_cast<double>(decoder.image_height) * component.v_samp_factor *
                              size / (decoder.max_v_samp_factor * DCTSIZE);
    Rows& part = rows[i];
    part.perStep = component.v_samp_factor * size;
    part.first = -part.perStep;
    part.rowBytes = static_cast<size_t>(component.width_in_blocks) * static_cast<size_t>(size);
    part.samples.resize(part.rowBytes * static_cast<size_t>(part.perStep));
    part.places.resize(static_cast<size_t>(part.perStep));
    for (size_t y = 0; y < part.places.size(); y++) {
      part.places[y] = part.samples.data() + y * part.rowBytes;
    }
  }
}

bool JpegDecoder::Libjpeg::readStep() {
  JSAMPARRAY places[MAX_COMPONENTS];
  for (size_t i = 0; i < rows.size(); i++) {
    places[i] = rows[i].places.data();
  }
  const auto lines =
      static_cast<JDIMENSION>(decoder.max_v_samp_factor * decoder.min_DCT_scaled_size);
  return jpeg_read_raw_data(&decoder, places, lines) != 0;
}

JpegDecoder::JpegDecoder() : library(std::make_unique<Libjpeg>()) {}

JpegDecoder::~JpegDecoder() = default;

void JpegDecoder::addData(const uint8_t* data, size_t sizeBytes) {
  Libjpeg& l = *library;
  l.data.erase(l.data.begin(), l.data.begin() + static_cast<ptrdiff_t>(l.takenBytes));
  l.takenBytes = 0;
  l.data.insert(l.data.end(), data, data + sizeBytes);
}

void JpegDecoder::endData() {
  library->ended = true;
}

JpegDecoder::Progress JpegDecoder::readHeader() {
  Libjpeg& l = *library;
  if (l.failure != Failure::None) return Progress::Failed;
  l.offerData();
  if (setjmp(l.failed) != 0) return Progress::Failed;
  const int result = jpeg_read_header(&l.decoder, TRUE);
  l.noteTaken();
  if (result == JPEG_SUSPENDED) return Progress::NeedsData;
  const auto space = l.decoder.jpeg_color_space;
  if (space == JCS_UNKNOWN) {
    return l.fail(Failure::NotSupported, "The picture's colours are of no known kind");
  }
  return Progress::Ready;
}

int JpegDecoder::width() const {
  return static_cast<int>(library->decoder.image_width);
}

int JpegDecoder::height() const {
  return static_cast<int>(library->decoder.image_height);
}

JpegColours JpegDecoder::colours() const {
  switch (library->decoder.jpeg_color_space) {
    case JCS_GRAYSCALE:
      return JpegColours::Gray;
    case JCS_RGB:
      return JpegColours::Rgb;
    case JCS_CMYK:
      return JpegColours::Cmyk;
    case JCS_YCCK:
      return JpegColours::Ycck;
    default:
      return JpegColours::YCbCr;
  }
}

bool JpegDecoder::isInverted() const {
  return library->decoder.saw_Adobe_marker != FALSE;
}

size_t JpegDecoder::coefficientBytes() const {
  jpeg_decompress_struct& decoder = library->decoder;
  if (!jpeg_has_multiple_scans(&decoder)) return 0;
  size_t blocks = 0;
  for (int i = 0; i < decoder.num_components; i++) {
    const jpeg_component_info& component = decoder.comp_info[i];
    blocks += roundUp(component.width_in_blocks, static_cast<size_t>(component.h_samp_factor)) *
              roundUp(component.height_in_blocks, static_cast<size_t>(component.v_samp_factor));
  }
  return blocks * sizeof(JBLOCK);
}

JpegDecoder::Progress JpegDecoder::start(int eighths) {
  Libjpeg& l = *library;
  if (l.failure != Failure::None) return Progress::Failed;
  if (l.decoder.arith_code != FALSE && !l.ended) {
    if (l.data.size() - l.takenBytes <= maxArithmeticBytes) return Progress::NeedsData;
    return l.fail(Failure::TooLarge, "The picture's arithmetic coding is too long");
  }
  l.decoder.mem->max_memory_to_use = static_cast<long>(coefficientBytes() + kWorkBytes);
  l.offerData();
  if (setjmp(l.failed) != 0) return Progress::Failed;
  const bool isStarted = l.start(eighths);
  l.noteTaken();
  return isStarted ? Progress::Ready : Progress::NeedsData;
}

JpegDecoder::Progress JpegDecoder::readRows() {
  Libjpeg& l = *library;
  if (l.failure != Failure::None) return Progress::Failed;
  if (l.decoder.output_scanline >= l.decoder.output_height) return Progress::Ended;
  l.offerData();
  if (setjmp(l.failed) != 0) return Progress::Failed;
  const bool isRead = l.readStep();
  l.noteTaken();
  if (!isRead) return Progress::NeedsData;
  for (Rows& rows : l.rows) {
    rows.first += rows.perStep;
  }
  return Progress::Ready;
}

const std::vector<JpegPlane>& JpegDecoder::planes() const {
  return library->planes;
}

int JpegDecoder::rowCount(size_t component) const {
  const Rows& rows = library->rows[component];
  return std::clamp(library->planes[component].height - rows.first, 0, rows.perStep);
}

const uint8_t* JpegDecoder::row(size_t component, int index) const {
  return library->rows[component].places[static_cast<size_t>(index)];
}

JpegDecoder::Failure JpegDecoder::failure() const {
  return library->failure;
}

std::string JpegDecoder::errorText() const {
  return library->text;
}
