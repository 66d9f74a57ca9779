// What a path leads to, and what stands there.
#ifndef PLATFORM_FFMPEG_FILES_PATHS_H
#define PLATFORM_FFMPEG_FILES_PATHS_H

#include <string>

// The absolute path that `path` leads to, every link resolved; `path` itself where nothing is.
std::string resolved(const std::string& path);

// The whole content of the file at `path`; "" where there is none.
std::string textOf(const std::string& path);

// The folder that holds `path`, "." for a bare name.
std::string folderOf(const std::string& path);

#endif
