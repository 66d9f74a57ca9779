// What the tests of movie tasks share: a folder, the log, and a count of live tasks that has to
// come back to where it was.
#ifndef TESTS_MOVIE_MOVIE_TEST_H
#define TESTS_MOVIE_MOVIE_TEST_H

#include <gmock/gmock.h>

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

dsjson::JValue parsed(const std::string& text);

// The text of a failure's reply.
std::string failure(const std::string& errorText);
std::string failure(const std::string& errorText, const std::string& detail);

// The only reply to the request; "" when there is none or more than one.
std::string onlyReply(const fake_vela::Request& request);

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
