// What a worker is asked, as the words of its command line.
#ifndef FIT_WIRE_REQUEST_WORDS_H
#define FIT_WIRE_REQUEST_WORDS_H

#include <string>
#include <vector>

#include "fit/movie/movie_request.h"
#include "fit/photo/fit_photo.h"

enum class WorkerTask { Fit, Inspect, View };  // the last of photos alone
enum class MediaKind { Photo, Movie };

// Each kind has a program of its own, and words of its own.
struct WorkerRequest {
  WorkerTask task = WorkerTask::Fit;
  MediaKind kind = MediaKind::Photo;
  PhotoRequest photo;
  MovieRequest movie;
};

// "fit", "max-bytes=300000" and so on.
std::vector<std::string> wordsOf(const WorkerRequest& request);
// Takes the words for a request of the kind that *request has. False where one means nothing;
// *error names it.
bool parseWords(const std::vector<std::string>& words, WorkerRequest* request, std::string* error);

// "fit", "inspect", "view".
const char* nameOf(WorkerTask task);
// "all", "no-location", "none".
const char* nameOf(KeepMetadata keep);
bool parseKeepMetadata(const std::string& name, KeepMetadata* keep);
// Of those that a photo can be written in: "jpeg", "webp", "avif".
bool parsePhotoFormat(const std::string& name, PhotoKind* format);
// "mp4-h264", "mp4", "3gp".
const char* nameOf(MovieFormat format);
bool parseMovieFormat(const std::string& name, MovieFormat* format);

#endif
