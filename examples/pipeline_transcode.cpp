// Transcodes one movie with the GStreamer back end: pipeline_transcode IN OUT.mp4
//
// No request handler makes this task; this is how one would. The elements that the back end is
// built on (decodebin2, tarnvideoencoder, tarnaudioencoder, tarnmpeg4mux) are the device's own;
// elsewhere GST_PLUGIN_PATH has to name the folder of libgsttarnmovie.so.
#include <cstdio>
#include <cstring>
#include <string>

#include "src/pipelines/mpeg_transcode_native_orrin.h"

namespace {

// A request fills inFile and outFile in when it is parsed. A task that no request came for has no
// context either, and is run() without launch(), which would reply through the context.
class FileTranscode : public MpegTranscodeNativeOrrin {
 public:
  FileTranscode(const char* in, const char* out) : MpegTranscodeNativeOrrin(nullptr) {
    inFile = in;
    outFile = out;
  }
};

// run() returns LaunchDone for an error on the bus, too: only the log tells them apart.
void keepErrors(const gchar*, GLogLevelFlags level, const gchar* text, gpointer errors) {
  const bool isBusError = strncmp(text, "Error: ", 7) == 0;
  if (isBusError || level <= G_LOG_LEVEL_WARNING) *static_cast<std::string*>(errors) += text;
}

int transcode(const char* in, const char* out) {
  std::string errors;
  const GLogFunc earlier = g_log_set_default_handler(keepErrors, &errors);
  // Blocks until the end of the movie or an error, and runs the default main context meanwhile:
  // timers and other sources of the program go on. The encoders work in threads of their own.
  FileTranscode task(in, out);
  const LaunchResult result = task.run();
  g_log_set_default_handler(earlier, nullptr);

  if (result == LaunchFailed) {
    fprintf(stderr, "An element of the back end is not installed.\n");
    return 1;
  }
  if (!errors.empty()) {
    fputs(errors.c_str(), stderr);
    return 1;
  }
  printf("%s\n", out);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  if (argc != 3) {
    fprintf(stderr, "usage: pipeline_transcode IN OUT.mp4\n");
    return 2;
  }
  return transcode(argv[1], argv[2]);
}
