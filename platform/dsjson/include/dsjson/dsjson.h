// JSON values, read from text and written to text, with the names of the device's JSON library.
//
// Thread: a value belongs to one thread at a time; a JSchema may be shared.
// Errors: by result; nothing throws. A value that is not there reads as null.
#ifndef DSJSON_DSJSON_H
#define DSJSON_DSJSON_H

#include <cstdint>
#include <memory>
#include <string>

namespace dsjson {

// What a conversion of a JValue ended with. Only CONV_OK stores a result.
enum ConversionResult {
  CONV_OK = 0,
  CONV_MISSING,   // the value is null, or no such member
  CONV_BAD_TYPE,  // a value of another type
  CONV_NO_FIT,    // right type, but the target cannot hold it
};

// A JSON value; objects keep the order in which their members were put. Copies are deep.
class JValue {
 public:
  JValue();  // null
  JValue(bool value);
  JValue(int32_t value);
  JValue(double value);
  JValue(const char* value);
  JValue(const std::string& value);
  JValue(const JValue& other);
  JValue& operator=(const JValue& other);
  ~JValue();

  // The member of that name, or null: also when this value is no object.
  JValue operator[](const std::string& key) const;

  // Sets a member, in its old place if it has one. A value that is no object becomes one first.
  JValue& put(const std::string& key, const JValue& value);

  // Whether the value is an object.
  bool isObject() const;

  // The text of a string. A string with an embedded NUL does not fit: it would end early in C. One
  // of more than 8 KiB does not either: no path and no name is that long.
  ConversionResult asString(std::string& out) const;

  // A boolean; numbers are none.
  ConversionResult asBool(bool& out) const;

  // A whole number in range, however it was spelled: 3, 3.0 and 3e0 are 3.
  ConversionResult asNumber(int32_t& out) const;

  // Any number that a double holds; 1e400 is a number that does not fit.
  ConversionResult asNumber(double& out) const;

 private:
  friend class JDomParser;
  friend class JGenerator;
  friend JValue Object();

  // The JSON library's own value, which takes seconds to compile: only the implementation sees it.
  struct Json;
  std::unique_ptr<Json> json;
};

// A new empty object.
JValue Object();

// What a text must look like. The only schema there is accepts any JSON.
class JSchema {};

// A schema from its own text; "{}" is the one that is understood.
class JSchemaFragment : public JSchema {
 public:
  explicit JSchemaFragment(const char*) {}
};

class JResolver;      // unused; pass nullptr
class JErrorHandler;  // unused; pass nullptr

// Reads a JSON text.
class JDomParser {
 public:
  explicit JDomParser(JResolver*) {}

  // Returns whether the text is JSON, nested at most 64 deep; then getDom() is its value. Of two
  // members of one name the last wins. Takes time in proportion to the text, whatever is in it.
  bool parse(const std::string& text, const JSchema& schema, JErrorHandler* handler);

  // The value last parsed; null before and after a failure.
  JValue getDom() const { return dom; }

 private:
  JValue dom;
};

// Writes a JSON text: compact, members in order, a double always with a fraction or an exponent.
class JGenerator {
 public:
  explicit JGenerator(JResolver*) {}

  // Replaces out with the text. Bytes that are not UTF-8 become U+FFFD. Returns false, and leaves
  // out alone, when JSON has no text for the value: it is infinite, not a number, or holds such.
  bool toString(const JValue& value, const JSchema& schema, std::string& out);
};

}  // namespace dsjson

#endif
