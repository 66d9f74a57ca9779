// What a worker is asked, as the words of its command line.
#ifndef FIT_WIRE_REQUEST_WORDS_H
#define FIT_WIRE_REQUEST_WORDS_H

#include <string>
#include <vector>

#include "fit/photo/fit_photo.h"

enum class WorkerTask { Fit, Inspect };

struct WorkerRequest {
  WorkerTask task = WorkerTask::Fit;
  PhotoRequest photo;
};

// "fit", "max-bytes=300000" and so on.
std::vector<std::string> wordsOf(const WorkerRequest& request);
// False where a word means nothing; *error names it.
bool parseWords(const std::vector<std::string>& words, WorkerRequest* request, std::string* error);

// "all", "no-location", "none".
const char* nameOf(KeepMetadata keep);
bool parseKeepMetadata(const std::string& name, KeepMetadata* keep);

#endif
