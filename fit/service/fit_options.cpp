#include "fit/service/fit_options.h"

#include <algorithm>
#include <cstring>

const char* const kFormats[] = {"jpeg", "webp", "avif", nullptr};
const char* const kMovieFormats[] = {"mp4-h264", "mp4", "3gp", nullptr};

namespace {

constexpr uint64_t kMostBytes = uint64_t{1} << 30;
constexpr int kMostPixels = 65500;
constexpr int kBestFloor = 95;
constexpr size_t kLongestToken = 64;
constexpr char kKnownOfPhotos[] =
    "format, handle_token, keepMetadata, maxHeight, maxWidth, qualityFloor, wait";
constexpr char kKnownOfMovies[] = "format, handle_token, maxHeight, maxWidth, wait";

class OptionReader {
 public:
  OptionReader(FitOptions* parsedOptions, Refusal* why) : parsed(parsedOptions), refusal(why) {}

  bool take(const std::string& name, GVariant* value) {
    if (name == "handle_token") return takeToken(value);
    if (name == "wait") return takeWait(value);
    if (name == "format") return isMovie() ? takeMovieFormat(value) : takeFormat(value);
    if (name == "maxWidth") {
      return takeNumber(name, value, 0, kMostPixels,
                        isMovie() ? &movie().maxWidth : &photo().maxWidth);
    }
    if (name == "maxHeight") {
      return takeNumber(name, value, 0, kMostPixels,
                        isMovie() ? &movie().maxHeight : &photo().maxHeight);
    }
    if (!isMovie() && name == "qualityFloor") {
      return takeNumber(name, value, 1, kBestFloor, &photo().qualityFloor);
    }
    if (!isMovie() && name == "keepMetadata") return takeKeepMetadata(value);
    return refuse("UnknownOption", "There is no option \"" + name + "\"; there are " +
                                       (isMovie() ? kKnownOfMovies : kKnownOfPhotos));
  }

 private:
  bool isMovie() const { return parsed->request.kind == MediaKind::Movie; }
  PhotoRequest& photo() { return parsed->request.photo; }
  MovieRequest& movie() { return parsed->request.movie; }
  bool refuse(const char* name, const std::string& message) {
    *refusal = {name, message};
    return false;
  }
  bool isOfType(const std::string& name, GVariant* value, const char* type) {
    if (g_variant_is_of_type(value, G_VARIANT_TYPE(type))) return true;
    return refuse("InvalidOption", "The option " + name + " is of the type " + type + ", not " +
                                       g_variant_get_type_string(value));
  }
  bool takeNumber(const std::string& name, GVariant* value, int least, int most, int* number) {
    if (!isOfType(name, value, "u")) return false;
    const guint32 given = g_variant_get_uint32(value);
    if (given < static_cast<guint32>(least) || given > static_cast<guint32>(most)) {
      return refuse("InvalidOption", "The option " + name + " goes from " + std::to_string(least) +
                                         " to " + std::to_string(most));
    }
    *number = static_cast<int>(given);
    return true;
  }
  bool takeFormat(GVariant* value) {
    if (!isOfType("format", value, "s")) return false;
    const std::string format = g_variant_get_string(value, nullptr);
    if (parsePhotoFormat(format, &photo().format)) return true;
    return refuse("NotSupported",
                  "The format \"" + format + "\" is not supported; supported: jpeg, webp, avif");
  }
  bool takeMovieFormat(GVariant* value) {
    if (!isOfType("format", value, "s")) return false;
    const std::string format = g_variant_get_string(value, nullptr);
    if (parseMovieFormat(format, &movie().format)) return true;
    return refuse("NotSupported",
                  "The format \"" + format + "\" is not supported; supported: mp4-h264, mp4, 3gp");
  }
  bool takeKeepMetadata(GVariant* value) {
    if (!isOfType("keepMetadata", value, "s")) return false;
    if (parseKeepMetadata(g_variant_get_string(value, nullptr), &photo().keep)) return true;
    return refuse("InvalidOption", "The option keepMetadata is all, no-location or none");
  }
  bool takeToken(GVariant* value) {
    if (!isOfType("handle_token", value, "s")) return false;
    parsed->token = g_variant_get_string(value, nullptr);
    const bool isPathElement = !parsed->token.empty() && parsed->token.size() <= kLongestToken &&
                               std::all_of(parsed->token.begin(), parsed->token.end(), [](char c) {
                                 return g_ascii_isalnum(c) != FALSE || c == '_';
                               });
    return isPathElement || refuse("InvalidOption",
                                   "The option handle_token is 1 to 64 letters, digits and "
                                   "underscores");
  }
  bool takeWait(GVariant* value) {
    if (!isOfType("wait", value, "b")) return false;
    parsed->waits = g_variant_get_boolean(value) != FALSE;
    return true;
  }

  FitOptions* const parsed;
  Refusal* const refusal;
};

}  // namespace

bool parseFitOptions(uint64_t maxBytes, GVariant* options, FitOptions* parsed, Refusal* refusal) {
  if (maxBytes == 0 || maxBytes > kMostBytes) {
    *refusal = {"InvalidLimit", "The limit goes from 1 byte to 1 GiB"};
    return false;
  }
  parsed->request.photo.maxBytes = parsed->request.movie.maxBytes = static_cast<int64_t>(maxBytes);
  OptionReader reader(parsed, refusal);
  GVariantIter iterator;
  g_variant_iter_init(&iterator, options);
  const char* name = nullptr;
  GVariant* value = nullptr;
  bool isFine = true;
  while (g_variant_iter_next(&iterator, "{&sv}", &name, &value) != FALSE) {
    isFine = isFine && reader.take(name, value);
    g_variant_unref(value);
  }
  return isFine;
}
