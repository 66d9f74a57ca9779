// The options of resize-movie, as the members of the service's request that they stand for.
#ifndef CLIENT_COMMANDS_MOVIE_REQUEST_H
#define CLIENT_COMMANDS_MOVIE_REQUEST_H

#include <set>
#include <string>

#include "client/commands/arguments.h"
#include "dsjson/dsjson.h"

// The options that there are; each takes a value.
std::set<std::string> movieOptions();

// Puts a member for each option given. Where one is wrong *error says what, and the request is of
// no use.
bool putMovieOptions(const Arguments& arguments, dsjson::JValue* request, std::string* error);

#endif
