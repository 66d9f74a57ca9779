// The file in which other programs of the user see how far a transcode has come.
//
// It is $XDG_RUNTIME_DIR/tarn-transcode/SHA256.progress, the digest (hexadecimal) being that of
// the output's absolute path, byte for byte as it was asked for. It holds one JSON object:
//   {"pass":1,"passes":2,"position":1200,"duration":30208}        both times in ms
#ifndef PLATFORM_FFMPEG_FILES_PROGRESS_FILE_H
#define PLATFORM_FFMPEG_FILES_PROGRESS_FILE_H

#include <cstdint>
#include <string>
#include <vector>

struct Progress {
  int pass = 1;  // from 1, in the order of time
  int passes = 1;
  int64_t positionMs = 0;
  int64_t durationMs = 0;
};

// Removes the file at its end. Where it cannot be written, nothing happens and nothing fails.
class ProgressFile {
 public:
  // `outputPath` may be relative to the current folder.
  explicit ProgressFile(const std::string& outputPath);
  ~ProgressFile();
  ProgressFile(const ProgressFile&) = delete;
  ProgressFile& operator=(const ProgressFile&) = delete;

  // Replaces the whole file in one step.
  void write(const Progress& progress);

  const std::string& path() const { return filePath; }

  // Every file that this process may have made for that output; none where there is no folder.
  static std::vector<std::string> pathsFor(const std::string& outputPath);

  // The folder of these files, made if need be; empty when there is none.
  static std::string folder();

 private:
  std::string filePath;   // empty when there is no folder
  std::string freshPath;  // where its next content is written
};

#endif
