#include "client/commands/report.h"

#include <cstdio>

const char kUsage[] =
    "usage: tarn-transcode COMMAND ...\n"
    "\n"
    "  fit IN OUT --size SIZE            make a photo of at most SIZE bytes, as good as can be\n"
    "  fit FILES --out-dir DIR [--size SIZE] [--total SIZE]   each, or all together\n"
    "  resize-image IN OUT --size SIZE   make a JPEG of at most SIZE bytes (300k, 1.5M, 64Ki)\n"
    "  resize-movie IN OUT [options]     re-encode a movie; OUT ends in .mp4 or .3gp\n"
    "  info FILE                         print a movie's length, size and bitrate\n"
    "  min-bitrate                       print the least bitrate of a movie\n"
    "  call METHOD JSON                  send a request as it is and print the reply\n"
    "\n"
    "Options of fit:\n"
    "  --max-width PIXELS, --max-height PIXELS\n"
    "  --keep-metadata all|no-location|none    all unless told; the colour profile always\n"
    "\n"
    "Options of resize-image:\n"
    "  --always   encode a picture anew that fits as it is; else it is copied\n"
    "\n"
    "Options of resize-movie:\n"
    "  --max-size SIZE                         the most that OUT may have (5M, 300k, 64Ki)\n"
    "  --max-bitrate, --video-bitrate, --audio-bitrate RATE   bits per second (64k, 1.5M)\n"
    "  --video-codec mpeg4|h263|copy, --audio-codec aac|amrnb|copy\n"
    "  --audio-rate HZ                         sound samples per second (22050)\n"
    "  --pic-size SIZE                         WxH, qcif, cif; auto with h263\n"
    "  --frame-rate RATE                       pictures per second\n"
    "  --start SECONDS, --length SECONDS       the part to keep\n"
    "  --passes 1|2                            how often IN is read; unless told, 2 where 1 fails\n"
    "\n"
    "  --json    print the service's reply instead of words\n"
    "  --quiet   print nothing on success, and no progress\n"
    "\n"
    "OUT is a new name or a file, which is replaced when the new one is whole; of a link, the "
    "file\n"
    "that it leads to. A command that is interrupted (^C) leaves OUT as it was.\n"
    "\n"
    "Exit codes: 0 done, 1 refused or failed, 2 usage, 3 no service, 128 + a signal's number.\n";

ExitCode sayUsage(const std::string& reason) {
  fprintf(stderr, "tarn-transcode: %s\n\n%s", reason.c_str(), kUsage);
  return ExitUsage;
}

ExitCode sayFailure(const std::string& reason) {
  fprintf(stderr, "tarn-transcode: %s\n", reason.c_str());
  return ExitFailed;
}

ExitCode sayNoSpace(const std::string& out) {
  return sayFailure("there is no space left for " + out +
                    ", which is as it was: free some on its disk, or write to another one");
}

ExitCode sayInterrupted(int number) {
  sayFailure("interrupted, the output is as it was");
  return static_cast<ExitCode>(ExitSignal + number);
}

ExitCode sayNoReply(const Answer& answer) {
  sayFailure(answer.errorText);
  return answer.kind == Answer::NoService ? ExitNoService : ExitFailed;
}
