#include "client/commands/arguments.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

TEST(Arguments, TellsWordsFromOptions) {
  const Arguments arguments({"in", "--size", "300k", "out", "--json"}, {"--size"}, {"--json"});
  EXPECT_EQ("", arguments.errorText());
  EXPECT_THAT(arguments.positional(), ElementsAre("in", "out"));
  EXPECT_EQ("300k", arguments.value("--size"));
  EXPECT_TRUE(arguments.has("--json"));
  EXPECT_FALSE(arguments.has("--quiet"));
  EXPECT_EQ(std::nullopt, arguments.value("--quiet"));
}

TEST(Arguments, TakesAValueBehindAnEqualsSign) {
  EXPECT_EQ("a=b", Arguments({"--size=a=b"}, {"--size"}, {}).value("--size"));
  EXPECT_EQ("", Arguments({"--size="}, {"--size"}, {}).value("--size"));
}

TEST(Arguments, EverythingBehindTwoDashesIsAWord) {
  const Arguments arguments({"--", "-in.jpg", "--size"}, {"--size"}, {});
  EXPECT_THAT(arguments.positional(), ElementsAre("-in.jpg", "--size"));
}

TEST(Arguments, ASingleDashIsAWord) {
  EXPECT_THAT(Arguments({"-", ""}, {}, {}).positional(), ElementsAre("-", ""));
}

TEST(Arguments, NamesWhatIsWrong) {
  EXPECT_EQ("unknown option --sise", Arguments({"--sise", "1"}, {"--size"}, {}).errorText());
  EXPECT_EQ("--size needs a value", Arguments({"--size"}, {"--size"}, {}).errorText());
  EXPECT_EQ("unknown option --json=1", Arguments({"--json=1"}, {}, {"--json"}).errorText());
}

}  // namespace
