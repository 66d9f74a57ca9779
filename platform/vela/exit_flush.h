// Flushes the connections of this process when it ends by exit().
//
// Thread: any.
#ifndef PLATFORM_VELA_EXIT_FLUSH_H
#define PLATFORM_VELA_EXIT_FLUSH_H

#include <gio/gio.h>

namespace vela {

// Flushes the connection at exit from now on. It is borrowed: take it out before it goes.
// A forked child that ends by exit() flushes nothing: the thread that writes exists only in the
// process that opened the connection, and waiting for it would never end.
void flushAtExit(GDBusConnection* connection);
void dontFlushAtExit(GDBusConnection* connection);

}  // namespace vela

#endif
