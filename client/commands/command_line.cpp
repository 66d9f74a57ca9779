#include "client/commands/command_line.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "client/commands/command_options.h"
#include "client/commands/commands.h"
#include "client/commands/movie_request.h"
#include "client/commands/nearest_word.h"
#include "client/units/message_room.h"

namespace {

#ifdef TARN_FIT
constexpr bool kCompares = true;
#else
constexpr bool kCompares = false;  // it is done by that service's workers
#endif

struct Command {
  const char* name;
  const char* use;      // the words behind the name
  const char* summary;  // one line
  const char* help;     // what else there is to know of it
  OptionSet options;
  std::string (*fault)(const Options& options);  // what is wrong with them together, or ""
  ExitCode (*run)(const Options& options);
};

std::string faultOfFiles(const Options& options) {
  if (!options.outDir.empty()) {
    if (!options.compare.empty()) return "--compare is for one IN and OUT";
    const auto& files = options.words;
    const bool hasStream = std::find(files.begin(), files.end(), "-") != files.end();
    return files.empty() ? "FILES are needed" : hasStream ? "- is no file of a folder" : "";
  }
  if (options.words.size() != 2) return "IN and OUT are needed, or FILES and --out-dir DIR";
  if (!options.compare.empty() && options.words[1] == "-") return "--compare needs a file for OUT";
  if (options.json && options.words[1] == "-") return "OUT and --json both want standard output";
  return "";
}

std::string faultOfImage(const Options& options) {
  if (!options.size) return "--size or --for is needed, such as --size 300k";
  return faultOfFiles(options);
}

std::string faultOfMovie(const Options& options) {
  std::string fault = faultOfFiles(options);
  if (fault.empty()) keepsLimits(options.movie, &fault);
  return fault;
}

#ifdef TARN_FIT
std::string faultOfFit(const Options& options) {
  const bool isLimited = options.size || options.total;
  if (!isLimited) return "--size, --total or --for is needed, such as --size 300k";
  return faultOfFiles(options);
}
#endif

std::string faultOfInfo(const Options& options) {
  return options.words.size() == 1 ? "" : "one FILE is needed";
}

std::string faultOfCall(const Options& options) {
  return options.words.size() == 2 ? "" : "METHOD and JSON are needed";
}

std::string faultOfWords(const Options& options) {
  return options.words.empty() ? "" : "no other words are taken";
}

const Command kCommands[] = {
#ifdef TARN_FIT
    {"fit",
     "IN OUT --size SIZE",
     "make photos and movies fit, as good as they can look",
     "The best looking photo of at most SIZE bytes, or the whole movie in as many. A file\n"
     "that fits is copied. --size is the most of each file, --total that of all together.\n"
     "The colour profile of a photo always stays.\n",
     {.files = true, .size = true, .fit = true, .compare = true, .json = true, .quiet = true},
     faultOfFit,
     runFit},
#endif
    {"resize-image",
     "IN OUT --size SIZE",
     "make a JPEG of at most SIZE bytes",
     "All of the photo's metadata stays. A photo that fits is copied as it is.\n",
     {.files = true,
      .size = true,
      .always = true,
      .compare = kCompares,
      .json = true,
      .quiet = true},
     faultOfImage,
     runResizeImage},
    {"resize-movie",
     "IN OUT [OPTIONS]",
     "encode a movie anew, within limits",
     "All of the movie, or nothing. OUT ends in .mp4 or .3gp; what is left out follows from that.\n"
     "A RATE is a number of bits per second: 64k, 1.5M.\n",
     {.files = true, .size = true, .movie = true, .json = true, .quiet = true},
     faultOfMovie,
     runResizeMovie},
    {"info",
     "FILE",
     "tell what a photo or a movie is",
     "Of a photo its kind, its size in pixels and bytes, how many of these are metadata, and a\n"
     "JPEG's camera; of a movie its length, size and bitrate.\n",
     {.json = true},
     faultOfInfo,
     runInfo},
    {"min-bitrate",
     "",
     "print the least bitrate of a movie",
     "",
     {.json = true},
     faultOfWords,
     runMinBitrate},
    {"call",
     "METHOD JSON",
     "send a request as it is and print the reply",
     "",
     {},
     faultOfCall,
     runCall},
};

const Command* commandOf(const std::string& name) {
  const auto* found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command& command) { return name == command.name; });
  return found == std::end(kCommands) ? nullptr : found;
}

std::vector<std::string> commandNames() {
  std::vector<std::string> names;
  for (const Command& command : kCommands) {
    names.push_back(command.name);
  }
  return names;
}

std::string useOf(const Command& command) {
  const std::string words = *command.use == '\0' ? "" : std::string(" ") + command.use;
  return std::string("usage: tarn-transcode ") + command.name + words;
}

ExitCode printHelp() {
  printf("usage: tarn-transcode COMMAND ...\n\n");
  for (const Command& command : kCommands) {
    printf("  %-13s %s\n", command.name, command.summary);
  }
  printf(
      "\n"
      "tarn-transcode COMMAND --help tells of a command, --version which one this is.\n"
      "\n"
      "A SIZE is a number of bytes: 300k, 1.5M, 64KiB, 1e6. A MESSAGE has room for the\n"
      "files in it: %s.\n"
      "\n"
      "OUT is a new name or a file, which is replaced when the new one is whole; of a\n"
      "link, the file that it leads to. A command that is interrupted (^C) leaves OUT\n"
      "as it was. IN and OUT may be -, standard input and output.\n"
      "\n"
      "Exit codes: 0 done, 1 refused or failed, 2 usage, 3 no service, 4 it cannot be\n"
      "made to fit. A command that a signal ends, ends by that signal: 130 after ^C.\n",
      messageKinds().c_str());
  return ExitDone;
}

ExitCode printHelp(const Command& command) {
  printf("%s\n", useOf(command).c_str());
  if (command.options.files) {
    printf("   or: tarn-transcode %s FILES --out-dir DIR [OPTIONS]\n", command.name);
  }
  if (*command.help != '\0') printf("\n%s", command.help);
  printf("%s", optionsHelp(command.options).c_str());
  return ExitDone;
}

ExitCode sayUsage(const std::string& use, const std::string& reason) {
  fprintf(stderr, "%s   (--help tells more)\n", use.c_str());
  sayFailure(reason);
  return ExitUsage;
}

ExitCode sayNoCommand(const std::string& reason) {
  return sayUsage("usage: tarn-transcode COMMAND ...", reason);
}

ExitCode run(const Command& command, const std::vector<std::string>& words) {
  Options options;
  bool wantsHelp = false;
  std::string error;
  const bool isRead = readOptions(command.options, words, &options, &wantsHelp, &error);
  if (wantsHelp) return printHelp(command);
  if (isRead) error = command.fault(options);
  return error.empty() ? command.run(options) : sayUsage(useOf(command), error);
}

}  // namespace

ExitCode runCommandLine(const std::vector<std::string>& words) {
  if (words.empty()) {
    std::string names;
    for (const std::string& name : commandNames()) {
      names += (names.empty() ? "" : ", ") + name;
    }
    return sayNoCommand("say what to do: " + names);
  }
  const bool asksForHelp = words[0] == "help" || words[0] == "--help" || words[0] == "-h";
  if (asksForHelp && words.size() == 1) return printHelp();
  if (words[0] == "--version") {
    printf("tarn-transcode %s\n", TARN_VERSION);
    return ExitDone;
  }
  const std::string name = asksForHelp ? words[1] : words[0];
  const Command* command = commandOf(name);
  if (command == nullptr) {
    return sayNoCommand("there is no command " + name + didYouMean(name, commandNames()));
  }
  if (asksForHelp) return printHelp(*command);
  return run(*command, {words.begin() + 1, words.end()});
}
