#include "tests/movie/fake_ffmpeg.h"

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>

namespace {

const char kEndOfCall[] = "(end of call)";

std::string pathOfNow() {
  const char* path = getenv("PATH");
  return path == nullptr ? "" : path;
}

}  // namespace

FakeFfmpeg::FakeFfmpeg(const std::string& script) : earlierPath(pathOfNow()) {
  const std::string head = "#!/bin/sh\nprintf '%s\\n' \"$@\" '" + std::string(kEndOfCall) +
                           "' >> '" + (dir / "calls") + "'\n";
  chmod(dir.write("ffmpeg", head + script + "\n").c_str(), 0700);
  setenv("PATH", (dir.path() + ":" + earlierPath).c_str(), 1);
}

FakeFfmpeg::~FakeFfmpeg() {
  setenv("PATH", earlierPath.c_str(), 1);
}

std::vector<FakeFfmpeg::Arguments> FakeFfmpeg::calls() const {
  std::vector<Arguments> all;
  Arguments call;
  std::istringstream lines(readFile(dir / "calls"));
  for (std::string line; std::getline(lines, line);) {
    if (line == kEndOfCall) {
      all.push_back(call);
      call.clear();
    } else {
      call.push_back(line);
    }
  }
  return all;
}

std::string reportsOnProbe(const std::string& report) {
  return "if [ $# = 2 ]; then\ncat >&2 <<'END'\n" + report + "\nEND\nexit 1\nfi\n";
}
