#include "client/commands/command_options.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr OptionSet kFit = {.files = true, .size = true, .fit = true, .json = true, .quiet = true};

class CommandOptionsTest : public testing::Test {
 protected:
  // What is wrong with the words, or "".
  std::string read(const std::vector<std::string>& words, const OptionSet& set = kFit) {
    std::string error;
    const bool isRead = readOptions(set, words, &options, &wantsHelp, &error);
    EXPECT_EQ(isRead, error.empty());
    return error;
  }

  Options options;
  bool wantsHelp = false;
};

TEST_F(CommandOptionsTest, TellsWordsFromOptions) {
  EXPECT_EQ(read({"in", "--size", "300k", "out", "--json"}), "");
  EXPECT_THAT(options.words, ElementsAre("in", "out"));
  EXPECT_EQ(options.size, 300000);
  EXPECT_EQ(options.total, std::nullopt);
  EXPECT_TRUE(options.json);
  EXPECT_FALSE(options.quiet);
}

TEST_F(CommandOptionsTest, TakesAValueBehindAnEqualsSignAndTheLastOfSeveral) {
  EXPECT_EQ(read({"--out-dir=a=b", "--size=1k", "--size", "2k"}), "");
  EXPECT_EQ(options.outDir, "a=b");
  EXPECT_EQ(options.size, 2000);
}

TEST_F(CommandOptionsTest, EverythingBehindTwoDashesIsAWord) {
  EXPECT_EQ(read({"--size", "1k", "--", "-in.jpg", "--size", "--"}), "");
  EXPECT_THAT(options.words, ElementsAre("-in.jpg", "--size", "--"));
}

TEST_F(CommandOptionsTest, WordsAreTakenAsTheyAre) {
  const std::vector<std::string> words = {"-", "", "[a,b]", "{}", "fit", "info", "a b", "/x", "%%"};
  EXPECT_EQ(read(words), "");
  EXPECT_EQ(options.words, words);
  EXPECT_EQ(read({"--out-dir", "[a,b]"}), "");
  EXPECT_EQ(options.outDir, "[a,b]");
}

TEST_F(CommandOptionsTest, AskingForHelpIsEnough) {
  EXPECT_EQ(read({"--sise", "--help"}), "");
  EXPECT_TRUE(wantsHelp);
}

TEST_F(CommandOptionsTest, MaxSizeIsAnotherNameOfSize) {
  EXPECT_EQ(read({"--max-size", "3 kB"}, {.size = true, .movie = true}), "");
  EXPECT_EQ(options.size, 3000);
  int32_t bytes = 0;
  EXPECT_EQ(options.movie["maxOutputSize"].asNumber(bytes), dsjson::CONV_OK);
  EXPECT_EQ(bytes, 3000);
}

TEST_F(CommandOptionsTest, AMessageLimitsTheFileOrAllThatFitTakes) {
  EXPECT_EQ(read({"--for", "mms-300k", "--total", "1M"}), "");
  EXPECT_EQ(options.size, std::nullopt);
  EXPECT_EQ(options.total, 296000);
  EXPECT_EQ(read({"--for", "mms-1m", "--size", "1k"}, {.size = true}), "");
  EXPECT_EQ(options.size, 1000);
  EXPECT_EQ(read({"--for", "mms-2m"}),
            "--for: \"mms-2m\" is not a value: write mms-300k, mms-600k, mms-1m, mail-5m, mail-10m "
            "or mail-25m");
}

TEST_F(CommandOptionsTest, NamesWhatIsWrong) {
  EXPECT_EQ(read({"--sise", "1"}), "there is no option --sise: did you mean --size?");
  EXPECT_EQ(read({"-size=1"}), "there is no option -size: did you mean --size?");
  EXPECT_EQ(read({"--wobble"}), "there is no option --wobble");
  EXPECT_EQ(read({"--size"}), "--size needs a value");
  EXPECT_EQ(read({"--size", "big"}), "--size: \"big\" is not a size: write 300k or 1.5M");
  EXPECT_EQ(read({"--max-width", "-5"}), "--max-width: \"-5\" is not a value: write 1280");
  EXPECT_EQ(read({"--keep-metadata", "some"}),
            "--keep-metadata: \"some\" is not a value: write all, no-location or none");
}

TEST_F(CommandOptionsTest, MovieOptionsBecomeMembersOfTheRequest) {
  EXPECT_EQ(read({"--passes", "2", "--start=1.5"}, {.movie = true}), "");
  int32_t passes = 0;
  double start = 0;
  EXPECT_EQ(options.movie["passes"].asNumber(passes), dsjson::CONV_OK);
  EXPECT_EQ(options.movie["startOffset"].asNumber(start), dsjson::CONV_OK);
  EXPECT_EQ(passes, 2);
  EXPECT_EQ(start, 1.5);
  EXPECT_EQ(read({"--start", "-1"}, {.movie = true}),
            "--start: \"-1\" is not a value: write 90 or 2.5");
}

TEST_F(CommandOptionsTest, TheHelpHasAllOfACommandsOptionsAndNoOther) {
  EXPECT_THAT(optionsHelp({.movie = true}), HasSubstr("--passes 1|2"));
  EXPECT_THAT(optionsHelp({.movie = true}), testing::Not(HasSubstr("--total")));
}

}  // namespace
