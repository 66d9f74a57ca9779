// Feeds any bytes to the JSON parser; what parses must also be written and parse again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "dsjson/dsjson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const dsjson::JSchema any = dsjson::JSchemaFragment("{}");
  dsjson::JDomParser parser(nullptr);
  if (!parser.parse({reinterpret_cast<const char*>(data), size}, any, nullptr)) return 0;
  std::string text;
  if (!dsjson::JGenerator(nullptr).toString(parser.getDom(), any, text)) return 0;
  if (!parser.parse(text, any, nullptr)) abort();
  return 0;
}
