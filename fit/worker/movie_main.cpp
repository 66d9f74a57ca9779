// Makes one movie fit: the movie is its standard input, the file to write its standard output, and
// what it tells its standard error, which nothing that it starts gets to hold.
//
//     fit-movie fit max-bytes=300000 format=mp4-h264 <movie.mov 1<>small.mp4
//     fit-movie inspect <movie.mov
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "fit/movie/fit_movie.h"
#include "fit/wire/report_lines.h"
#include "fit/wire/request_words.h"
#include "fit/worker/report_channel.h"

namespace {

constexpr size_t kPieceBytes = 1 << 18;

int fail(const ReportChannel& service, const FitFailure& failure) {
  service.tell(failureLine(failure));
  return 1;
}

bool writePiece(const char* piece, size_t size, off_t place) {
  size_t done = 0;
  while (done < size) {
    const ssize_t count =
        pwrite(STDOUT_FILENO, piece + done, size - done, place + static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

bool copyAll(int file, int64_t bytes) {
  std::vector<char> piece(kPieceBytes);
  for (int64_t done = 0; done < bytes;) {
    const auto size = static_cast<size_t>(std::min<int64_t>(kPieceBytes, bytes - done));
    const ssize_t count = pread(file, piece.data(), size, done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0 || !writePiece(piece.data(), static_cast<size_t>(count), done)) return false;
    done += count;
  }
  return true;
}

int fit(const ReportChannel& service, const MovieRequest& request) {
  FittedMovie movie;
  FitFailure failure;
  const auto onProgress = [&](double share) { service.tell(progressLine(share)); };
  if (!fitMovie(request, onProgress, &movie, &failure)) return fail(service, failure);
  service.tellWriting();
  if (ftruncate(STDOUT_FILENO, 0) != 0 || !copyAll(movie.file, movie.facts.bytes)) {
    failure = {"CannotWrite", std::string("The output cannot be written: ") + strerror(errno), 0};
    [[maybe_unused]] const int ignored = ftruncate(STDOUT_FILENO, 0);
    return fail(service, failure);
  }
  ReportedNumbers numbers = {{"bytes", movie.facts.bytes},
                             {"width", movie.facts.width},
                             {"height", movie.facts.height},
                             {"milliseconds", movie.facts.milliseconds},
                             {"encodes", movie.encodes}};
  if (movie.similarity) {
    numbers["similarity"] = std::lround(*movie.similarity * kSimilarityUnit);
  }
  service.tell(resultLine(numbers));
  return 0;
}

int inspect(const ReportChannel& service) {
  MovieFacts facts;
  FitFailure failure;
  if (!inspectMovie(&facts, &failure)) return fail(service, failure);
  for (const auto& [name, word] : {std::pair{"format", facts.format},
                                   {"videoCodec", facts.videoCodec},
                                   {"audioCodec", facts.audioCodec}}) {
    if (!word.empty()) service.tell(wordLine(name, word));
  }
  service.tell(resultLine({{"bytes", facts.bytes},
                           {"width", facts.width},
                           {"height", facts.height},
                           {"milliseconds", facts.milliseconds}}));
  return 0;
}

// What we start gets the null device in its place.
int takeReportEnd() {
  closefrom(STDERR_FILENO + 1);
  const int reports = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDERR_FILENO);
  close(null);
  return reports;
}

}  // namespace

int main(int argc, char** argv) {
  const ReportChannel service(takeReportEnd());
  signal(SIGPIPE, SIG_IGN);
  service.endWithService();
  try {
    WorkerRequest request;
    request.kind = MediaKind::Movie;
    std::string error;
    if (!parseWords(std::vector<std::string>(argv + 1, argv + argc), &request, &error)) {
      service.tell("fit-movie: " + error + "\n");
      return 2;
    }
    return request.task == WorkerTask::Fit ? fit(service, request.movie) : inspect(service);
  } catch (const std::exception& failure) {
    return fail(service,
                {"TooLarge", std::string("The movie takes too much: ") + failure.what(), 0});
  }
}
