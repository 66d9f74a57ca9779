#include "platform/vela/uri.h"

#include <gio/gio.h>

namespace vela {

namespace {

constexpr std::string_view kScheme = "tarn://";

// The service's name is its interface's too, which may have no hyphen.
bool legal(const Uri& uri) {
  return g_dbus_is_interface_name(uri.service.c_str()) &&
         g_variant_is_object_path(uri.category.c_str()) &&
         g_dbus_is_member_name(uri.method.c_str());
}

}  // namespace

std::optional<Uri> Uri::parse(std::string_view text) {
  if (!text.starts_with(kScheme)) {
    return std::nullopt;
  }
  text.remove_prefix(kScheme.size());
  const size_t first = text.find('/');
  const size_t last = text.rfind('/');
  if (first == std::string_view::npos) {
    return std::nullopt;
  }
  Uri uri;
  uri.service = text.substr(0, first);
  uri.category = first == last ? "/" : text.substr(first, last - first);
  uri.method = text.substr(last + 1);
  return legal(uri) ? std::optional(uri) : std::nullopt;
}

}  // namespace vela
