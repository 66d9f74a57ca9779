// What somebody would do who has taken over a process that reads foreign files.
#ifndef TESTS_FAULTS_ATTACKS_H
#define TESTS_FAULTS_ATTACKS_H

#include <sys/types.h>

#include <string>
#include <vector>

struct Victim {
  std::string folder;  // with a file named "secret" in it
  pid_t process = 0;   // of the same user
};

struct AttackReport {
  int tried = 0;
  std::vector<std::string> succeeded;  // by name
};

// Tries everything there is to try from inside this process and undoes nothing.
AttackReport attack(const Victim& victim);
// The same, told in words: "tried", where there was enough to try, and a line for each that
// succeeded. The limit of memory, which a sanitizer goes without, is left out in its builds.
std::string toldAttack(const Victim& victim);

// A process of ours that waits for its end, with a folder of ours.
class LivingVictim {
 public:
  LivingVictim();
  ~LivingVictim();
  LivingVictim(const LivingVictim&) = delete;
  LivingVictim& operator=(const LivingVictim&) = delete;

  const Victim& victim() const { return prey; }
  // Whether process and folder are as they were.
  bool isUnharmed() const;

 private:
  Victim prey;
};

#endif
