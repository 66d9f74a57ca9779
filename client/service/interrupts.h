// The signals by which a user ends a command: SIGINT, SIGTERM and SIGHUP.
#ifndef CLIENT_SERVICE_INTERRUPTS_H
#define CLIENT_SERVICE_INTERRUPTS_H

// While one exists they do nothing but be noted, at the latest when received() is called. One that
// was ignored stays so. One at a time.
//
// Thread: the one of the default main context.
class Interrupts {
 public:
  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  // The number of the first that came, or 0.
  int received();

 private:
  struct Watch {
    Interrupts* all;
    int number;
    unsigned source;
  };
  void watch(Watch* watch);

  Watch watches[3];
  int first = 0;
};

#endif
