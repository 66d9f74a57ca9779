#include "tests/movie/movie_test.h"

namespace {

std::string textOf(const dsjson::JValue& value) {
  std::string text;
  EXPECT_TRUE(dsjson::JGenerator(nullptr).toString(value, emptySchema, text));
  return text;
}

}  // namespace

dsjson::JValue parsed(const std::string& text) {
  dsjson::JDomParser parser(nullptr);
  EXPECT_TRUE(parser.parse(text, emptySchema, nullptr)) << text;
  return parser.getDom();
}

std::string failure(const std::string& errorText) {
  return textOf(dsjson::Object().put("returnValue", false).put("errorText", errorText));
}

std::string failure(const std::string& errorText, const std::string& detail) {
  return textOf(dsjson::Object()
                    .put("returnValue", false)
                    .put("errorText", errorText)
                    .put("errorDetail", detail));
}

std::string onlyReply(const fake_vela::Request& request) {
  const auto replies = request.replies();
  return replies.size() == 1 ? replies[0] : "";
}
