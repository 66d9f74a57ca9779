#include "client/commands/arguments.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

TEST(Arguments, TellsWordsFromOptions) {
  const Arguments arguments({"in", "--size", "300k", "out", "--json"}, {"--size"}, {"--json"});
  EXPECT_EQ(arguments.errorText(), "");
  EXPECT_THAT(arguments.positional(), ElementsAre("in", "out"));
  EXPECT_EQ(arguments.value("--size"), "300k");
  EXPECT_TRUE(arguments.has("--json"));
  EXPECT_FALSE(arguments.has("--quiet"));
  EXPECT_EQ(arguments.value("--quiet"), std::nullopt);
}

TEST(Arguments, TakesAValueBehindAnEqualsSign) {
  EXPECT_EQ(Arguments({"--size=a=b"}, {"--size"}, {}).value("--size"), "a=b");
  EXPECT_EQ(Arguments({"--size="}, {"--size"}, {}).value("--size"), "");
}

TEST(Arguments, EverythingBehindTwoDashesIsAWord) {
  const Arguments arguments({"--", "-in.jpg", "--size"}, {"--size"}, {});
  EXPECT_THAT(arguments.positional(), ElementsAre("-in.jpg", "--size"));
}

TEST(Arguments, ASingleDashIsAWord) {
  EXPECT_THAT(Arguments({"-", ""}, {}, {}).positional(), ElementsAre("-", ""));
}

TEST(Arguments, NamesWhatIsWrong) {
  EXPECT_EQ(Arguments({"--sise", "1"}, {"--size"}, {}).errorText(), "unknown option --sise");
  EXPECT_EQ(Arguments({"--size"}, {"--size"}, {}).errorText(), "--size needs a value");
  EXPECT_EQ(Arguments({"--json=1"}, {}, {"--json"}).errorText(), "unknown option --json=1");
}

}  // namespace
