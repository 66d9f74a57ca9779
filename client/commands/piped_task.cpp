#include "client/commands/piped_task.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "client/files/jpeg_file.h"
#include "client/files/standard_streams.h"
#include "client/service/interrupts.h"

namespace {

constexpr char kStream[] = "-";

// Where the paths of the private folder stand, the streams' names.
void nameStreams(const FileTask& task, const FileTask& asked, Outcome* outcome) {
  const auto put = [&](const std::string& path, const char* name) {
    for (std::string* text : {&outcome->errorText, &outcome->errorDetail}) {
      for (size_t at; (at = text->find(path)) != std::string::npos;) {
        text->replace(at, path.size(), name);
      }
    }
  };
  if (asked.in == kStream) put(task.in, "standard input");
  if (asked.out == kStream && task.out != kStream) put(task.out, "standard output");
  outcome->input = asked.in;
  outcome->output = asked.out;
}

bool isMovie(const std::string& path, Media media) {
  return media == Media::Movies || (media == Media::Both && !startsAsJpeg(path));
}

// Puts a file of the folder where a stream was asked for.
bool takeStreams(const std::string& folder, Media media, FileTask* task, Outcome* outcome) {
  std::string error;
  if (task->in == kStream) {
    Interrupts interrupts;
    task->in = folder + "/in";
    if (!takeStandardInput(
            task->in, [&] { return interrupts.received() == 0; }, &error)) {
      const int number = interrupts.received();
      return number != 0 ? outcome->failBySignal(number) : outcome->fail(error);
    }
  }
  if (task->out == kStream) {
    task->out = folder + (isMovie(task->in, media) ? "/out.mp4" : "/out.jpg");
  }
  return true;
}

bool give(const std::string& path, Outcome* outcome) {
  Interrupts interrupts;
  std::string error;
  if (giveToStandardOutput(
          path, [&] { return interrupts.received() == 0; }, &error)) {
    return true;
  }
  const int number = interrupts.received();
  return number != 0 ? outcome->failBySignal(number) : outcome->fail(error);
}

}  // namespace

bool isPiped(const Options& options) {
  return options.outDir.empty() && (options.words[0] == kStream || options.words[1] == kStream);
}

ExitCode runPiped(const Options& options, Media media, Make make) {
  const PrivateFolder folder;
  if (folder.path().empty()) {
    return sayFailure(std::string("cannot make a private folder: ") + strerror(errno));
  }
  const FileTask asked = taskOf(options);
  if (asked.out == kStream && isatty(STDOUT_FILENO) != 0) {
    return sayFailure("standard output is a terminal: send it to a file or a program");
  }
  FileTask task = asked;
  Outcome outcome;
  if (takeStreams(folder.path(), media, &task, &outcome)) {
    outcome = makeOneShown(task, options, make);
    if (asked.out == kStream && outcome.exitCode == ExitDone) give(task.out, &outcome);
  }
  nameStreams(task, asked, &outcome);
  if (asked.out != kStream || outcome.exitCode != ExitDone) {
    tell(outcome, options);
  } else if (!options.quiet) {
    fprintf(stderr, "%s\n", outcome.words.c_str());
  }
  return outcome.exitCode;
}
