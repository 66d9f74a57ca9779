// Prints what ffmpeg command lines movie requests end in.
//
// Reads one request a line from stdin:
//   {"request": {"clipLength": 1.5, "videoCodec": "mpeg4", ...},
//    "probe": {"clipLength": 10000, "frameRate": 25.0, "tbr": 25.0},
//    "inputFileSize": 1000000}
//
//   request        the payload of a resizeMovie request, its members passed through as they are.
//                  Without "inFile" the input is a sparse file of inputFileSize bytes; without
//                  "outFile" it is "out.mp4".
//   probe          what the probe is taken to have found: clipLength in whole ms. null or left out:
//                  the transcoder has no probe. A member left out is 0.
//   inputFileSize  bytes; left out: 1000000.
//
// Prints one line for each: the request refused,
//   {"errorText": "..."}
// or the argument vectors of the passes in the order in which they run, one for "passes" 1 and two
// (first pass 2, then pass 1) for 2, the program's name first in each:
//   {"argv": [["ffmpeg", "-i", ...], ...]}
// The input's name in them is "INPUT" when the driver made it.
//
// A line that is no JSON object ends it with exit status 1, the end of stdin with 0.
#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "src/movie/mpeg_transcode_native_ffmpeg.h"
#include "tests/support/fake_vela.h"

using Json = nlohmann::ordered_json;

namespace {

Json gRecorded;

class Probe final : public MpegInfo {
 public:
  explicit Probe(const Json& facts) : MpegInfo(nullptr) {
    clipLength = facts.value("clipLength", 0);
    frameRate = facts.value("frameRate", 0.0F);
    tbr = facts.value("tbr", 0.0F);
  }
  LaunchResult run() override { return LaunchDone; }
};

// The real task up to run(), which makes the argument vectors without a child.
class Planner final : public MpegTranscodeNativeFFMpeg {
 public:
  using MpegTranscodeNativeFFMpeg::MpegTranscodeNativeFFMpeg;

  LaunchResult run() override {
    for (int pass = getPasses(); pass >= 1; pass--) {
      exec(pass);
    }
    return LaunchDone;
  }
};

// An input of that size for as long as this lives.
class Input {
 public:
  explicit Input(int64_t sizeBytes) {
    const int file = mkstemp(path);
    if (file == -1 || ftruncate(file, sizeBytes) != 0) {
      perror(path);
      exit(1);
    }
    close(file);
  }
  ~Input() { unlink(path); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  char path[32] = "/tmp/plan_driver.XXXXXX";
};

void rename(Json* vectors, const std::string& from, const char* to) {
  for (Json& vector : *vectors) {
    for (Json& item : vector) {
      if (item == from) item = to;
    }
  }
}

// Runs one request and returns its replies; gRecorded then holds its vectors.
std::vector<std::string> repliesTo(const Json& request, const Json& probeFacts) {
  const fake_vela::Request message(request.dump());
  const auto probe = probeFacts.is_object() ? std::make_unique<Probe>(probeFacts) : nullptr;
  gRecorded = Json::array();
  {
    Planner planner(new VSCtx(fake_vela::handle(), message.message()));
    planner.mpegInfo = probe.get();
    planner.launch();
  }
  return message.replies();
}

Json plan(const Json& line) {
  const Input input(line.value("inputFileSize", int64_t{1000000}));
  Json request = line.value("request", Json());
  if (request.is_object()) {
    if (!request.contains("inFile")) request["inFile"] = input.path;
    if (!request.contains("outFile")) request["outFile"] = "out.mp4";
  }
  const auto replies = repliesTo(request, line.value("probe", Json()));
  if (!replies.empty()) return {{"errorText", Json::parse(replies[0]).value("errorText", "")}};
  rename(&gRecorded, input.path, "INPUT");
  return {{"argv", gRecorded}};
}

}  // namespace

// The linker puts this in the place of execvp.
extern "C" int __wrap_execvp(const char*, char* const* argv) {
  Json vector = Json::array();
  for (; *argv != nullptr; argv++) {
    vector.push_back(*argv);
  }
  gRecorded.push_back(vector);
  return -1;
}

// An exception means a line that is not as described above; it ends the program.
int main() {  // NOLINT(bugprone-exception-escape)
  // The transcoder prints its command lines to stdout: what belongs there goes to a copy of it.
  FILE* answers = fdopen(dup(STDOUT_FILENO), "w");
  if (freopen("/dev/null", "w", stdout) == nullptr) return 1;
  g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, void*) {}, nullptr);

  std::string text;
  while (std::getline(std::cin, text)) {
    const Json line = Json::parse(text, nullptr, false);
    if (!line.is_object()) return 1;
    const std::string answer = plan(line).dump(-1, ' ', false, Json::error_handler_t::replace);
    fprintf(answers, "%s\n", answer.c_str());
    fflush(answers);
  }
  return 0;
}
