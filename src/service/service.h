// The service's life on the bus, from registration to its end.
#ifndef SRC_SERVICE_SERVICE_H
#define SRC_SERVICE_SERVICE_H

#include <glib.h>

#include "vela/vela.h"

class TranscodeServer;

extern GMainLoop* gMainLoop;
extern TranscodeServer* gTranscodeServer;  // owned

// Registers com.tarn.transcode, starts the inactivity timer, publishes the methods and runs the
// main loop. Normally the inactivity timer ends the process and this never returns; otherwise it
// returns what unregisterVelaService returned. Bus failures are printed to stderr, not retried.
int registerVelaService();

// Leaves the bus: -1 for a null handle, 1 when it succeeded, 0 when it failed.
int unregisterVelaService(VSHandle* handle);

// The context of gMainLoop.
GMainContext* GetMainLoopContext();

#endif
