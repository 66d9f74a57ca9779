#include "client/commands/command_options.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "client/commands/movie_request.h"
#include "client/commands/nearest_word.h"
#include "client/units/byte_size.h"

namespace {

constexpr char kSizeExamples[] = "300k or 1.5M";

// Stores what the text of an option means; false where it means nothing.
using Take = std::function<bool(const std::string& text)>;

void addValue(CLI::App* app, const std::string& name, const char* label, const char* examples,
              const char* help, const Take& take) {
  const auto read = [name, examples, take](const std::string& text) {
    if (take(text)) return;
    throw CLI::ValidationError("\"" + text + "\" is not a value of " + name + ": write " +
                               examples);
  };
  app->add_option_function<std::string>(name, read, help)
      ->option_text(label)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void addSize(CLI::App* app, const std::string& name, const char* help,
             std::optional<int32_t>* bytes) {
  addValue(app, name, "SIZE", kSizeExamples, help, [bytes](const std::string& text) {
    *bytes = parseByteSize(text);
    return bytes->has_value();
  });
}

void addSide(CLI::App* app, const std::string& name, const char* help, uint32_t* pixels) {
  addValue(app, name, "PIXELS", "1280", help, [pixels](const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 5 &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    if (isNumber) *pixels = static_cast<uint32_t>(std::stoul(text));
    return isNumber;
  });
}

void addFitOptions(CLI::App* app, Options* options) {
  addSize(app, "--total", "the most bytes of all files together", &options->total);
  addValue(app, "--out-dir", "DIR", "a folder", "where the files go, under their names",
           [options](const std::string& text) {
             options->outDir = text;
             return !text.empty();
           });
  addSide(app, "--max-width", "the widest picture, upright", &options->maxWidth);
  addSide(app, "--max-height", "the highest picture, upright", &options->maxHeight);
  addValue(app, "--keep-metadata", "WHAT", "all, no-location or none",
           "all unless told, no-location or none", [options](const std::string& text) {
             options->keepMetadata = text;
             return text == "all" || text == "no-location" || text == "none";
           });
}

void addMovieOptions(CLI::App* app, dsjson::JValue* request) {
  for (const MovieOption& option : movieOptions()) {
    addValue(app, option.name, option.label, option.examples, option.help,
             [&option, request](const std::string& text) {
               const auto value = option.read(text);
               if (value) request->put(option.member, *value);
               return value.has_value();
             });
  }
}

void addOptions(CLI::App* app, const OptionSet& set, Options* options) {
  app->allow_extras();
  app->set_help_flag("-h,--help", "tell of the command");
  if (set.size) addSize(app, "--size", "the most bytes of a file: 300k, 1.5M", &options->size);
  if (set.fit) addFitOptions(app, options);
  if (set.always) app->add_flag("--always", options->always, "encode also what fits as it is");
  if (set.movie) addMovieOptions(app, &options->movie);
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
  return takeWords(app, &options->words, error);
}

std::string optionsHelp(const OptionSet& set) {
  CLI::App app;
  Options options;
  addOptions(&app, set, &options);
  return CLI::Formatter().make_groups(&app, CLI::AppFormatMode::Normal);
}
