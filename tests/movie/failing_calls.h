// System calls that fail when a test wants them to. The linker puts them before the real ones
// (--wrap), for the code under test only.
#ifndef TESTS_MOVIE_FAILING_CALLS_H
#define TESTS_MOVIE_FAILING_CALLS_H

#include <pthread.h>

// Which call from now on fails, counted from 1; 0 is none. Falls back to 0 when it has failed.
struct FailingCalls {
  int pipe = 0;
  int fork = 0;
  int pthreadCreate = 0;
  int read = 0;     // as one that a signal interrupted
  int waitpid = 0;  // as one that a signal interrupted
};

extern FailingCalls gFailingCalls;

// The thread that was made last; for a test that knows it to be alive.
extern pthread_t gLastThread;

#endif
