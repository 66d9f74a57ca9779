#include "client/commands/command_options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/commands/movie_request.h"
#include "client/commands/nearest_word.h"
#include "client/units/byte_size.h"
#include "client/units/message_room.h"

namespace {

constexpr int kMostJobs = 64;  // a caller of com.tarn.Fit1 may have no more

// Stores what the text of an option means. What is wrong with the text, or "".
using Take = std::function<std::string(const std::string& text)>;

std::string noValue(const std::string& text, const std::string& examples) {
  return "\"" + text + "\" is not a value: write " + examples;
}

void addValue(CLI::App* app, const std::string& names, const char* label, const std::string& help,
              const Take& take) {
  const auto read = [names, take](const std::string& text) {
    const std::string fault = take(text);
    if (!fault.empty()) throw CLI::ValidationError(names.substr(0, names.find(',')) + ": " + fault);
  };
  app->add_option_function<std::string>(names, read, help)
      ->option_text(label)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void addSize(CLI::App* app, const std::string& names, const char* help,
             std::optional<int32_t>* most) {
  addValue(app, names, "SIZE", help, [most](const std::string& text) {
    int32_t bytes = 0;
    std::string error;
    if (parseByteSize(text, &bytes, &error)) *most = bytes;
    return error;
  });
}

// Read behind the sizes: of two limits the lower one holds.
void addMessage(CLI::App* app, const char* help, std::optional<int32_t>* most) {
  addValue(app, "--for", "MESSAGE", help, [most](const std::string& text) {
    const auto room = messageRoom(text);
    if (room) *most = std::min(most->value_or(*room), *room);
    return room ? "" : noValue(text, messageKinds());
  });
}

void addSide(CLI::App* app, const std::string& name, const char* help, uint32_t* pixels) {
  addValue(app, name, "PIXELS", help, [pixels](const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 5 &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    if (isNumber) *pixels = static_cast<uint32_t>(std::stoul(text));
    return isNumber ? "" : noValue(text, "1280");
  });
}

void addFilesOptions(CLI::App* app, Options* options) {
  addValue(app, "--out-dir", "DIR", "make each of FILES under its name in DIR",
           [options](const std::string& text) {
             options->outDir = text;
             return text.empty() ? noValue(text, "a folder") : "";
           });
  options->jobs = std::clamp(static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)), 1, kMostJobs);
  addValue(app, "--jobs,-j", "N", "how many at a time; one a processor unless told",
           [options](const std::string& text) {
             const bool isNumber = !text.empty() && text.size() <= 2 &&
                                   text.find_first_not_of("0123456789") == std::string::npos;
             const int jobs = isNumber ? std::stoi(text) : 0;
             if (jobs > 0 && jobs <= kMostJobs) options->jobs = jobs;
             return jobs > 0 && jobs <= kMostJobs ? "" : noValue(text, "1 to 64");
           });
}

void addOutputOptions(CLI::App* app, Options* options) {
  app->add_flag("--dry-run", options->dryRun, "only say what would be made");
  app->add_flag("--progress", options->progress, "a line every 10 s where no terminal is");
  app->add_flag("--no-clobber", options->noClobber, "leave an OUT alone that is there");
}

void addFitOptions(CLI::App* app, Options* options) {
  addSize(app, "--total", "the most bytes of all files together", &options->total);
  addMessage(app, "what all files of such a message may have", &options->total);
  addSide(app, "--max-width", "the widest photo, upright", &options->maxWidth);
  addSide(app, "--max-height", "the highest photo, upright", &options->maxHeight);
  addValue(app, "--keep-metadata", "WHAT", "all unless told, no-location or none",
           [options](const std::string& text) {
             options->keepMetadata = text;
             const bool isKnown = text == "all" || text == "no-location" || text == "none";
             return isKnown ? "" : noValue(text, "all, no-location or none");
           });
}

void addCompare(CLI::App* app, std::string* picture) {
  addValue(app, "--compare", "FILE.png", "also make a picture of before and after",
           [picture](const std::string& text) {
             *picture = text;
             const bool isPng = text.size() > 4 && text.ends_with(".png");
             return isPng ? "" : noValue(text, "a name that ends in .png");
           });
}

void addMovieOptions(CLI::App* app, dsjson::JValue* request) {
  for (const MovieOption& option : movieOptions()) {
    addValue(app, option.name, option.label, option.help,
             [&option, request](const std::string& text) {
               const auto value = option.read(text);
               if (value) request->put(option.member, *value);
               return value ? "" : noValue(text, option.examples);
             });
  }
}

void addOptions(CLI::App* app, const OptionSet& set, Options* options) {
  app->allow_extras();
  app->set_help_flag("-h,--help", "tell of the command");
  if (set.size) addSize(app, "--size,--max-size", "the most bytes of a file", &options->size);
  if (set.files) addFilesOptions(app, options);
  if (set.fit) addFitOptions(app, options);
  if (set.size && !set.fit) addMessage(app, "what such a message has room for", &options->size);
  if (set.always) app->add_flag("--always", options->always, "encode also what fits as it is");
  if (set.compare) addCompare(app, &options->compare);
  if (set.movie) addMovieOptions(app, &options->movie);
  if (set.files) addOutputOptions(app, options);
  if (set.json) app->add_flag("--json", options->json, "print JSON instead of words");
  if (set.quiet) app->add_flag("--quiet", options->quiet, "print neither results nor progress");
}

std::vector<std::string> optionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

// Sorts what is left when the options are read.
bool takeWords(const CLI::App& app, std::vector<std::string>* words, std::string* error) {
  bool onlyWords = false;
  for (const std::string& word : app.remaining()) {
    if (!onlyWords && word == "--") {
      onlyWords = true;
    } else if (onlyWords || word.size() < 2 || word[0] != '-') {
      words->push_back(word);
    } else {
      const std::string name = word.substr(0, word.find('='));
      *error = "there is no option " + name + didYouMean(name, optionNames(app));
      return false;
    }
  }
  return true;
}

}  // namespace

bool readOptions(const OptionSet& set, const std::vector<std::string>& words, Options* options,
                 bool* wantsHelp, std::string* error) {
  CLI::App app;
  addOptions(&app, set, options);
  std::vector<std::string> reversed(words.rbegin(), words.rend());  // as it takes them
  try {
    app.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    *wantsHelp = true;
    return true;
  } catch (const CLI::ArgumentMismatch& problem) {
    const std::string text = problem.what();
    *error = text.substr(0, text.find(':')) + " needs a value";
    return false;
  } catch (const CLI::ParseError& problem) {
    *error = problem.what();
    return false;
  }
  if (set.movie && options->size) options->movie.put(kMovieSize, *options->size);
  return takeWords(app, &options->words, error);
}

std::string optionsHelp(const OptionSet& set) {
  CLI::App app;
  Options options;
  addOptions(&app, set, &options);
  return CLI::Formatter().make_groups(&app, CLI::AppFormatMode::Normal);
}
