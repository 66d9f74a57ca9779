#include "client/commands/outcome.h"

#include <gtest/gtest.h>

namespace {

TEST(Outcome, IsOneLineWithoutWhatIsUnknown) {
  Outcome outcome;
  outcome.input = "/in \"1\"\n.jpg";
  outcome.output = "/out.jpg";
  outcome.elapsed = 0.1234567;
  EXPECT_EQ(
      jsonOf(outcome),
      R"({"input":"/in \"1\"\n.jpg","output":"/out.jpg","returnValue":true,"elapsed":0.123})");
}

TEST(Outcome, TellsAllThatIsKnown) {
  Outcome outcome;
  outcome.input = "/in.mp4";
  outcome.output = "/out.mp4";
  outcome.inputBytes = 5'000'000'000;
  outcome.outputBytes = 2'147'483'647;
  outcome.width = 320;
  outcome.height = 240;
  outcome.seconds = 2.5;
  outcome.similarity = 0.5;
  EXPECT_EQ(
      jsonOf(outcome),
      R"({"input":"/in.mp4","output":"/out.mp4","returnValue":true,"inputBytes":5000000000.0,)"
      R"("outputBytes":2147483647,"width":320,"height":240,"seconds":2.5,"ssim":0.5,)"
      R"("elapsed":0.0})");
}

TEST(Outcome, FailuresHaveTheirCodesAndWords) {
  Outcome outcome;
  outcome.output = "/out.jpg";
  EXPECT_FALSE(outcome.fail("no"));
  EXPECT_EQ(outcome.exitCode, ExitFailed);
  EXPECT_EQ(jsonOf(outcome),
            R"({"output":"/out.jpg","returnValue":false,"elapsed":0.0,"errorText":"no"})");
  EXPECT_FALSE(outcome.failForSpace());
  EXPECT_EQ(outcome.errorText,
            "there is no space left for /out.jpg, which is as it was: free some on its disk, or "
            "write to another one");
  EXPECT_FALSE(outcome.failWithoutReply({Answer::NoService, "", "none"}));
  EXPECT_EQ(outcome.exitCode, ExitNoService);
  EXPECT_FALSE(outcome.failBySignal(2));
  EXPECT_EQ(outcome.exitCode, 130);
}

}  // namespace
