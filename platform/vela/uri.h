// The address of a method: tarn://SERVICE/CATEGORY/METHOD.
#ifndef PLATFORM_VELA_URI_H
#define PLATFORM_VELA_URI_H

#include <optional>
#include <string>
#include <string_view>

namespace vela {

struct Uri {
  std::string service;   // a well-known bus name
  std::string category;  // an object path
  std::string method;    // a member name

  // Nothing when the text is no such address, or a piece of it is no legal D-Bus name.
  static std::optional<Uri> parse(std::string_view text);
};

}  // namespace vela

#endif
