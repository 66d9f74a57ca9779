// Small movie clips for tests: made on first use, kept in the build tree under a name that depends
// on how they were made, and shared by every test that asks for the same one.
//
// Errors: all operations throw std::runtime_error when a clip cannot be made.
#ifndef TESTS_SUPPORT_MOVIE_MEDIA_H
#define TESTS_SUPPORT_MOVIE_MEDIA_H

#include <string>
#include <vector>

// A moving test picture and a tone. Whatever is empty is left out.
struct ClipRecipe {
  std::string name = "clip.mp4";  // its ending chooses the container
  double seconds = 2;
  std::string size = "160x120";
  std::string rate = "25";
  std::string videoCodec = "libx264";
  std::string audioCodec = "aac";
  std::vector<std::string> more = {};  // further output options of the system's ffmpeg
};

// The clip's absolute path. Do not change the file: others read it.
std::string movieClip(const ClipRecipe& recipe);

// A clip from any arguments of the system's ffmpeg; the output's path is added to them.
std::string movieClip(const std::string& name, const std::vector<std::string>& arguments);

// What the system's ffmpeg, run with these arguments, wrote; throws when it fails.
std::string runSystemFfmpeg(const std::vector<std::string>& arguments);

// Decodes the whole file and returns the decoder's complaints: empty for a good file.
std::string decodingErrors(const std::string& path);

// Writes `text` to a file of the same kept folder and returns its absolute path.
std::string textFile(const std::string& name, const std::string& text);

#endif
