// GLib's definitions of a type, with the casts allowed that its macros make in C's way.
#ifndef PLATFORM_GSTREAMER_DEFINE_TYPE_H
#define PLATFORM_GSTREAMER_DEFINE_TYPE_H

#include <glib-object.h>

#define TARN_ALLOW_C_CASTS(...)                                                         \
  _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wold-style-cast\"") \
      __VA_ARGS__ _Pragma("GCC diagnostic pop")

#define TARN_DEFINE_TYPE(...) TARN_ALLOW_C_CASTS(G_DEFINE_TYPE(__VA_ARGS__))
#define TARN_DEFINE_ABSTRACT_TYPE(...) TARN_ALLOW_C_CASTS(G_DEFINE_ABSTRACT_TYPE(__VA_ARGS__))

#endif
