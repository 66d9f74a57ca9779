#include "client/service/movie_progress.h"

#include <glib.h>

#include <algorithm>

#include "dsjson/dsjson.h"

namespace {

const dsjson::JSchema kAnySchema = dsjson::JSchemaFragment("{}");

}  // namespace

MovieProgress::MovieProgress(const std::string& outputPath) {
  const char* runtimeFolder = g_getenv("XDG_RUNTIME_DIR");
  if (runtimeFolder == nullptr) return;
  g_autofree char* digest =
      g_compute_checksum_for_string(G_CHECKSUM_SHA256, outputPath.c_str(), -1);
  path = std::string(runtimeFolder) + "/tarn-transcode/" + digest + ".progress";
}

std::optional<Step> MovieProgress::step() const {
  g_autofree char* text = nullptr;
  dsjson::JDomParser parser(nullptr);
  if (path.empty() || g_file_get_contents(path.c_str(), &text, nullptr, nullptr) == FALSE ||
      !parser.parse(text, kAnySchema, nullptr)) {
    return std::nullopt;
  }
  const dsjson::JValue state = parser.getDom();
  int32_t pass = 0;
  int32_t passes = 0;
  double positionMs = 0;
  double durationMs = 0;
  if (state["pass"].asNumber(pass) != dsjson::CONV_OK ||
      state["passes"].asNumber(passes) != dsjson::CONV_OK ||
      state["position"].asNumber(positionMs) != dsjson::CONV_OK ||
      state["duration"].asNumber(durationMs) != dsjson::CONV_OK || passes < 1 || durationMs <= 0) {
    return std::nullopt;
  }
  const double ofThisPass = std::clamp(positionMs / durationMs, 0.0, 1.0);
  return Step{std::clamp((pass - 1 + ofThisPass) / passes, 0.0, 1.0), pass, passes};
}
