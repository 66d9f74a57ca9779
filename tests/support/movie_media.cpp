#include "tests/support/movie_media.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// Stable from run to run, unlike std::hash.
std::string fingerprint(const std::vector<std::string>& texts) {
  uint64_t hash = 14695981039346656037ULL;
  for (const std::string& text : texts) {
    for (const char c : text + '\n') {
      hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    }
  }
  std::ostringstream hex;
  hex << std::hex << hash;
  return hex.str();
}

std::string keptPath(const std::string& name, const std::vector<std::string>& origin) {
  const fs::path folder = fs::path(MOVIE_MEDIA_FOLDER) / fingerprint(origin);
  fs::create_directories(folder);
  return folder / name;
}

// Puts what `make` writes to the path that it is given into place in one step, unless a test
// running beside this one was first: its file may be in use, and a sandbox knows a file by its
// inode.
template <typename Make>
std::string keep(const std::string& path, const Make& make) {
  if (fs::exists(path)) return path;
  const fs::path folder = fs::path(path).parent_path() / ("making-" + std::to_string(getpid()));
  fs::create_directories(folder);
  const fs::path fresh = folder / fs::path(path).filename();
  make(fresh.string());
  std::error_code error;
  fs::create_hard_link(fresh, path, error);
  fs::remove_all(folder);
  if (error && error != std::errc::file_exists) throw fs::filesystem_error("kept", path, error);
  return path;
}

int spawnAndWait(const std::vector<std::string>& words, const std::string& outputPath) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const std::string& word : words) {
    argv.push_back(const_cast<char*>(word.c_str()));
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = 0;
  const int failure = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = -1;
  if (failure == 0) waitpid(pid, &status, 0);
  return status;
}

}  // namespace

std::string runSystemFfmpeg(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {
      MOVIE_MEDIA_FFMPEG, "-nostdin", "-hide_banner", "-v", "error", "-y"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::string outputPath = fs::temp_directory_path() / "movie-media-XXXXXX";
  const int fd = mkstemp(outputPath.data());
  if (fd >= 0) close(fd);
  const int status = spawnAndWait(words, outputPath);
  std::string output = readFile(outputPath);
  unlink(outputPath.c_str());
  if (status != 0) throw std::runtime_error("ffmpeg failed: " + output);
  return output;
}

std::string decodingErrors(const std::string& path) {
  return runSystemFfmpeg({"-i", "file:" + path, "-f", "null", "-"});
}

std::string movieClip(const std::string& name, const std::vector<std::string>& arguments) {
  std::vector<std::string> origin = arguments;
  origin.push_back(name);
  return keep(keptPath(name, origin), [&](const std::string& path) {
    std::vector<std::string> words = arguments;
    words.push_back("file:" + path);
    runSystemFfmpeg(words);
  });
}

std::string movieClip(const ClipRecipe& recipe) {
  const std::string seconds = std::to_string(recipe.seconds);
  std::vector<std::string> words;
  if (!recipe.videoCodec.empty()) {
    words = {"-f", "lavfi", "-i",
             "testsrc2=size=" + recipe.size + ":rate=" + recipe.rate + ":duration=" + seconds};
  }
  if (!recipe.audioCodec.empty()) {
    words.insert(words.end(), {"-f", "lavfi", "-i", "sine=frequency=440:duration=" + seconds});
  }
  if (!recipe.videoCodec.empty()) {
    words.insert(words.end(), {"-c:v", recipe.videoCodec, "-pix_fmt", "yuv420p"});
  }
  if (!recipe.audioCodec.empty()) words.insert(words.end(), {"-c:a", recipe.audioCodec});
  words.insert(words.end(), recipe.more.begin(), recipe.more.end());
  return movieClip(recipe.name, words);
}

std::string textFile(const std::string& name, const std::string& text) {
  return keep(keptPath(name, {text, name}),
              [&](const std::string& path) { writeFile(path, text); });
}
