// What ffprobe says of a movie file, and requests about movies.
#ifndef TESTS_E2E_MOVIE_FACTS_H
#define TESTS_E2E_MOVIE_FACTS_H

#include <cstdlib>
#include <sstream>
#include <string>

#include "tests/e2e/installed_system.h"

struct MovieFacts {
  std::string streams;  // such as "mpeg4,video,320,240 aac,audio"
  double seconds = 0;
};

inline MovieFacts movieFacts(const std::string& path) {
  const CommandOutput probe = runCommand(
      "ffprobe -v error -of csv=p=0 "
      "-show_entries format=duration:stream=codec_name,codec_type,width,height 'file:" +
      path + "'");
  MovieFacts facts;
  std::istringstream lines(probe.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.find_first_not_of("0123456789.") == std::string::npos) {
      facts.seconds = strtod(line.c_str(), nullptr);
    } else {
      facts.streams += (facts.streams.empty() ? "" : " ") + line;
    }
  }
  return facts;
}

// {"inFile":IN}
inline std::string infoRequest(const std::string& in) {
  return R"({"inFile":")" + in + "\"}";
}

// {"inFile":IN,"outFile":OUT,MEMBERS}
inline std::string movieRequest(const std::string& in, const std::string& out,
                                const std::string& members = "") {
  return R"({"inFile":")" + in + R"(","outFile":")" + out + "\"" +
         (members.empty() ? "" : "," + members) + "}";
}

#endif
