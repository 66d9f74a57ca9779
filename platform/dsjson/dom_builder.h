// Builds a JSON value from what the JSON library's parser reports.
//
// The library's own way looks a new member up among all that are there: an object of n members
// costs n² time.
#ifndef PLATFORM_DSJSON_DOM_BUILDER_H
#define PLATFORM_DSJSON_DOM_BUILDER_H

#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/dsjson/large_numbers.h"

namespace dsjson {

// Copying and destroying a value recurses: deeper texts would overflow the stack.
constexpr size_t kMaxDepth = 64;

// The names and signatures are those that nlohmann::json::sax_parse calls; false ends the parsing.
class DomBuilder {
 public:
  using Json = nlohmann::ordered_json;

  // The numbers stand in for smaller ones that the parser will report; both are borrowed.
  DomBuilder(Json* result, const std::vector<LargeNumber>& largeNumbers)
      : root(result), large(largeNumbers) {}

  bool null() { return add(nullptr); }
  bool boolean(bool value) { return add(value); }
  bool number_integer(Json::number_integer_t value) { return addNumber(value); }
  bool number_unsigned(Json::number_unsigned_t value) { return addNumber(value); }
  bool number_float(Json::number_float_t value, const std::string&) { return addNumber(value); }
  bool string(std::string& value) { return add(std::move(value)); }
  bool binary(Json::binary_t&) { return false; }  // not in texts
  bool start_object(size_t) { return open(Json::object()); }
  bool start_array(size_t) { return open(Json::array()); }
  bool key(std::string& name);
  bool end_object() { return close(); }
  bool end_array() { return close(); }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception&) { return false; }

 private:
  // An object or array whose end is still to come.
  struct Open {
    Json value;
    std::string key{};                       // of the member to come
    std::map<std::string, size_t> places{};  // of an object's members
  };

  bool open(Json empty);
  bool close();
  bool add(Json value);
  bool addNumber(Json number);
  static void setMember(Open* object, Json value);

  Json* const root;
  const std::vector<LargeNumber>& large;
  size_t largeSeen = 0;
  size_t numbersSeen = 0;
  std::vector<Open> openValues;  // outermost first
};

}  // namespace dsjson

#endif
