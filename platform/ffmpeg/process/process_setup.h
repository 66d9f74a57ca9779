// The state of this process that it must not leave to whoever started it.
#ifndef PLATFORM_FFMPEG_PROCESS_PROCESS_SETUP_H
#define PLATFORM_FFMPEG_PROCESS_PROCESS_SETUP_H

#include <sys/types.h>

// Closes every descriptor above 2, reads standard input from the null device and makes sure that
// 1 and 2 are open. Two programs started at the same moment inherit each other's pipe ends;
// whoever waits for a sibling's end of file would otherwise wait for us too.
void closeInheritedDescriptors();

// Undoes a signal mask and ignored signals that came with fork and exec. SIGPIPE stays ignored:
// nobody listening is no reason to leave a half-written file behind.
void resetSignals();

// Asks the kernel to send `signal` to this process when its parent ends, which must be `parent`.
// False when the parent is gone already.
bool endWithParent(int signal, pid_t parent);

// False when nobody holds the other end of standard error any more.
bool isListenedTo();

#endif
