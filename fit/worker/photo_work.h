// The work of a photo's worker, from its command line to its exit status: its standard input is the
// photo, its standard output the file to write, and its standard error what it tells.
#ifndef FIT_WORKER_PHOTO_WORK_H
#define FIT_WORKER_PHOTO_WORK_H

#include "fit/failure/fit_failure.h"
#include "fit/photo/photo_formats.h"
#include "fit/wire/request_words.h"

// Ends the process where the words mean nothing.
void beginPhotoWork(int argc, char** argv, WorkerRequest* request);
// Enters the cage, looks at the photo, and ends the process. `formats` are what there is beside
// JPEG, which may start threads; nullptr: nothing.
[[noreturn]] void endPhotoWork(const WorkerRequest& request, PhotoFormats* formats);
// Tells the failure and ends the process.
[[noreturn]] void failPhotoWork(const FitFailure& failure);

#endif
