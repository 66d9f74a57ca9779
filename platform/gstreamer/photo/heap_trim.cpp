#include "platform/gstreamer/photo/heap_trim.h"

#include <glib.h>
#include <malloc.h>

#include <mutex>

namespace {

// Pictures in a row come quicker than this, and the next one takes what the last one left.
constexpr guint kQuietMs = 100;

std::mutex gMutex;
guint gTimer = 0;  // 0: none is set

gboolean trim(gpointer) {
  {
    const std::lock_guard<std::mutex> lock(gMutex);
    gTimer = 0;
  }
#ifdef __GLIBC__
  malloc_trim(0);
#endif
  return G_SOURCE_REMOVE;
}

}  // namespace

void trimHeapWhenQuiet() {
  const std::lock_guard<std::mutex> lock(gMutex);
  if (gTimer != 0) g_source_remove(gTimer);
  gTimer = g_timeout_add(kQuietMs, trim, nullptr);
}
