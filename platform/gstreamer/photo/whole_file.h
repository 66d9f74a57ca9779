// A file that holds a whole picture or nothing.
#ifndef PLATFORM_GSTREAMER_PHOTO_WHOLE_FILE_H
#define PLATFORM_GSTREAMER_PHOTO_WHOLE_FILE_H

#include <gst/gst.h>

// Empties the regular file at `path`, or creates it, and returns it open for writing; -1 with errno
// set where that cannot be, EINVAL where something else is there. Never waits.
int openEmptyFile(const char* path);

// Writes the bytes into the empty file, all or none: the room for them is taken first, and what
// could not be finished is taken back. The first bytes go last, so that even a process killed
// meanwhile leaves nothing that begins as a picture does. False with errno set on failure.
bool writeWhole(int fd, const GstMapInfo& bytes);

#endif
