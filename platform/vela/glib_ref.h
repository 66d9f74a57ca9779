// One reference to an object of GLib or GIO, dropped when its owner goes.
#ifndef PLATFORM_VELA_GLIB_REF_H
#define PLATFORM_VELA_GLIB_REF_H

#include <gio/gio.h>

#include <memory>

namespace vela {

struct GlibUnref {
  void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
  void operator()(GDBusMessage* message) const { g_object_unref(message); }
  void operator()(GMainContext* context) const { g_main_context_unref(context); }
  void operator()(GSource* source) const { g_source_unref(source); }
};

// Takes over the reference that it is made with.
template <typename T>
using GlibRef = std::unique_ptr<T, GlibUnref>;

}  // namespace vela

#endif
