// The handles of this process that are open, for what must still be done when it ends by exit().
//
// Thread: any.
// A forked child does nothing at its exit(): the thread that writes to the bus exists only in the
// process that opened the handle, and waiting for it would never end.
#ifndef PLATFORM_VELA_EXIT_REGISTRY_H
#define PLATFORM_VELA_EXIT_REGISTRY_H

#include <memory>

struct VSHandle;

namespace vela {

// From now on exit() first lets the handle finish (VSHandle::finishAtExit), if it is still there.
void finishAtExit(const std::shared_ptr<VSHandle>& handle);
void dontFinishAtExit(const VSHandle* handle);

}  // namespace vela

#endif
