// Tells the service manager that the process is about to end.
#ifndef PLATFORM_VELA_STOP_NOTICE_H
#define PLATFORM_VELA_STOP_NOTICE_H

namespace vela {

// Sends one datagram "STOPPING=1" to the socket that NOTIFY_SOCKET names, abstract ones ("@…")
// included. Does nothing when it is unset; a failure is nobody's loss and is not reported.
void notifyStopping();

}  // namespace vela

#endif
