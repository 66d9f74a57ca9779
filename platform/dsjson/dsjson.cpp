#include "dsjson/dsjson.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/dsjson/dom_builder.h"
#include "platform/dsjson/large_numbers.h"

namespace dsjson {

using OrderedJson = nlohmann::ordered_json;

// NOLINTNEXTLINE(bugprone-exception-escape): the library's move asserts, and throws nothing
struct JValue::Json {
  OrderedJson value;
};

namespace {

// Two paths of that length, every character escaped, still fit a request.
constexpr size_t kMaxTextBytes = 8192;

bool hasText(const OrderedJson& json) {
  if (json.is_number_float()) return std::isfinite(json.get<double>());
  if (!json.is_structured()) return true;
  return std::all_of(json.begin(), json.end(), hasText);
}

}  // namespace

JValue Object() {
  JValue object;
  object.json->value = OrderedJson::object();
  return object;
}

JValue::JValue() : json(new Json) {}
JValue::JValue(bool value) : json(new Json{value}) {}
JValue::JValue(int32_t value) : json(new Json{value}) {}
JValue::JValue(double value) : json(new Json{value}) {}
JValue::JValue(const char* value) : json(new Json{value}) {}
JValue::JValue(const std::string& value) : json(new Json{value}) {}
JValue::JValue(const JValue& other) : json(new Json(*other.json)) {}
JValue& JValue::operator=(const JValue& other) {
  *json = *other.json;
  return *this;
}
JValue::~JValue() = default;

JValue JValue::operator[](const std::string& key) const {
  JValue member;
  if (isObject()) {
    const auto found = json->value.find(key);
    if (found != json->value.end()) member.json->value = *found;
  }
  return member;
}

JValue& JValue::put(const std::string& key, const JValue& value) {
  if (!isObject()) json->value = OrderedJson::object();
  json->value[key] = value.json->value;
  return *this;
}

bool JValue::isObject() const {
  return json->value.is_object();
}

ConversionResult JValue::asString(std::string& out) const {
  if (json->value.is_null()) return CONV_MISSING;
  if (!json->value.is_string()) return CONV_BAD_TYPE;
  const auto& text = json->value.get_ref<const std::string&>();
  if (text.size() > kMaxTextBytes || text.find('\0') != std::string::npos) return CONV_NO_FIT;
  out = text;
  return CONV_OK;
}

ConversionResult JValue::asBool(bool& out) const {
  if (json->value.is_null()) return CONV_MISSING;
  if (!json->value.is_boolean()) return CONV_BAD_TYPE;
  out = json->value.get<bool>();
  return CONV_OK;
}

ConversionResult JValue::asNumber(int32_t& out) const {
  double number = 0;
  const ConversionResult result = asNumber(number);
  if (result != CONV_OK) return result;
  // A double holds every int32 and tells every other number from them.
  if (number != std::trunc(number) || number < INT32_MIN || number > INT32_MAX) return CONV_NO_FIT;
  out = static_cast<int32_t>(number);
  return CONV_OK;
}

ConversionResult JValue::asNumber(double& out) const {
  if (json->value.is_null()) return CONV_MISSING;
  if (!json->value.is_number()) return CONV_BAD_TYPE;
  const double number = json->value.get<double>();
  if (!std::isfinite(number)) return CONV_NO_FIT;
  out = number;
  return CONV_OK;
}

bool JDomParser::parse(const std::string& text, const JSchema&, JErrorHandler*) {
  std::vector<LargeNumber> largeNumbers;
  const std::string readable = withoutLargeNumbers(text, &largeNumbers);
  dom = JValue();
  DomBuilder builder(&dom.json->value, largeNumbers);
  return OrderedJson::sax_parse(readable, &builder);
}

bool JGenerator::toString(const JValue& value, const JSchema&, std::string& out) {
  if (!hasText(value.json->value)) return false;
  out = value.json->value.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
  return true;
}

}  // namespace dsjson
