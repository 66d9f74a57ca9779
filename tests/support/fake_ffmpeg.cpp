#include "tests/support/fake_ffmpeg.h"

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>

namespace {

constexpr char kEndOfCall[] = "(end of call)";

std::string pathAfter(const std::string& folder) {
  const char* path = getenv("PATH");
  return path == nullptr ? folder : folder + ":" + path;
}

}  // namespace

FakeFfmpeg::FakeFfmpeg(const std::string& script) : path("PATH", pathAfter(dir.path())) {
  const std::string head = "#!/bin/sh\nhere='" + dir.path() + "'\n{ printf '%s\\n' \"$@\" '" +
                           kEndOfCall + "' >> \"$here/calls\"; } 2> /dev/null\n";
  chmod(dir.write("ffmpeg", head + script + "\n").c_str(), 0700);
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
