#include <cstdio>

#include "client/commands/arguments.h"
#include "client/commands/commands.h"
#include "client/commands/in_out.h"
#include "client/files/jpeg_file.h"
#include "client/files/staged_output.h"
#include "client/service/service_reply.h"
#include "client/units/byte_size.h"

namespace {

dsjson::JValue resizeRequest(const std::string& in, const std::string& out, int32_t sizeBytes) {
  dsjson::JValue request = dsjson::Object();
  request.put("inFile", in).put("outFile", out).put("size", sizeBytes);
  return request;
}

// "1296 x 976, 193 kB"
std::string sizeWords(const ServiceReply& reply) {
  int32_t width = 0;
  int32_t height = 0;
  int32_t sizeBytes = 0;
  reply.members["xSize"].asNumber(width);
  reply.members["ySize"].asNumber(height);
  reply.members["ImageSize"].asNumber(sizeBytes);
  return std::to_string(width) + " x " + std::to_string(height) + ", " + formatByteSize(sizeBytes);
}

}  // namespace

ExitCode runResizeImage(const std::vector<std::string>& words) {
  const Arguments arguments(words, {"--size"}, {"--json", "--quiet"});
  InOut files;
  ExitCode exitCode = takeInOut(arguments, "resize-image", &files);
  if (exitCode != ExitDone) return exitCode;
  const std::string limit = arguments.value("--size").value_or("");
  const auto sizeBytes = parseByteSize(limit);
  if (!sizeBytes) return sayUsage("resize-image needs --size, such as 300k or 1.5M");
  exitCode = checkInOut(files);
  if (exitCode != ExitDone) return exitCode;
  const std::string whyNot = whyNoJpeg(files.in);
  if (!whyNot.empty()) return sayFailure("cannot read " + files.in + " as a JPEG: " + whyNot);

  StagedOutput output(files.out);
  if (output.temporaryPath().empty()) return sayFailure(output.errorText());
  const dsjson::JValue request = resizeRequest(files.in, output.temporaryPath(), *sizeBytes);
  const Answer answer = callServiceAgain("resizeImage", requestText(request));
  if (answer.kind != Answer::Replied) return sayNoReply(answer);

  const ServiceReply reply = parseServiceReply(answer.payload);
  const bool isWhole = reply.succeeded && isWholeJpeg(output.temporaryPath());
  if (reply.succeeded && !isWhole) {
    return sayFailure("the picture is damaged: no whole picture came out");
  }
  if (isWhole && !output.commit()) return sayFailure(output.errorText());
  if (arguments.has("--json")) printf("%s\n", answer.payload.c_str());
  if (!reply.succeeded) {
    // The service gives no reason when no size was small enough.
    return sayFailure(reply.errorText.empty() ? "the picture cannot be made to fit " + limit
                                              : reply.errorText);
  }
  if (!arguments.has("--json") && !arguments.has("--quiet")) {
    printf("%s: %s\n", files.out.c_str(), sizeWords(reply).c_str());
  }
  return ExitDone;
}
