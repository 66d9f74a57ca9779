// What the daemon replies to a request that failed.
#ifndef TESTS_SUPPORT_FAILURE_REPLY_H
#define TESTS_SUPPORT_FAILURE_REPLY_H

#include <string>

// `errorText` as it stands in JSON, escapes included.
inline std::string failure(const std::string& errorText) {
  return R"({"returnValue":false,"errorText":")" + errorText + "\"}";
}

#endif
