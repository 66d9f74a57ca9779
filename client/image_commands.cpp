#include <cstdio>
#include <filesystem>

#include "client/arguments.h"
#include "client/byte_size.h"
#include "client/commands.h"
#include "client/jpeg_file.h"
#include "client/staged_output.h"

namespace fs = std::filesystem;

namespace {

const dsjson::JSchema kAnySchema = dsjson::JSchemaFragment("{}");

struct ImageReply {
  std::string text;
  bool succeeded = false;
  int32_t width = 0;
  int32_t height = 0;
  int32_t sizeBytes = 0;
  std::string errorText;
};

ImageReply parseImageReply(const std::string& payload) {
  ImageReply reply;
  reply.text = payload;
  dsjson::JDomParser parser(nullptr);
  if (!parser.parse(payload, kAnySchema, nullptr)) return reply;
  const dsjson::JValue value = parser.getDom();
  value["returnValue"].asBool(reply.succeeded);
  value["xSize"].asNumber(reply.width);
  value["ySize"].asNumber(reply.height);
  value["ImageSize"].asNumber(reply.sizeBytes);
  value["errorText"].asString(reply.errorText);
  return reply;
}

std::string resizeRequest(const std::string& in, const std::string& out, int32_t sizeBytes) {
  dsjson::JValue request = dsjson::Object();
  request.put("inFile", in).put("outFile", out).put("size", sizeBytes);
  std::string text;
  dsjson::JGenerator(nullptr).toString(request, kAnySchema, text);
  return text;
}

// The reason of a refusal; the service gives none when no size was small enough.
std::string refusal(const ImageReply& reply, const std::string& limit) {
  std::string reason = reply.errorText;
  while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
    reason.pop_back();
  return reason.empty() ? "the picture cannot be made to fit " + limit : reason;
}

}  // namespace

ExitCode runResizeImage(const std::vector<std::string>& words) {
  const Arguments arguments(words, {"--size"}, {"--json", "--quiet"});
  if (!arguments.errorText().empty()) return sayUsage(arguments.errorText());
  if (arguments.positional().size() != 2) return sayUsage("resize-image needs IN and OUT");
  const std::string limit = arguments.value("--size").value_or("");
  const auto sizeBytes = parseByteSize(limit);
  if (!sizeBytes) return sayUsage("resize-image needs --size, such as 300k or 1.5M");

  const std::string in = fs::absolute(arguments.positional()[0]).lexically_normal();
  const std::string out = fs::absolute(arguments.positional()[1]).lexically_normal();
  const std::string whyNot = whyNoJpeg(in);
  if (!whyNot.empty()) return sayFailure("cannot read " + in + " as a JPEG: " + whyNot);
  std::error_code ignored;
  if (fs::equivalent(in, out, ignored)) return sayFailure("input and output are the same file");

  StagedOutput output(out);
  if (output.temporaryPath().empty()) return sayFailure(output.errorText());
  const Answer answer =
      callServiceAgain("resizeImage", resizeRequest(in, output.temporaryPath(), *sizeBytes));
  if (answer.kind != Answer::Replied) return sayNoReply(answer);

  const ImageReply reply = parseImageReply(answer.payload);
  const bool isWhole = reply.succeeded && isWholeJpeg(output.temporaryPath());
  if (reply.succeeded && !isWhole) {
    return sayFailure("the picture is damaged: no whole picture came out");
  }
  if (isWhole && !output.commit()) return sayFailure(output.errorText());
  if (arguments.has("--json")) printf("%s\n", reply.text.c_str());
  if (!reply.succeeded) return sayFailure(refusal(reply, limit));
  if (!arguments.has("--json") && !arguments.has("--quiet")) {
    printf("%s: %d x %d, %s\n", out.c_str(), reply.width, reply.height,
           formatByteSize(reply.sizeBytes).c_str());
  }
  return ExitDone;
}
