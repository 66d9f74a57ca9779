// Stands in for the system's ffmpeg: an encoder that was taken over by the file it reads.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/faults/attacks.h"

namespace {

std::string variable(const char* name) {
  const char* value = getenv(name);
  return value ? value : "";
}

// What an encoder has to be able to do.
void tellWhatWorks(const std::string& input, const std::string& output) {
  if (open(input.c_str(), O_RDONLY) >= 0) fprintf(stderr, "reads the input\n");
  const int fd = open(output.c_str(), O_CREAT | O_WRONLY, 0600);
  if (fd >= 0) fprintf(stderr, "writes the output\n");
  if (fd >= 0 && ftruncate(fd, off_t{5} << 30) == 0) fprintf(stderr, "ALLOWED a file of 5 GiB\n");
  pthread_t thread;
  void* (*const nothing)(void*) = [](void*) -> void* { return nullptr; };
  if (pthread_create(&thread, nullptr, nothing, nullptr) == 0) {
    pthread_join(thread, nullptr);
    fprintf(stderr, "starts a thread\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string output = std::string(argv[argc - 1]).substr(sizeof("file:") - 1);
  tellWhatWorks(variable("ATTACK_INPUT"), output);
  const Victim victim = {variable("ATTACK_FOLDER"), atoi(variable("ATTACK_PROCESS").c_str())};
  const AttackReport report = attack(victim);
  for (const std::string& name : report.succeeded) {
    fprintf(stderr, "ALLOWED %s\n", name.c_str());
  }
  fprintf(stderr, "tried %d attacks\n", report.tried);
  execl("/bin/sh", "sh", "-c", "echo ALLOWED another program >&2", nullptr);
  return 1;
}
