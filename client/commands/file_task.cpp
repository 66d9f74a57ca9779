#include "client/commands/file_task.h"

#include <glib.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "client/files/jpeg_file.h"
#include "client/units/shared_size.h"

namespace fs = std::filesystem;

namespace {

int64_t fileBytes(const std::string& path) {
  std::error_code missing;
  const uintmax_t bytes = fs::file_size(path, missing);
  return missing ? 0 : static_cast<int64_t>(std::min<uintmax_t>(bytes, INT64_MAX));
}

void takeLimits(const Options& options, std::vector<FileTask>* tasks) {
  const int32_t most = options.size.value_or(INT32_MAX);
  std::vector<int64_t> sizes;
  for (FileTask& task : *tasks) {
    task.maxBytes = options.size.value_or(0);
    sizes.push_back(std::min<int64_t>(fileBytes(task.in), most));
  }
  if (!options.total) return;
  sizes = sharesOf(*options.total, sizes);
  for (size_t i = 0; i < tasks->size(); ++i) {
    (*tasks)[i].maxBytes = static_cast<int32_t>(std::max<int64_t>(1, sizes[i]));
  }
}

// Pictures that become a JPEG.
bool isOtherPictureName(const fs::path& path) {
  constexpr const char* kExtensions[] = {".avif", ".gif", ".heic", ".heif",
                                         ".png",  ".tif", ".tiff", ".webp"};
  return std::any_of(std::begin(kExtensions), std::end(kExtensions),
                     [&](const char* extension) { return hasExtension(path, extension); });
}

// The name that a file has in the folder of outputs.
std::string outputName(const fs::path& in, Media media) {
  if (media == Media::Both && isOtherPictureName(in)) return in.stem().string() + ".jpg";
  const bool isMovie = media == Media::Movies || (media == Media::Both && !startsAsJpeg(in));
  if (!isMovie || isMovieName(in)) return in.filename();
  return in.stem().string() + ".mp4";
}

}  // namespace

bool hasExtension(const std::string& path, const std::string& extension) {
  return g_ascii_strcasecmp(fs::path(path).extension().c_str(), extension.c_str()) == 0;
}

bool isMadePictureName(const std::string& path) {
  return !isOtherPictureName(path) || hasExtension(path, ".webp") || hasExtension(path, ".avif");
}

bool isMovieName(const std::string& path) {
  return hasExtension(path, ".mp4") || hasExtension(path, ".3gp");
}

std::string absolutePath(const std::string& path) {
  return fs::absolute(path).lexically_normal();
}

FileTask taskOf(const Options& options) {
  const int32_t most =
      std::min(options.size.value_or(INT32_MAX), options.total.value_or(INT32_MAX));
  const auto pathOf = [](const std::string& word) {
    return word == "-" ? word : absolutePath(word);
  };
  return {pathOf(options.words[0]), pathOf(options.words[1]),
          options.size || options.total ? most : 0};
}

bool takeTasks(const Options& options, Media media, std::vector<FileTask>* tasks,
               std::string* error) {
  if (options.outDir.empty()) {
    tasks->push_back({absolutePath(options.words[0]), absolutePath(options.words[1])});
  } else {
    std::set<std::string> names;
    for (const std::string& word : options.words) {
      const fs::path in = absolutePath(word);
      const std::string name = outputName(in, media);
      if (!names.insert(name).second) {
        *error = "two files would become " + options.outDir + "/" + name;
        return false;
      }
      tasks->push_back({in, absolutePath(options.outDir + "/" + name)});
    }
  }
  takeLimits(options, tasks);
  return true;
}
