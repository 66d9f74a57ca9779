// How far the work on a file has come.
#ifndef CLIENT_SERVICE_STEP_H
#define CLIENT_SERVICE_STEP_H

struct Step {
  double share = 0;  // of the whole work, over all passes, 0 to 1
  int pass = 0;      // from 1 on; 0: there are none
  int passes = 0;
};

#endif
