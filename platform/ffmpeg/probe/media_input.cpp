#include "platform/ffmpeg/probe/media_input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

const char kInputFormats[] =
    "mov,mp4,m4a,3gp,3g2,mj2,avi,matroska,webm,mpegts,mpeg,mpegvideo,flv,ogg,asf,"
    "h263,h264,hevc,m4v,dv,ivf,nut,mxf,rm,wav,mp3,aac,amr,flac";
const char kInputProtocols[] = "file";

namespace {

constexpr int kBufferBytes = 32768;

// libavformat's codes are coarse ("Invalid data"); what it logged last says why.
std::mutex gLastWordsMutex;
std::string gLastWords;

void keepLastWords(void* source, int level, const char* format, va_list values) {
  if (level > AV_LOG_ERROR) return;
  char line[512];
  int atLineStart = 0;  // leave out the prefix with its address
  av_log_format_line2(source, level, format, values, line, sizeof(line), &atLineStart);
  const std::lock_guard lock(gLastWordsMutex);
  gLastWords = line;
  while (!gLastWords.empty() && gLastWords.back() == '\n') {
    gLastWords.pop_back();
  }
}

std::string explain(int code) {
  char words[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(code, words, sizeof(words));
  const std::lock_guard lock(gLastWordsMutex);
  return gLastWords.empty() ? words : gLastWords + " (" + words + ")";
}

std::chrono::nanoseconds timeOn(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

int isCutCallback(void* input) {
  return static_cast<MediaInput*>(input)->isCut() ? 1 : 0;
}

// A movie may name others as parts of it; a file that a stranger made must not choose what is read.
int openNoOther(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
  return AVERROR(EACCES);
}

// One dictionary per stream, as avformat_find_stream_info wants them for its decoders.
class DecoderLimits {
 public:
  explicit DecoderLimits(unsigned count) : perStream(count, nullptr) {
    for (AVDictionary*& limits : perStream) {
      av_dict_set_int(&limits, "max_pixels", kMaxPixels, 0);
    }
  }
  ~DecoderLimits() {
    for (AVDictionary*& limits : perStream) {
      av_dict_free(&limits);
    }
  }
  DecoderLimits(const DecoderLimits&) = delete;
  DecoderLimits& operator=(const DecoderLimits&) = delete;
  AVDictionary** data() { return perStream.data(); }

 private:
  std::vector<AVDictionary*> perStream;
};

}  // namespace

MediaInput::MediaInput() {
  av_log_set_callback(keepLastWords);
}

MediaInput::~MediaInput() {
  avformat_close_input(&avContext);
  if (reader != nullptr) av_freep(&reader->buffer);
  avio_context_free(&reader);
}

int MediaInput::readCallback(void* input, uint8_t* into, int size) {
  auto* self = static_cast<MediaInput*>(input);
  if (self->isCut()) return AVERROR_EOF;
  const auto most = static_cast<size_t>(std::min<int64_t>(size, self->bytesLeft));
  const ssize_t count = read(self->fileFd, into, most);
  if (count < 0) return AVERROR(errno);
  self->bytesLeft -= count;
  return count == 0 ? AVERROR_EOF : static_cast<int>(count);
}

bool MediaInput::isCut() const {
  return bytesLeft <= 0 || timeOn(clock) > deadline;
}

int64_t MediaInput::seekCallback(void* input, int64_t offset, int whence) {
  auto* self = static_cast<MediaInput*>(input);
  if (whence == AVSEEK_SIZE) return self->fileBytes;
  const off_t place = lseek(self->fileFd, offset, whence & ~AVSEEK_FORCE);
  return place < 0 ? AVERROR(errno) : place;
}

bool MediaInput::makeContext(std::string* error) {
  auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
  if (buffer != nullptr) {
    reader = avio_alloc_context(buffer, kBufferBytes, 0, this, readCallback, nullptr, seekCallback);
  }
  avContext = avformat_alloc_context();
  if (reader == nullptr || avContext == nullptr) {
    if (reader == nullptr) av_free(buffer);
    *error = strerror(ENOMEM);
    return false;
  }
  avContext->pb = reader;
  avContext->io_open = openNoOther;
  avContext->interrupt_callback = {isCutCallback, this};
  return true;
}

bool MediaInput::open(int fd, const std::string& path, const ReadLimits& limits,
                      std::string* error) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || !makeContext(error)) return false;
  fileFd = fd;
  fileBytes = status.st_size;
  bytesLeft = limits.bytes;
  clock = limits.clock;
  deadline = timeOn(clock) + limits.time;

  AVDictionary* settings = nullptr;
  av_dict_set(&settings, "protocol_whitelist", kInputProtocols, 0);
  av_dict_set(&settings, "format_whitelist", kInputFormats, 0);
  const int opened = avformat_open_input(&avContext, path.c_str(), nullptr, &settings);
  av_dict_free(&settings);
  if (opened < 0) {
    *error = path + ": " + explain(opened);
    return false;
  }
  // More streams may turn up while it reads, and those get no limits; a decoder refuses pictures
  // beyond its own limits anyway.
  DecoderLimits limitsOfDecoders(avContext->nb_streams);
  const int found = avformat_find_stream_info(avContext, limitsOfDecoders.data());
  if (found < 0) *error = path + ": " + explain(found);
  return found >= 0;
}
