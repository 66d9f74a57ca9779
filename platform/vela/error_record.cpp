#include "platform/vela/error_record.h"

namespace vela {

bool fail(VSError* error, const char* name, const std::string& message) {
  if (error != nullptr) {
    *error = {-1, g_strdup(name), g_strdup(message.c_str())};
  }
  return false;
}

bool fail(VSError* error, const GError* cause, const char* fallbackName) {
  if (g_error_matches(cause, G_IO_ERROR, G_IO_ERROR_CLOSED)) {
    return fail(error, kDisconnected, cause->message);
  }
  if (!g_dbus_error_is_remote_error(cause)) {
    return fail(error, fallbackName, cause->message);
  }
  g_autofree char* name = g_dbus_error_get_remote_error(cause);
  g_autoptr(GError) bare = g_error_copy(cause);
  g_dbus_error_strip_remote_error(bare);
  return fail(error, name, bare->message);
}

}  // namespace vela

void VSErrorInit(VSError* error) {
  if (error != nullptr) {
    *error = {0, nullptr, nullptr};
  }
}

void VSErrorPrint(const VSError* error, FILE* stream) {
  if (error == nullptr || stream == nullptr || error->code == 0) {
    return;
  }
  fprintf(stream, "%s: %s\n", error->name != nullptr ? error->name : "unknown error",
          error->message != nullptr ? error->message : "");
}

void VSErrorFree(VSError* error) {
  if (error == nullptr) {
    return;
  }
  g_free(error->name);
  g_free(error->message);
  VSErrorInit(error);
}
