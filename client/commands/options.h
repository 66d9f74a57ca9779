// What the words of a command line ask for.
#ifndef CLIENT_COMMANDS_OPTIONS_H
#define CLIENT_COMMANDS_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dsjson/dsjson.h"

struct Options {
  std::vector<std::string> words;  // that are no options: files, or a method and its JSON
  std::optional<int32_t> size;     // the most bytes of a file
  std::optional<int32_t> total;    // the most bytes of all files together
  std::string outDir;              // empty: the last word is the output
  int jobs = 1;                    // how many files are in hand at a time
  uint32_t maxWidth = 0;           // pixels; 0: no limit
  uint32_t maxHeight = 0;
  std::string keepMetadata;  // empty: all
  std::string compare;       // a picture of before and after; empty: none
  bool always = false;       // encode also what fits as it is
  bool dryRun = false;       // only say what would be made
  bool noClobber = false;    // leave outputs alone that are there
  bool json = false;
  bool quiet = false;
  bool progress = false;                    // tell of it also where no terminal is
  dsjson::JValue movie = dsjson::Object();  // the members of the service's request
};

#endif
