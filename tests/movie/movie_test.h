// What the tests of movie tasks share: a folder, the log, and a count of live tasks that has to
// come back to where it was.
#ifndef TESTS_MOVIE_MOVIE_TEST_H
#define TESTS_MOVIE_MOVIE_TEST_H

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>

#include "src/framework/vs_ctx.h"
#include "src/service/transcode_server.h"
#include "tests/support/fake_vela.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

inline int taskCount() {
  return g_atomic_int_get(&TranscodeServer::taskCount);
}

inline dsjson::JValue parsed(const std::string& text) {
  dsjson::JDomParser parser(nullptr);
  EXPECT_TRUE(parser.parse(text, emptySchema, nullptr)) << text;
  return parser.getDom();
}

inline nlohmann::json failure(const std::string& errorText) {
  return {{"returnValue", false}, {"errorText", errorText}};
}

inline nlohmann::json failure(const std::string& errorText, const std::string& detail) {
  return {{"returnValue", false}, {"errorText", errorText}, {"errorDetail", detail}};
}

// The only reply to the request; null when there is none or more than one.
inline nlohmann::json onlyReply(const fake_vela::Request& request) {
  const auto replies = request.replies();
  return replies.size() == 1 ? nlohmann::json::parse(replies[0]) : nlohmann::json();
}

class MovieTest : public testing::Test {
 protected:
  // After the members of the test, which may be tasks.
  ~MovieTest() override {
    EXPECT_TRUE(waitUntil([this] { return taskCount() == tasksBefore; })) << taskCount();
  }

  std::vector<std::string> warnings() const { return log.at(G_LOG_LEVEL_WARNING); }

  TempDir dir;
  LogCapture log;

 private:
  const int tasksBefore = taskCount();
};

#endif
