// What service, worker and callers tell each other, and what is believed of it.
#include <gmock/gmock.h>

#include "fit/service/fit_options.h"
#include "fit/wire/report_lines.h"
#include "fit/wire/request_words.h"

namespace {

using testing::HasSubstr;

TEST(RequestWordsTest, ComeBackAsTheyWent) {
  WorkerRequest request;
  request.photo = {300000, 1280, 960, KeepMetadata::NoLocation, 30, PhotoKind::Webp};
  WorkerRequest read;
  std::string error;
  ASSERT_TRUE(parseWords(wordsOf(request), &read, &error)) << error;
  EXPECT_EQ(wordsOf(read), wordsOf(request));
  request.kind = read.kind = MediaKind::Movie;
  request.movie = {300000, 1280, 960, MovieFormat::H263};
  ASSERT_TRUE(parseWords(wordsOf(request), &read, &error)) << error;
  EXPECT_EQ(wordsOf(read), wordsOf(request));
  request.task = WorkerTask::Inspect;
  ASSERT_TRUE(parseWords(wordsOf(request), &read, &error));
  EXPECT_EQ(read.task, WorkerTask::Inspect);
  request.task = WorkerTask::View;
  EXPECT_FALSE(parseWords(wordsOf(request), &read, &error));
  EXPECT_EQ(error, "the first word is fit or inspect");
  read.kind = MediaKind::Photo;
  ASSERT_TRUE(parseWords(wordsOf(request), &read, &error)) << error;
  EXPECT_EQ(read.task, WorkerTask::View);
}

TEST(RequestWordsTest, WhatMeansNothingIsNamed) {
  WorkerRequest read;
  std::string error;
  for (const std::string word : {"max-bytes", "max-bytes=", "max-bytes=-1", "max-bytes=9x",
                                 "size=3", "keep-metadata=some"}) {
    EXPECT_FALSE(parseWords({"fit", word}, &read, &error));
    EXPECT_THAT(error, HasSubstr(word));
  }
  read = {};
  EXPECT_FALSE(parseWords({}, &read, &error));
  EXPECT_FALSE(parseWords({"fit"}, &read, &error));
  read.kind = MediaKind::Movie;
  for (const std::string word : {"keep-metadata=all", "format=avi", "quality-floor=9"}) {
    EXPECT_FALSE(parseWords({"fit", "max-bytes=9", word}, &read, &error));
    EXPECT_THAT(error, HasSubstr(word));
  }
}

TEST(ReportLinesTest, AreTakenAsTold) {
  WorkerReport report;
  for (const std::string& line : {progressLine(0.5), writingLine()}) {
    takeReportLine(line.substr(0, line.size() - 1), &report);
  }
  EXPECT_DOUBLE_EQ(report.progress, 0.5);
  EXPECT_TRUE(report.writes);
  const std::string result = resultLine({{"bytes", 5}, {"width", 7}});
  takeReportLine(result.substr(0, result.size() - 1), &report);
  ASSERT_TRUE(report.result);
  EXPECT_EQ(report.result->at("width"), 7);
}

TEST(ReportLinesTest, WordsAreOfAFewNamesAndPlain) {
  WorkerReport report;
  for (const char* line : {"word videoCodec h\x01"
                           "264",
                           "word path /etc", "word format"}) {
    takeReportLine(line, &report);
  }
  EXPECT_EQ(report.words["videoCodec"], "h?264");
  EXPECT_EQ(report.words["format"], "");
  EXPECT_FALSE(report.words.contains("path"));
}

TEST(ReportLinesTest, AnythingElseChangesNothing) {
  WorkerReport report;
  takeReportLine("progress 700", &report);
  for (const char* line :
       {"", "progress", "progress -5", "progress 300", "progress 1e9", "result bytes", "result x=1",
        "result bytes=-1", "failure Nonsense 0 text", "failure Damaged text", "hello"}) {
    takeReportLine(line, &report);
  }
  EXPECT_DOUBLE_EQ(report.progress, 0.7);
  EXPECT_FALSE(report.result);
  EXPECT_FALSE(report.failure);
  takeReportLine("progress 4000", &report);
  EXPECT_DOUBLE_EQ(report.progress, 1);
}

TEST(ReportLinesTest, TheFirstEndIsTheEndAndItsTextIsPlain) {
  WorkerReport report;
  takeReportLine("failure Damaged 12 bad \x01\xff" + std::string(5000, 'x'), &report);
  takeReportLine("result bytes=1", &report);
  ASSERT_TRUE(report.failure);
  EXPECT_FALSE(report.result);
  EXPECT_EQ(report.failure->smallestBytes, 12);
  EXPECT_THAT(report.failure->message, testing::StartsWith("bad ??xxx"));
  EXPECT_LE(report.failure->message.size(), 300u);
}

Refusal refusalOf(const char* options, uint64_t maxBytes = 1000) {
  GVariant* parsed = g_variant_ref_sink(
      g_variant_parse(G_VARIANT_TYPE_VARDICT, options, nullptr, nullptr, nullptr));
  FitOptions taken;
  Refusal refusal;
  EXPECT_FALSE(parseFitOptions(maxBytes, parsed, &taken, &refusal)) << options;
  g_variant_unref(parsed);
  return refusal;
}

TEST(FitOptionsTest, AllAreTaken) {
  GVariant* parsed = g_variant_ref_sink(g_variant_parse(
      G_VARIANT_TYPE_VARDICT,
      "{'format': <'jpeg'>, 'maxWidth': <uint32 640>, 'maxHeight': <uint32 480>,"
      " 'keepMetadata': <'none'>, 'qualityFloor': <uint32 30>, 'handle_token': <'a_1'>,"
      " 'wait': <true>}",
      nullptr, nullptr, nullptr));
  FitOptions taken;
  Refusal refusal;
  ASSERT_TRUE(parseFitOptions(1000, parsed, &taken, &refusal)) << refusal.message;
  g_variant_unref(parsed);
  EXPECT_EQ(taken.request.photo.maxBytes, 1000);
  EXPECT_EQ(taken.request.photo.maxWidth, 640);
  EXPECT_EQ(taken.request.photo.maxHeight, 480);
  EXPECT_EQ(taken.request.photo.keep, KeepMetadata::None);
  EXPECT_EQ(taken.request.photo.qualityFloor, 30);
  EXPECT_EQ(taken.token, "a_1");
  EXPECT_TRUE(taken.waits);
}

TEST(FitOptionsTest, EachErrorHasItsNameAndNamesTheOption) {
  EXPECT_EQ(refusalOf("{'upscale': <true>}").name, "UnknownOption");
  EXPECT_THAT(refusalOf("{'upscale': <true>}").message, HasSubstr("\"upscale\""));
  EXPECT_EQ(refusalOf("{'format': <'bmp'>}").name, "NotSupported");
  EXPECT_THAT(refusalOf("{'format': <'bmp'>}").message, HasSubstr("supported: jpeg"));
  EXPECT_EQ(refusalOf("{}", 0).name, "InvalidLimit");
  EXPECT_EQ(refusalOf("{}", UINT64_MAX).name, "InvalidLimit");
  for (const char* options :
       {"{'maxWidth': <-1>}", "{'maxWidth': <uint32 70000>}", "{'maxHeight': <'x'>}",
        "{'qualityFloor': <uint32 0>}", "{'qualityFloor': <uint32 96>}", "{'keepMetadata': <'x'>}",
        "{'handle_token': <''>}", "{'handle_token': <'a-b'>}", "{'handle_token': <'a/b'>}",
        "{'wait': <'yes'>}", "{'format': <uint32 1>}"}) {
    EXPECT_EQ(refusalOf(options).name, "InvalidOption") << options;
  }
}

}  // namespace
