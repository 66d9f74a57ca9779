#include "fit/movie/work_place.h"

#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

fs::path cacheFolder() {
  const char* cache = getenv("XDG_CACHE_HOME");
  if (cache != nullptr && cache[0] == '/') return cache;
  const char* home = getenv("HOME");
  return home != nullptr && home[0] == '/' ? fs::path(home) / ".cache" : fs::path();
}

}  // namespace

std::string workPlace(std::string* error) {
  const fs::path cache = cacheFolder();
  if (cache.empty()) {
    *error = "there is no home";
    return "";
  }
  const fs::path place = cache / "tarn-fit";
  std::error_code failure;
  fs::create_directories(cache, failure);
  if (!failure && fs::create_directory(place, failure)) {
    fs::permissions(place, fs::perms::owner_all, failure);
  }
  if (!failure) return place;
  *error = place.string() + ": " + failure.message();
  return "";
}
