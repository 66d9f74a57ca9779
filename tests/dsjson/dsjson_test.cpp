#include "dsjson/dsjson.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>

namespace dsjson {
namespace {

const JSchema kAny = JSchemaFragment("{}");

JValue parsed(const std::string& text) {
  JDomParser parser(nullptr);
  EXPECT_TRUE(parser.parse(text, kAny, nullptr)) << text;
  return parser.getDom();
}

bool parses(const std::string& text) {
  return JDomParser(nullptr).parse(text, kAny, nullptr);
}

std::string generated(const JValue& value) {
  std::string text;
  EXPECT_TRUE(JGenerator(nullptr).toString(value, kAny, text));
  return text;
}

TEST(DsjsonParser, RefusesWhatIsNotJson) {
  for (const char* text : {"", " ", "{", "{]", "{\"a\":}", "nul", "'a'", "{} {}", "{\"a\":1,}",
                           "[1 2]", "\"\\ud800\"", "\"\xff\"", "01", "NaN"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
}

TEST(DsjsonParser, AcceptsAnyJsonValue) {
  for (const char* text : {"{}", "[]", "null", "3", "\"a\"", " {\"a\" : [1, {}]}\n"}) {
    EXPECT_TRUE(parses(text)) << text;
  }
}

TEST(DsjsonParser, DomIsNullAfterAFailure) {
  JDomParser parser(nullptr);
  ASSERT_TRUE(parser.parse("{\"a\":1}", kAny, nullptr));
  ASSERT_FALSE(parser.parse("{\"a\":", kAny, nullptr));
  EXPECT_FALSE(parser.getDom().isObject());
}

TEST(DsjsonParser, NestsSixtyFourDeepAndNoDeeper) {
  const auto nested = [](size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(parses(nested(64)));
  EXPECT_FALSE(parses(nested(65)));
  EXPECT_FALSE(parses(nested(1000000)));
  EXPECT_FALSE(parses(std::string(1000000, '[')));
}

TEST(DsjsonParser, LastOfTwoMembersWinsInThePlaceOfTheFirst) {
  EXPECT_EQ(generated(parsed("{\"a\":1,\"b\":2,\"a\":{\"c\":1,\"c\":2}}")),
            "{\"a\":{\"c\":2},\"b\":2}");
}

// CPU milliseconds that it takes to parse an object of that many members.
double parsingMs(int members) {
  std::string text = "{";
  for (int i = 0; i < members; ++i) {
    text += "\"" + std::to_string(i) + "\":1,";
  }
  text += "\"last\":7}";
  const clock_t start = clock();
  int32_t last = 0;
  EXPECT_EQ(parsed(text)["last"].asNumber(last), CONV_OK);
  EXPECT_EQ(last, 7);
  return static_cast<double>(clock() - start) * 1000 / CLOCKS_PER_SEC;
}

TEST(DsjsonParser, ManyMembersCostNoMoreEach) {
  // The smaller is warmed up by a first time. Were each looked up among all, it would be 400 times.
  parsingMs(5000);
  const double few = parsingMs(5000);
  EXPECT_LT(parsingMs(100000), 100 * few + 10);
}

TEST(DsjsonParser, NumbersThatNoDoubleHoldsParse) {
  const std::string digits(400, '9');
  const JValue value = parsed("{\"a\":[1, 1e400,-2.5e+400 ,\"1e400 \\\"\", 3],\"b\":" + digits +
                              ",\"c\":-" + digits + ".5,\"d\":4,\"e\":1e-400}");
  double number = 77;
  int32_t whole = 77;
  for (const char* key : {"b", "c"}) {
    EXPECT_EQ(value[key].asNumber(number), CONV_NO_FIT) << key;
    EXPECT_EQ(value[key].asNumber(whole), CONV_NO_FIT) << key;
  }
  EXPECT_EQ(number, 77);
  EXPECT_EQ(whole, 77);
  EXPECT_EQ(value["d"].asNumber(whole), CONV_OK);
  EXPECT_EQ(whole, 4);
  EXPECT_EQ(value["e"].asNumber(whole), CONV_OK);
  EXPECT_EQ(whole, 0);
  EXPECT_EQ(parsed("1e400").asNumber(whole), CONV_NO_FIT);
  EXPECT_EQ(parsed(" -1E0400 ").asNumber(whole), CONV_NO_FIT);
}

// Where a text ends is told before numbers are looked for: these end at once, or nearly.
TEST(DsjsonParser, NumbersThatNoDoubleHoldsParseBehindShortTexts) {
  double number = 77;
  EXPECT_EQ(parsed(R"({"":"","a":1e400})")["a"].asNumber(number), CONV_NO_FIT);
  EXPECT_EQ(parsed(R"({"b":"\"","a":1e400})")["a"].asNumber(number), CONV_NO_FIT);
  EXPECT_EQ(number, 77);
}

TEST(DsjsonParser, NumbersMustBeSpelledRightWhateverTheirSize) {
  const std::string digits(400, '1');
  for (const std::string& text :
       {std::string("01e400"), std::string("1.e400"), std::string("-.5e400"), std::string("+1e400"),
        std::string("1e400e1"), std::string("1e400-"), "0" + digits, digits + ".", digits + "-1",
        std::string("--1e400"), std::string("[1e400 1]"), std::string("\"1e400")}) {
    EXPECT_FALSE(parses(text)) << text;
  }
}

TEST(DsjsonValue, MemberOfNoObjectIsMissing) {
  std::string text = "kept";
  for (const char* json : {"[1]", "3", "null", "\"a\"", "{}"}) {
    EXPECT_EQ(parsed(json)["a"].asString(text), CONV_MISSING) << json;
  }
  EXPECT_EQ(text, "kept");
}

TEST(DsjsonValue, WholeNumbersConvertHoweverSpelled) {
  const std::pair<const char*, int32_t> cases[] = {{"3", 3},
                                                   {"3.0", 3},
                                                   {"3e0", 3},
                                                   {"-5", -5},
                                                   {"2147483647", INT32_MAX},
                                                   {"0.3e1", 3},
                                                   {"-0", 0},
                                                   {"-0.0", 0},
                                                   {"-2147483648", INT32_MIN}};
  for (const auto& [text, expected] : cases) {
    int32_t number = 77;
    EXPECT_EQ(parsed(text).asNumber(number), CONV_OK) << text;
    EXPECT_EQ(number, expected) << text;
  }
}

TEST(DsjsonValue, OtherValuesAreNoInt) {
  const std::pair<const char*, ConversionResult> cases[] = {{"1.5", CONV_NO_FIT},
                                                            {"1e12", CONV_NO_FIT},
                                                            {"2147483648", CONV_NO_FIT},
                                                            {"-2147483649", CONV_NO_FIT},
                                                            {"true", CONV_BAD_TYPE},
                                                            {"\"3\"", CONV_BAD_TYPE},
                                                            {"18446744073709551615", CONV_NO_FIT},
                                                            {"[3]", CONV_BAD_TYPE},
                                                            {"null", CONV_MISSING}};
  for (const auto& [text, expected] : cases) {
    int32_t number = 77;
    EXPECT_EQ(parsed(text).asNumber(number), expected) << text;
    EXPECT_EQ(number, 77) << text;
  }
}

TEST(DsjsonValue, DoublesConvert) {
  double number = 0;
  EXPECT_EQ(parsed("1.5").asNumber(number), CONV_OK);
  EXPECT_EQ(number, 1.5);
  EXPECT_EQ(parsed("7").asNumber(number), CONV_OK);
  EXPECT_EQ(number, 7);
  EXPECT_EQ(parsed("\"7\"").asNumber(number), CONV_BAD_TYPE);
}

TEST(DsjsonValue, StringsConvertUnlessANulWouldCutThem) {
  std::string text;
  EXPECT_EQ(parsed("\"a\\u00e9\\n\"").asString(text), CONV_OK);
  EXPECT_EQ(text, "a\xc3\xa9\n");
  EXPECT_EQ(parsed("\"a\\u0000b\"").asString(text), CONV_NO_FIT);
  EXPECT_EQ(parsed("3").asString(text), CONV_BAD_TYPE);
  EXPECT_EQ(text, "a\xc3\xa9\n");
}

TEST(DsjsonValue, TextsOfMoreThanEightKibibytesDoNotConvert) {
  std::string text;
  EXPECT_EQ(parsed("\"" + std::string(8192, 'x') + "\"").asString(text), CONV_OK);
  EXPECT_EQ(text.size(), 8192u);
  EXPECT_EQ(parsed("\"" + std::string(8193, 'y') + "\"").asString(text), CONV_NO_FIT);
  EXPECT_EQ(text, std::string(8192, 'x'));
}

TEST(DsjsonValue, BooleansConvert) {
  bool truth = false;
  EXPECT_EQ(parsed("true").asBool(truth), CONV_OK);
  EXPECT_TRUE(truth);
  EXPECT_EQ(parsed("0").asBool(truth), CONV_BAD_TYPE);
  EXPECT_EQ(parsed("{}")["a"].asBool(truth), CONV_MISSING);
  EXPECT_TRUE(truth);
}

TEST(DsjsonGenerator, KeepsMemberOrderAndKinds) {
  JValue object = Object();
  object.put("returnValue", true).put("z", 1).put("clipLength", 80.0).put("a", "x\n");
  EXPECT_EQ(generated(object), "{\"returnValue\":true,\"z\":1,\"clipLength\":80.0,\"a\":\"x\\n\"}");
  object.put("z", 2);
  EXPECT_EQ(generated(object), "{\"returnValue\":true,\"z\":2,\"clipLength\":80.0,\"a\":\"x\\n\"}");
  EXPECT_EQ(generated(Object().put("z", 0.75)), "{\"z\":0.75}");
  EXPECT_EQ(generated(JValue()), "null");
}

TEST(DsjsonGenerator, ReplacesWhatIsNotUtf8) {
  EXPECT_EQ(generated(Object().put("a", "x\xffy")), "{\"a\":\"x\xef\xbf\xbdy\"}");
}

TEST(DsjsonGenerator, RefusesNumbersThatJsonCannotWrite) {
  std::string text = "kept";
  for (double number : {std::numeric_limits<double>::infinity(), std::nan("")}) {
    const JValue value = Object().put("in", Object().put("deep", number));
    EXPECT_FALSE(JGenerator(nullptr).toString(value, kAny, text));
  }
  EXPECT_EQ(text, "kept");
}

}  // namespace
}  // namespace dsjson
