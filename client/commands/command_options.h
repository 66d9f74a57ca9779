// The options of each command: the one place where they are made, read and told of.
#ifndef CLIENT_COMMANDS_COMMAND_OPTIONS_H
#define CLIENT_COMMANDS_COMMAND_OPTIONS_H

#include <string>
#include <vector>

#include "client/commands/options.h"

// Which of them a command takes.
struct OptionSet {
  bool files = false;    // many files at once
  bool size = false;     // --size
  bool fit = false;      // those of fit
  bool always = false;   // --always
  bool compare = false;  // --compare
  bool movie = false;    // those of the service's movies
  bool json = false;     // --json
  bool quiet = false;    // --quiet
};

// Reads the words behind a command's name: options in any place, until "--". *wantsHelp is whether
// -h or --help is among them; nothing else is read then. On failure *error says what is wrong.
bool readOptions(const OptionSet& set, const std::vector<std::string>& words, Options* options,
                 bool* wantsHelp, std::string* error);

// A list of them for people.
std::string optionsHelp(const OptionSet& set);

#endif
