#include "platform/ffmpeg/probe/media_facts.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/ffmpeg/probe/media_input.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace {

constexpr AVRational kMicroseconds = {1, AV_TIME_BASE};

Ratio ratio(AVRational r) {
  return {r.num, r.den};
}

bool isVideo(const AVStream* stream) {
  return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
         (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
}

bool isAudio(const AVStream* stream) {
  return stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

// Three small letters, or nothing.
std::string languageOf(const AVStream* stream) {
  const AVDictionaryEntry* tag = av_dict_get(stream->metadata, "language", nullptr, 0);
  const std::string language = tag ? tag->value : "";
  const bool plain =
      language.size() == 3 &&
      std::all_of(language.begin(), language.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  return plain ? language : "";
}

int quarterTurns(const AVStream* stream) {
  size_t size = 0;
  const uint8_t* matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!matrix || size < 9 * sizeof(int32_t)) return 0;
  const double turn = av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
  if (!std::isfinite(turn)) return 0;
  return static_cast<int>((std::lround(-turn / 90) % 4 + 4) % 4);
}

std::string nameOf(const char* name) {
  const std::string text = name ? name : "";
  return text == "unknown" || text == "reserved" ? "" : text;
}

VideoFacts videoFacts(AVFormatContext* context, AVStream* stream) {
  const AVCodecParameters* parameters = stream->codecpar;
  VideoFacts video;
  video.index = stream->index;
  video.language = languageOf(stream);
  video.codec = avcodec_get_name(parameters->codec_id);
  const char* format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(parameters->format));
  video.pixelFormat = format ? format : "";
  video.width = parameters->width;
  video.height = parameters->height;
  video.pixelAspect = ratio(av_guess_sample_aspect_ratio(context, stream, nullptr));
  video.bitsPerSecond = parameters->bit_rate;
  video.averageRate = ratio(stream->avg_frame_rate);
  video.nominalRate = ratio(stream->r_frame_rate);
  video.timeBase = ratio(stream->time_base);
  video.fullRange =
      parameters->color_range == AVCOL_RANGE_JPEG || video.pixelFormat.starts_with("yuvj");
  video.quarterTurns = quarterTurns(stream);
  video.colorMatrix = nameOf(av_color_space_name(parameters->color_space));
  video.colorTransfer = nameOf(av_color_transfer_name(parameters->color_trc));
  // A file of one frame has no rates at all; any that a player may show it at will do.
  if (!video.nominalRate.isKnown()) video.nominalRate = video.averageRate;
  if (!video.nominalRate.isKnown()) video.nominalRate = {25, 1};
  if (!video.averageRate.isKnown()) video.averageRate = video.nominalRate;
  return video;
}

std::string layoutName(const AVChannelLayout& layout) {
  if (layout.order == AV_CHANNEL_ORDER_UNSPEC || layout.nb_channels > 8) {
    if (layout.nb_channels == 1) return "mono";
    if (layout.nb_channels == 2) return "stereo";
    return std::to_string(layout.nb_channels) + " channels";
  }
  char name[64] = "";
  av_channel_layout_describe(&layout, name, sizeof(name));
  return name;
}

AudioFacts audioFacts(const AVStream* stream) {
  const AVCodecParameters* parameters = stream->codecpar;
  AudioFacts audio;
  audio.index = stream->index;
  audio.language = languageOf(stream);
  audio.codec = avcodec_get_name(parameters->codec_id);
  audio.sampleRateHz = parameters->sample_rate;
  audio.channels = parameters->ch_layout.nb_channels;
  audio.layout = layoutName(parameters->ch_layout);
  const char* format = av_get_sample_fmt_name(static_cast<AVSampleFormat>(parameters->format));
  audio.sampleFormat = format ? format : "";
  audio.bitsPerSecond = parameters->bit_rate;
  return audio;
}

// Whether there is such a time, and a movie may have it.
bool isBelieved(int64_t timeUs) {
  return timeUs != AV_NOPTS_VALUE && timeUs >= -kFarthestUs && timeUs <= kFarthestUs;
}

// The span of time that one stream's packets cover; where they have no times, the sum of theirs.
struct Span {
  int64_t firstUs = AV_NOPTS_VALUE;
  int64_t lastUs = AV_NOPTS_VALUE;
  int64_t untimedUs = 0;

  void add(const AVPacket& packet, AVRational timeBase, int64_t frameUs) {
    const int64_t statedUs = av_rescale_q(packet.duration, timeBase, kMicroseconds);
    const int64_t lengthUs = statedUs > 0 && isBelieved(statedUs) ? statedUs : frameUs;
    const int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    const int64_t timeUs = av_rescale_q(time, timeBase, kMicroseconds);
    if (time == AV_NOPTS_VALUE || !isBelieved(timeUs)) {
      untimedUs = std::min(untimedUs + lengthUs, kFarthestUs);
      return;
    }
    if (firstUs == AV_NOPTS_VALUE || timeUs < firstUs) firstUs = timeUs;
    if (lastUs == AV_NOPTS_VALUE || timeUs + lengthUs > lastUs) lastUs = timeUs + lengthUs;
  }
  int64_t lengthUs() const { return firstUs == AV_NOPTS_VALUE ? untimedUs : lastUs - firstUs; }
};

int64_t frameLengthUs(const VideoFacts& video) {
  return std::llround(AV_TIME_BASE / video.averageRate.value());
}

void measureDuration(MediaInput& input, MediaFacts* facts) {
  AVFormatContext* context = input.context();
  std::vector<Span> spans(context->nb_streams);
  const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(
      av_packet_alloc(), [](AVPacket* p) { av_packet_free(&p); });
  while (av_read_frame(context, packet.get()) >= 0) {
    const auto index = static_cast<size_t>(packet->stream_index);
    if (index < spans.size()) {  // not of a stream that turned up just now
      const AVStream* stream = context->streams[index];
      const int64_t frameUs = facts->video && isVideo(stream) ? frameLengthUs(*facts->video) : 0;
      if (isVideo(stream) || isAudio(stream)) {
        spans[index].add(*packet, stream->time_base, frameUs);
      }
    }
    av_packet_unref(packet.get());
  }
  const bool cutShort = input.isCut();
  int64_t lengthUs = 0;
  for (const Span& span : spans) {
    lengthUs = std::max(lengthUs, span.lengthUs());
  }
  const int64_t readBytes = context->pb ? avio_tell(context->pb) : 0;
  if (cutShort && readBytes > 0) lengthUs = av_rescale(lengthUs, input.sizeBytes(), readBytes);
  facts->durationUs = std::clamp<int64_t>(lengthUs, 0, kFarthestUs);
  facts->durationIsGuess = cutShort;
}

// Without a figure of its own a stream is taken to fill what the others leave of the file.
int64_t videoBitsPerSecond(const MediaFacts& facts) {
  int64_t left = facts.bitsPerSecond;
  for (const AudioFacts& audio : facts.audio) {
    left -= audio.bitsPerSecond;
  }
  return std::max<int64_t>(left > 0 ? left : facts.bitsPerSecond, 1000);
}

void readStreams(AVFormatContext* context, MediaFacts* facts) {
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    AVStream* stream = context->streams[i];
    if (isVideo(stream) && !facts->video) facts->video = videoFacts(context, stream);
    if (isAudio(stream)) facts->audio.push_back(audioFacts(stream));
  }
}

}  // namespace

void readMediaFacts(MediaInput& input, const std::string& path, MediaFacts* facts) {
  AVFormatContext* context = input.context();
  *facts = MediaFacts();
  facts->path = path;
  facts->format = context->iformat->name;
  const AVDictionaryEntry* tag = nullptr;
  while ((tag = av_dict_get(context->metadata, "", tag, AV_DICT_IGNORE_SUFFIX))) {
    facts->metadata.emplace_back(tag->key, tag->value);
  }
  readStreams(context, facts);

  facts->sizeBytes = input.sizeBytes();
  facts->startUs = isBelieved(context->start_time) ? context->start_time : 0;
  facts->durationUs = context->duration != AV_NOPTS_VALUE ? context->duration : 0;
  facts->durationIsGuess = context->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
  if (facts->durationUs <= 0) measureDuration(input, facts);
  if (facts->video) {
    facts->durationUs = std::max(facts->durationUs, frameLengthUs(*facts->video));
  }
  facts->bitsPerSecond = context->bit_rate;
  if (facts->bitsPerSecond <= 0 && facts->durationUs > 0) {
    facts->bitsPerSecond = av_rescale(facts->sizeBytes, 8LL * AV_TIME_BASE, facts->durationUs);
  }
  if (facts->video && facts->video->bitsPerSecond <= 0) {
    facts->video->bitsPerSecond = videoBitsPerSecond(*facts);
  }
}
