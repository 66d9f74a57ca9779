// The inactivity timer: keeps the device awake while tasks live, ends the daemon when none does.
//
// Thread: the main loop's.
#ifndef SRC_SERVICE_INACTIVITY_TIMER_H
#define SRC_SERVICE_INACTIVITY_TIMER_H

#include <glib.h>

#include "vela/vela.h"

struct tagINACTIVITY_STATUS {
  GSource* source;          // null when stopped
  unsigned int intervalMs;  // between two ticks
  unsigned int sourceId;    // 0 when stopped
  VSHandle* handle;         // borrowed; set before the timer starts
};

extern tagINACTIVITY_STATUS gInactivityStatus;

// Starts ticking every intervalMs on the default context and sends a first keep-alive. Returns
// false for a null record, a zero interval or when no timer could be made. An earlier timer of the
// record is not stopped.
bool StartInactivityTimer(tagINACTIVITY_STATUS* status, unsigned int intervalMs);

// Stops the timer if it runs. Returns false for a null record only.
bool StopInactivityTimer(tagINACTIVITY_STATUS* status);

// One tick, of the record that data points to. With a live task: sends a keep-alive and returns
// TRUE. With none: unregisters from the bus and ends the process with status 0.
gboolean CallbackInactivityTimeout(gpointer data);

#endif
