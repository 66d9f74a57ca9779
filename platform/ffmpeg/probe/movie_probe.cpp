#include "platform/ffmpeg/probe/movie_probe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/ffmpeg/probe/facts_text.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/process/caged_call.h"

using std::chrono::milliseconds;

const ReadLimits kQuickProbe = {milliseconds(1500), CLOCK_MONOTONIC, int64_t{32} << 20};
const ReadLimits kThoroughProbe = {milliseconds(6000), CLOCK_PROCESS_CPUTIME_ID, kMaxInputBytes};

namespace {

constexpr auto kTimeToAnswer = milliseconds(500);
constexpr int kShareOfProcessor = 3;  // a reader whose own work counts may wait for the rest
constexpr int64_t kMemoryBytes = int64_t{384} << 20;  // a few of the largest pictures
// The answer's first byte.
constexpr char kFacts = '+';
constexpr char kReason = '-';

class File {
 public:
  ~File() {
    if (number >= 0) close(number);
  }
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool open(const std::string& path, std::string* error) {
    number = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    if (number < 0 || fstat(number, &status) != 0) {
      *error = path + ": " + strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
      *error = path + ": not a regular file";
    } else if (status.st_size == 0) {
      *error = path + ": the file is empty";
    } else if (status.st_size > kMaxInputBytes) {
      *error = path + ": the file is larger than 4 GiB";
    } else {
      return true;
    }
    return false;
  }
  int fd() const { return number; }

 private:
  int number = -1;
};

std::string read(int fd, const std::string& path, const ReadLimits& limits) {
  MediaInput input;
  std::string error;
  if (!input.open(fd, path, limits, &error)) return kReason + error;
  MediaFacts facts;
  readMediaFacts(input, path, &facts);
  return kFacts + packFacts(facts);
}

}  // namespace

bool probeMovie(const std::string& path, const ReadLimits& limits, MediaFacts* facts,
                std::string* error) {
  File file;
  if (!file.open(path, error)) return false;
  std::string answer;
  std::string failure;
  const auto call = [&](int fd) { return read(fd, path, limits); };
  const auto time = limits.time * (limits.clock == CLOCK_MONOTONIC ? 1 : kShareOfProcessor);
  if (!callCaged(file.fd(), {time + kTimeToAnswer, kMemoryBytes}, call, &answer, &failure)) {
    *error = path + ": " + failure;
    return false;
  }
  if (answer.starts_with(kFacts) && unpackFacts(std::string_view(answer).substr(1), facts)) {
    facts->path = path;
    return true;
  }
  *error = answer.starts_with(kReason) ? answer.substr(1) : path + ": its reader gave no answer";
  return false;
}
