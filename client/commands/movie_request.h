// The options of resize-movie, as the members of the service's request that they stand for.
#ifndef CLIENT_COMMANDS_MOVIE_REQUEST_H
#define CLIENT_COMMANDS_MOVIE_REQUEST_H

#include <optional>
#include <span>
#include <string>

#include "dsjson/dsjson.h"

struct MovieOption {
  const char* name;
  const char* member;
  // What its text means to the service, or nothing when it means nothing.
  std::optional<dsjson::JValue> (*read)(const std::string& text);
  const char* examples;
  // For people: what stands for its text, and what it is.
  const char* label;
  const char* help;
};

std::span<const MovieOption> movieOptions();

// The member that --size stands for, which all files have.
inline constexpr char kMovieSize[] = "maxOutputSize";

// Whether the service keeps all limits of the request; if not, *error says which it would drop
// without a word.
bool keepsLimits(const dsjson::JValue& request, std::string* error);

#endif
