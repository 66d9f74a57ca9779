#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "client/commands/commands.h"
#include "client/commands/in_out.h"
#include "client/commands/withdrawal.h"
#include "client/files/jpeg_file.h"
#include "client/files/staged_output.h"
#include "client/service/service_reply.h"
#include "client/units/byte_size.h"

namespace fs = std::filesystem;

namespace {

// Where the picture would be less than a pixel wide or high.
constexpr char kScaleTooSmall[] = "Scale factor is too small";

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

// The reply that the service would give of a picture that it left alone.
std::string copyReply(const JpegSize& size, uintmax_t sizeBytes) {
  dsjson::JValue reply = dsjson::Object();
  reply.put("returnValue", true)
      .put("xSize", size.width)
      .put("ySize", size.height)
      .put("ImageSize", static_cast<int32_t>(sizeBytes));
  return requestText(reply);
}

void printResult(const Options& options, const std::string& out, const std::string& payload,
                 const char* remark) {
  if (options.json) {
    printf("%s\n", payload.c_str());
  } else if (!options.quiet) {
    printf("%s: %s%s\n", out.c_str(), sizeWords(parseServiceReply(payload)).c_str(), remark);
  }
}

// A picture that fits would only lose by another encoding, and often grow.
ExitCode copyAsItIs(const Options& options, const std::string& in, const JpegSize& size,
                    StagedOutput* output, const std::string& out) {
  std::error_code code;
  fs::copy_file(in, output->temporaryPath(), fs::copy_options::overwrite_existing, code);
  std::error_code unknown;
  if (code && !output->hasRoomFor(fs::file_size(in, unknown))) return sayNoSpace(out);
  if (code) return sayFailure("cannot copy " + in + ": " + code.message());
  const uintmax_t sizeBytes = fs::file_size(output->temporaryPath(), code);
  if (!output->commit()) return sayFailure(output->errorText());
  printResult(options, out, copyReply(size, sizeBytes), ", as it was");
  return ExitDone;
}

}  // namespace

ExitCode runResizeImage(const Options& options) {
  const InOut files = inOutOf(options);
  const int32_t sizeBytes = *options.size;
  ExitCode exitCode = checkInOut(files);
  if (exitCode != ExitDone) return exitCode;
  JpegSize size;
  std::string error;
  if (!readJpegSize(files.in, &size, &error)) {
    return sayFailure("cannot read " + files.in + " as a JPEG: " + error);
  }

  Interrupts interrupts;
  StagedOutput output(files.out);
  if (output.temporaryPath().empty()) return sayFailure(output.errorText());
  // What does not end as a picture does is left to the service, which looks at all of it.
  std::error_code ignored;
  const uintmax_t inputBytes = fs::file_size(files.in, ignored);
  const bool fits = inputBytes <= static_cast<uintmax_t>(sizeBytes);
  if (fits && !options.always && isWholeJpeg(files.in)) {
    return copyAsItIs(options, files.in, size, &output, files.out);
  }

  const dsjson::JValue request = resizeRequest(files.in, output.temporaryPath(), sizeBytes);
  // Other pictures may be in front of it.
  Withdrawal withdrawal(&interrupts, &output, std::chrono::seconds(1));
  const Answer answer =
      callServiceAgain("resizeImage", requestText(request), [&] { return withdrawal.goesOn(); });
  if (withdrawal.isWanted(&exitCode)) return exitCode;
  if (answer.kind != Answer::Replied) return sayNoReply(answer);

  const ServiceReply reply = parseServiceReply(answer.payload);
  const bool isWhole = reply.succeeded && isWholeJpeg(output.temporaryPath());
  if (reply.succeeded && !isWhole) {
    // As much as the service may have wanted: its first attempt is of the source's kind.
    const auto most = std::max(inputBytes, static_cast<uintmax_t>(sizeBytes));
    if (!output.hasRoomFor(most)) return sayNoSpace(files.out);
    return sayFailure("the picture is damaged: no whole picture came out");
  }
  if (isWhole && !output.commit()) return sayFailure(output.errorText());
  if (!reply.succeeded) {
    if (options.json) printf("%s\n", answer.payload.c_str());
    // The service gives no reason when no size was small enough.
    const bool isTooSmall = reply.errorText.empty() || reply.errorText == kScaleTooSmall;
    if (!isTooSmall) return sayFailure(reply.errorText);
    sayFailure("the picture cannot be made to fit " + formatByteSize(sizeBytes));
    return ExitCannotFit;
  }
  printResult(options, files.out, answer.payload, "");
  return ExitDone;
}
