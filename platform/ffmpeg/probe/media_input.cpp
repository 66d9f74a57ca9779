#include "platform/ffmpeg/probe/media_input.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

const char kInputFormats[] =
    "mov,mp4,m4a,3gp,3g2,mj2,avi,matroska,webm,mpegts,mpeg,mpegvideo,flv,ogg,asf,"
    "h263,h264,hevc,m4v,dv,ivf,nut,mxf,rm,wav,mp3,aac,amr,flac";
const char kInputProtocols[] = "file";

namespace {

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
  while (!gLastWords.empty() && gLastWords.back() == '\n')
    gLastWords.pop_back();
}

std::string explain(int code) {
  char words[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(code, words, sizeof(words));
  const std::lock_guard lock(gLastWordsMutex);
  return gLastWords.empty() ? words : gLastWords + " (" + words + ")";
}

int isOverdueCallback(void* input) {
  return static_cast<MediaInput*>(input)->isOverdue() ? 1 : 0;
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
}

bool MediaInput::checkFile(const std::string& path, std::string* error) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    *error = path + ": " + strerror(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    *error = path + ": not a regular file";
    return false;
  }
  if (status.st_size == 0 || status.st_size > kMaxInputBytes) {
    *error =
        path + (status.st_size == 0 ? ": the file is empty" : ": the file is larger than 4 GiB");
    return false;
  }
  fileBytes = status.st_size;
  return true;
}

bool MediaInput::open(const std::string& path, std::chrono::milliseconds timeLimit,
                      std::string* error) {
  if (!checkFile(path, error)) return false;
  deadline = std::chrono::steady_clock::now() + timeLimit;
  avContext = avformat_alloc_context();
  avContext->interrupt_callback = {isOverdueCallback, this};

  AVDictionary* settings = nullptr;
  av_dict_set(&settings, "protocol_whitelist", kInputProtocols, 0);
  av_dict_set(&settings, "format_whitelist", kInputFormats, 0);
  const int opened = avformat_open_input(&avContext, ("file:" + path).c_str(), nullptr, &settings);
  av_dict_free(&settings);
  if (opened < 0) {
    *error = path + ": " + explain(opened);
    return false;
  }
  // More streams may turn up while it reads, and those get no limits; a decoder refuses pictures
  // beyond its own limits anyway.
  DecoderLimits limits(avContext->nb_streams);
  const int found = avformat_find_stream_info(avContext, limits.data());
  if (found < 0) *error = path + ": " + explain(found);
  return found >= 0;
}
