#include "src/framework/vs_ctx.h"

#include <gmock/gmock.h>

#include <limits>

#include "tests/support/fake_vela.h"
#include "tests/support/log_capture.h"

namespace {

using fake_vela::Request;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(VSCtx, HoldsOneReferenceToItsMessage) {
  const Request request("{}");
  {
    const VSCtx ctx(fake_vela::handle(), request.message());
    EXPECT_EQ(request.references(), 1);
  }
  EXPECT_EQ(request.references(), 0);
  EXPECT_EQ(request.referencesEverTaken(), 1);
}

TEST(VSCtx, WithoutAMessageNothingIsParsedOrAnswered) {
  VSCtx ctx(fake_vela::handle(), nullptr);
  dsjson::JValue params;
  EXPECT_FALSE(ctx.parseVSParameters(params));
  fake_vela::reset();
  ctx.replyFail();
  EXPECT_THAT(fake_vela::operations(), ElementsAre("VSMessageReply to nobody"));
}

TEST(VSCtx, KeepsNothingOfAReplyThatFailed) {
  fake_vela::reset();
  VSCtx(fake_vela::handle(), nullptr).replySuccess();
  EXPECT_EQ(fake_vela::errorsHeld(), 0);
}

TEST(VSCtx, ParsesThePayload) {
  const Request request(R"({"inFile":"a"})");
  VSCtx ctx(fake_vela::handle(), request.message());
  dsjson::JValue params;
  EXPECT_TRUE(ctx.parseVSParameters(params));
  std::string text;
  EXPECT_EQ(params["inFile"].asString(text), dsjson::CONV_OK);
  EXPECT_EQ(text, "a");
}

TEST(VSCtx, ParsesAnEmptyObject) {
  const Request request("{}");
  dsjson::JValue params;
  EXPECT_TRUE(VSCtx(fake_vela::handle(), request.message()).parseVSParameters(params));
  EXPECT_TRUE(params.isObject());
}

TEST(VSCtx, MalformedPayloadSetsTheErrorAndSendsNothing) {
  const Request request("{\"inFile\":");
  VSCtx ctx(fake_vela::handle(), request.message());
  dsjson::JValue params;
  EXPECT_FALSE(ctx.parseVSParameters(params));
  EXPECT_THAT(request.replies(), IsEmpty());
  ctx.replyFail();
  EXPECT_THAT(request.replies(),
              ElementsAre(R"({"returnValue":false,"errorText":"malformed command\n"})"));
}

TEST(VSCtx, SuccessIsByteForByte) {
  const Request request("{}");
  VSCtx(fake_vela::handle(), request.message()).replySuccess();
  EXPECT_THAT(request.replies(), ElementsAre("{\"returnValue\":true}"));
}

struct FailureCase {
  const char* title;
  const char* message;
  const char* detail;
  const char* reply;
};

class VSCtxFailure : public testing::TestWithParam<FailureCase> {};

TEST_P(VSCtxFailure, HoldsWhatWasSet) {
  const Request request("{}");
  VSCtx ctx(fake_vela::handle(), request.message());
  if (GetParam().message != nullptr) ctx.setLastErrorMessage(GetParam().message);
  if (GetParam().detail != nullptr) ctx.setLastErrorDetail(GetParam().detail);
  ctx.replyFail();
  EXPECT_THAT(request.replies(), ElementsAre(GetParam().reply));
}

INSTANTIATE_TEST_SUITE_P(
    All, VSCtxFailure,
    testing::Values(
        FailureCase{"Nothing", nullptr, nullptr, R"({"returnValue":false})"},
        FailureCase{"Message", "m\n", nullptr, R"({"returnValue":false,"errorText":"m\n"})"},
        FailureCase{"Detail", nullptr, "d", R"({"returnValue":false,"errorDetail":"d"})"},
        FailureCase{"Both", "m", "d",
                    R"({"returnValue":false,"errorText":"m","errorDetail":"d"})"}),
    [](const auto& test) { return std::string(test.param.title); });

TEST(VSCtx, LastErrorMessageWins) {
  const Request request("{}");
  VSCtx ctx(fake_vela::handle(), request.message());
  ctx.setLastErrorMessage("first");
  ctx.setLastErrorMessage("second");
  ctx.replyFail();
  EXPECT_THAT(request.replies(), ElementsAre(R"({"returnValue":false,"errorText":"second"})"));
}

TEST(VSCtx, WhatCannotBeSerialisedIsNotSent) {
  const Request request("{}");
  const LogCapture log;
  VSCtx(fake_vela::handle(), request.message())
      .reply(dsjson::Object().put("a", std::numeric_limits<double>::quiet_NaN()));
  EXPECT_THAT(request.replies(), IsEmpty());
  EXPECT_THAT(log.at(G_LOG_LEVEL_WARNING), ElementsAre("Json serializer failed"));
}

}  // namespace
