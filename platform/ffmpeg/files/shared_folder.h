// The folder in which the transcodes of one user find each other.
#ifndef PLATFORM_FFMPEG_FILES_SHARED_FOLDER_H
#define PLATFORM_FFMPEG_FILES_SHARED_FOLDER_H

#include <string>

// $XDG_RUNTIME_DIR/tarn-transcode, or tarn-transcode-UID in `temporary` where that cannot be had:
// who has not logged in has no runtime folder, and as many movies could be under way as
// anybody likes. Made if need be; empty when neither is this user's alone.
std::string sharedFolder(const std::string& temporary = "/tmp");

#endif
