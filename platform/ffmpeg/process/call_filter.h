// The system calls that a process gives up for itself and everything that it starts.
#ifndef PLATFORM_FFMPEG_PROCESS_CALL_FILTER_H
#define PLATFORM_FFMPEG_PROCESS_CALL_FILTER_H

// How much of the world outside its own memory and files a process still deals with.
enum class CallRights {
  Reader,      // one thread that reads what it has open
  Program,     // may become another program, with threads
  Script,      // may start processes besides
  Supervisor,  // may signal others and change the rights of files besides
};

// For good. True also where the kernel has no filters; false when it has but refused this one.
bool giveUpCalls(CallRights rights);

#endif
