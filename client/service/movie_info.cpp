#include "client/service/movie_info.h"

#include "client/service/service_reply.h"
#include "client/units/bit_rate.h"
#include "client/units/byte_size.h"
#include "client/units/time_span.h"

std::string MovieInfo::words() const {
  std::string text = formatTime(seconds) + ", " + formatByteSize(sizeBytes);
  // Not the service's figure: that wraps for files of 256 MiB and more.
  if (seconds > 0) text += ", " + formatBitRate(sizeBytes * 8.0 / seconds);
  return text;
}

Answer askMovieInfo(const std::string& path) {
  dsjson::JValue request = dsjson::Object();
  request.put("inFile", path);
  return callServiceAgain("getMovieInfo", requestText(request));
}

std::optional<MovieInfo> parseMovieInfo(const Answer& answer) {
  if (answer.kind != Answer::Replied) return std::nullopt;
  MovieInfo info;
  const dsjson::JValue members = parseServiceReply(answer.payload).members;
  if (members["fileSize"].asNumber(info.sizeBytes) != dsjson::CONV_OK ||
      members["clipLength"].asNumber(info.seconds) != dsjson::CONV_OK) {
    return std::nullopt;
  }
  return info;
}
