#include "src/movie/mpeg_info_native_ffmpeg.h"

#include <regex.h>

#include <cstdio>

#include "src/framework/int32.h"
#include "src/framework/program.h"
#include "src/movie/c_locale.h"
#include "src/movie/file_size.h"

namespace {

// POSIX extended syntax, where "*?" is greedy and a backslash in brackets is a plain character:
// group 1 is the duration, group 2 the two rates of the video stream. One match runs over lines.
constexpr char kReport[] =
    "Duration\\: ([0-9]+\\:[0-9]+\\:[0-9\\.]+), .*?"
    "Stream #0\\.[^\\:]+\\: Video\\: [^\\$]*? kb/s, ([^\\$]* fps, [^\\$]*) tbr";

bool matchReport(const std::string& report, regmatch_t (&groups)[3]) {
  regex_t expression;
  if (regcomp(&expression, kReport, REG_EXTENDED) != 0) return false;
  const int result = regexec(&expression, report.c_str(), 3, groups, 0);
  regfree(&expression);
  return result == 0;
}

std::string cut(const std::string& report, const regmatch_t& group) {
  return {report.begin() + group.rm_so, report.begin() + group.rm_eo};
}

}  // namespace

LaunchResult MpegInfoNativeFFMpeg::run() {
  if (!fileSizeOf(inFile, &fileSize) || fileSize <= 0) {
    ctx->setLastErrorMessage("Input file is not a media file");
    return LaunchFailed;
  }
  if (!probe()) {
    ctx->setLastErrorMessage("can't parse movie information\n");
    return LaunchFailed;
  }
  // From 256 MiB on the product wraps around; callers know the figure that way.
  bitrate = truncateToInt32(wrappedProduct(fileSize, 8) / (clipLength / 1000.0));
  replySuccess();
  return LaunchDone;
}

bool MpegInfoNativeFFMpeg::probe() {
  const char* const argv[] = {"ffmpeg", "-i", inFile.c_str(), nullptr};
  std::string out;
  std::string report;
  int status;
  // How ffmpeg ends says nothing: without an output file it always fails.
  return execProgram(out, report, &status, 0, argv[0], const_cast<char* const*>(argv)) != -1 &&
         readReport(report);
}

bool MpegInfoNativeFFMpeg::readReport(const std::string& report) {
  const CLocale plainNumbersAndBytes;
  regmatch_t groups[3];
  return matchReport(report, groups) && readDuration(cut(report, groups[1])) &&
         readRates(cut(report, groups[2]));
}

bool MpegInfoNativeFFMpeg::readDuration(const std::string& text) {
  int hours = 0;
  int minutes = 0;
  float seconds = 0;
  if (sscanf(text.c_str(), "%d:%d:%f", &hours, &minutes, &seconds) == EOF) return false;
  const int32_t wholeSeconds = wrappedProduct(wrappedSum(wrappedProduct(hours, 60), minutes), 60);
  clipLength = truncateToInt32((double{seconds} + wholeSeconds) * 1000);
  return true;
}

bool MpegInfoNativeFFMpeg::readRates(const std::string& text) {
  return sscanf(text.c_str(), "%f fps, %f", &frameRate, &tbr) != EOF;
}
