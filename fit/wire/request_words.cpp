#include "fit/wire/request_words.h"

#include <charconv>

namespace {

constexpr MovieFormat kMovieFormats[] = {MovieFormat::H264, MovieFormat::Mpeg4, MovieFormat::H263};
constexpr WorkerTask kTasks[] = {WorkerTask::Fit, WorkerTask::Inspect, WorkerTask::View};
constexpr PhotoKind kPhotoFormats[] = {PhotoKind::Jpeg, PhotoKind::Webp, PhotoKind::Avif};
constexpr KeepMetadata kKeeps[] = {KeepMetadata::All, KeepMetadata::NoLocation, KeepMetadata::None};

template <typename Number>
bool parseNumber(const std::string& text, Number* number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), *number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && *number >= 0;
}

template <typename Choice, size_t count>
bool parseAmong(const Choice (&choices)[count], const std::string& name, Choice* found) {
  for (const Choice choice : choices) {
    if (name != nameOf(choice)) continue;
    *found = choice;
    return true;
  }
  return false;
}

bool parseMovieWord(const std::string& name, const std::string& value, MovieRequest* movie) {
  if (name == "max-bytes") return parseNumber(value, &movie->maxBytes);
  if (name == "max-width") return parseNumber(value, &movie->maxWidth);
  if (name == "max-height") return parseNumber(value, &movie->maxHeight);
  return name == "format" && parseMovieFormat(value, &movie->format);
}

bool parsePhotoWord(const std::string& name, const std::string& value, PhotoRequest* photo) {
  if (name == "max-bytes") return parseNumber(value, &photo->maxBytes);
  if (name == "max-width") return parseNumber(value, &photo->maxWidth);
  if (name == "max-height") return parseNumber(value, &photo->maxHeight);
  if (name == "quality-floor") return parseNumber(value, &photo->qualityFloor);
  if (name == "format") return parsePhotoFormat(value, &photo->format);
  return name == "keep-metadata" && parseKeepMetadata(value, &photo->keep);
}

bool parseWord(const std::string& word, WorkerRequest* request) {
  const size_t equals = word.find('=');
  if (equals == std::string::npos) return false;
  const std::string name = word.substr(0, equals);
  const std::string value = word.substr(equals + 1);
  return request->kind == MediaKind::Movie ? parseMovieWord(name, value, &request->movie)
                                           : parsePhotoWord(name, value, &request->photo);
}

}  // namespace

const char* nameOf(WorkerTask task) {
  switch (task) {
    case WorkerTask::Inspect:
      return "inspect";
    case WorkerTask::View:
      return "view";
    default:
      return "fit";
  }
}

const char* nameOf(KeepMetadata keep) {
  switch (keep) {
    case KeepMetadata::NoLocation:
      return "no-location";
    case KeepMetadata::None:
      return "none";
    default:
      return "all";
  }
}

bool parseKeepMetadata(const std::string& name, KeepMetadata* keep) {
  return parseAmong(kKeeps, name, keep);
}

bool parsePhotoFormat(const std::string& name, PhotoKind* format) {
  return parseAmong(kPhotoFormats, name, format);
}

const char* nameOf(MovieFormat format) {
  switch (format) {
    case MovieFormat::Mpeg4:
      return "mp4";
    case MovieFormat::H263:
      return "3gp";
    default:
      return "mp4-h264";
  }
}

bool parseMovieFormat(const std::string& name, MovieFormat* format) {
  return parseAmong(kMovieFormats, name, format);
}

std::vector<std::string> wordsOf(const WorkerRequest& request) {
  if (request.task != WorkerTask::Fit) return {nameOf(request.task)};
  if (request.kind == MediaKind::Movie) {
    const MovieRequest& movie = request.movie;
    return {"fit", "max-bytes=" + std::to_string(movie.maxBytes),
            "max-width=" + std::to_string(movie.maxWidth),
            "max-height=" + std::to_string(movie.maxHeight),
            std::string("format=") + nameOf(movie.format)};
  }
  const PhotoRequest& photo = request.photo;
  return {"fit",
          "max-bytes=" + std::to_string(photo.maxBytes),
          "max-width=" + std::to_string(photo.maxWidth),
          "max-height=" + std::to_string(photo.maxHeight),
          "quality-floor=" + std::to_string(photo.qualityFloor),
          std::string("keep-metadata=") + nameOf(photo.keep),
          std::string("format=") + nameOf(photo.format)};
}

bool parseWords(const std::vector<std::string>& words, WorkerRequest* request, std::string* error) {
  const bool isMovie = request->kind == MediaKind::Movie;
  const bool isTask = !words.empty() && parseAmong(kTasks, words[0], &request->task);
  if (!isTask || (isMovie && request->task == WorkerTask::View)) {
    *error =
        isMovie ? "the first word is fit or inspect" : "the first word is fit, inspect or view";
    return false;
  }
  for (size_t i = 1; i < words.size(); ++i) {
    if (parseWord(words[i], request)) continue;
    *error = words[i] + " means nothing";
    return false;
  }
  const int64_t maxBytes = isMovie ? request->movie.maxBytes : request->photo.maxBytes;
  if (request->task != WorkerTask::Fit || maxBytes > 0) return true;
  *error = "max-bytes is missing";
  return false;
}
