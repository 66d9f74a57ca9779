// Preloaded into the daemon: it then does not end itself when it is idle, so that its memory and
// its CPU time can be followed over many requests.
#include <dlfcn.h>
#include <glib.h>

constexpr guint kTickMs = 5000;  // at which the daemon looks whether it is idle
constexpr guint kHourMs = 3600 * 1000;

extern "C" GSource* g_timeout_source_new(guint interval) {
  using Make = GSource* (*)(guint);
  static const auto make = reinterpret_cast<Make>(dlsym(RTLD_NEXT, "g_timeout_source_new"));
  return make(interval == kTickMs ? kHourMs : interval);
}
