#include "platform/ffmpeg/encode/output_size.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <memory>

#include "platform/ffmpeg/probe/media_input.h"
#include "platform/ffmpeg/probe/movie_probe.h"
#include "platform/ffmpeg/process/caged_call.h"

namespace {

constexpr int64_t kMemoryBytes = int64_t{384} << 20;
constexpr auto kTimeLimit = std::chrono::seconds(60);

// "BYTES VIDEOBYTES"; empty when it is no movie.
std::string sizes(int fd, const std::string& path) {
  MediaInput input;
  std::string ignored;
  if (!input.open(fd, path, kThoroughProbe, &ignored)) return "";
  AVFormatContext* context = input.context();
  const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(
      av_packet_alloc(), [](AVPacket* p) { av_packet_free(&p); });
  int64_t videoBytes = 0;
  while (av_read_frame(context, packet.get()) >= 0) {
    const AVStream* stream = context->streams[packet->stream_index];
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) videoBytes += packet->size;
    av_packet_unref(packet.get());
  }
  return std::to_string(input.sizeBytes()) + " " + std::to_string(videoBytes);
}

}  // namespace

bool measureOutput(const std::string& path, OutputSize* size) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return false;
  std::string answer;
  std::string ignored;
  const bool isRead = callCaged(
      fd, {kTimeLimit, kMemoryBytes}, [&](int input) { return sizes(input, path); }, &answer,
      &ignored);
  close(fd);
  const char* end = answer.data() + answer.size();
  const auto bytes = std::from_chars(answer.data(), end, size->bytes);
  return isRead && bytes.ptr < end &&
         std::from_chars(bytes.ptr + 1, end, size->videoBytes).ec == std::errc();
}
