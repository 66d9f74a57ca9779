// A photo is looked at by a caged process, where a stranger's photo can do no harm.
#ifndef CLIENT_COMPARE_PHOTO_WORKER_H
#define CLIENT_COMPARE_PHOTO_WORKER_H

#include <cstdint>
#include <string>

#include "fit/wire/report_lines.h"
#include "fit/wire/request_words.h"

// Has the photo inspected or viewed by it. `output`, which gets a view, is borrowed. On failure
// *error says why in one line.
bool askPhotoWorker(WorkerTask task, const std::string& path, int output, WorkerReport* report,
                    std::string* error);

// A side that a worker told, within bounds.
int sideOf(const WorkerReport& report, const char* name);

// By its first bytes, whether the file is of a kind that the worker reads.
bool isPhoto(const std::string& path);

// What a photo of any such kind is.
struct PhotoLook {
  std::string format;  // "png", "heic" and so on
  int width = 0;       // upright
  int height = 0;
  int64_t metadataBytes = 0;
};

bool lookAtPhotoFile(const std::string& path, PhotoLook* look, std::string* error);

#endif
