// Gives the memory that pictures leave behind back to the system.
//
// malloc keeps what is freed for the thread's next request: after eight photos at once most of a
// megabyte for each of their streaming threads, scattered around the little that is still in use,
// where the trim threshold does not reach.
#ifndef PLATFORM_GSTREAMER_PHOTO_HEAP_TRIM_H
#define PLATFORM_GSTREAMER_PHOTO_HEAP_TRIM_H

// To be called when a picture is done. Once none has been for a moment, every free page goes back,
// from the default main context; where nothing runs that, nothing happens.
//
// Thread: any.
void trimHeapWhenQuiet();

#endif
