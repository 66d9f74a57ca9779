// Serves what was received when a handler ends the process by exit().
//
// Thread: any.
#ifndef PLATFORM_VELA_EXIT_SERVICE_H
#define PLATFORM_VELA_EXIT_SERVICE_H

struct VSHandle;

namespace vela {

// From now on exit() first lets the handle finish (VSHandle::finishAtExit). The handle is borrowed:
// take it out before it goes. A forked child finishes nothing.
void finishAtExit(VSHandle* handle);
void dontFinishAtExit(VSHandle* handle);

// Called before each request: one that ends the process while exit() is under way already must not
// take the rest of the requests with it.
void rearmIfExiting();

}  // namespace vela

#endif
