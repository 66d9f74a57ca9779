#include "client/movie_info.h"

#include "client/bit_rate.h"
#include "client/byte_size.h"
#include "client/time_span.h"

namespace {

const dsjson::JSchema kAnySchema = dsjson::JSchemaFragment("{}");

}  // namespace

std::string MovieInfo::words() const {
  std::string text = formatTime(seconds) + ", " + formatByteSize(sizeBytes);
  // Not the service's figure: that wraps for files of 256 MiB and more.
  if (seconds > 0) text += ", " + formatBitRate(sizeBytes * 8.0 / seconds);
  return text;
}

Answer askMovieInfo(const std::string& path) {
  dsjson::JValue request = dsjson::Object();
  request.put("inFile", path);
  std::string text;
  dsjson::JGenerator(nullptr).toString(request, kAnySchema, text);
  return callServiceAgain("getMovieInfo", text);
}

std::optional<MovieInfo> parseMovieInfo(const Answer& answer) {
  MovieInfo info;
  dsjson::JDomParser parser(nullptr);
  if (answer.kind != Answer::Replied || !parser.parse(answer.payload, kAnySchema, nullptr)) {
    return std::nullopt;
  }
  const dsjson::JValue reply = parser.getDom();
  if (reply["fileSize"].asNumber(info.sizeBytes) != dsjson::CONV_OK ||
      reply["clipLength"].asNumber(info.seconds) != dsjson::CONV_OK) {
    return std::nullopt;
  }
  return info;
}
