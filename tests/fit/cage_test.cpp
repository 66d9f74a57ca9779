// A worker that was taken over by the photo it reads: it gets nowhere.
#include "fit/worker/cage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "tests/faults/attacks.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr CageLimits kLimits = {int64_t{256} << 20, 1000, 20, false};

// Runs `act` caged, with input and output as a worker has them; what it returns, told by its
// stderr.
std::string caged(const std::string& input, const std::string& output,
                  const std::function<std::string()>& act, bool hasThreads = false) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open(input.c_str(), O_RDONLY), 0);
    dup2(open(output.c_str(), O_RDWR), 1);
    dup2(ends[1], 2);
    closefrom(3);
    signal(SIGXFSZ, SIG_IGN);
    CageLimits limits = kLimits;
    limits.hasThreads = hasThreads;
    const std::string told = enterCage(limits) ? act() : "no cage";
    const ssize_t written = write(2, told.data(), told.size());
    _exit(written < 0 ? 1 : 0);
  }
  close(ends[1]);
  std::string told;
  char piece[4096];
  for (ssize_t count = 0; (count = read(ends[0], piece, sizeof piece)) > 0;) {
    told.append(piece, static_cast<size_t>(count));
  }
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return told;
}

class FitCageTest : public testing::Test {
 protected:
  const TempDir dir;
  const std::string input = dir.write("input", "the photo");
  const std::string output = dir.write("output", "what was there");
};

TEST_F(FitCageTest, AWorkerThatWasTakenOverGetsNowhere) {
  const LivingVictim prey;
  EXPECT_EQ(caged(input, output, [&] { return toldAttack(prey.victim()); }), "tried");
  EXPECT_TRUE(prey.isUnharmed());
}

// Threads are no way out.
TEST_F(FitCageTest, OneOfManyThreadsThatWasTakenOverGetsNowhere) {
  const LivingVictim prey;
  std::string told;
  const auto attack = [&] { told = toldAttack(prey.victim()); };
  EXPECT_EQ(caged(
                input, output,
                [&] {
                  std::thread(attack).join();
                  return told;
                },
                true),
            "tried");
  EXPECT_TRUE(prey.isUnharmed());
}

// Each descriptor does what it is for and nothing else.
TEST_F(FitCageTest, TheDescriptorsDoWhatTheyAreFor) {
  const std::string told = caged(input, output, [] {
    char byte = 0;
    std::string text;
    const auto note = [&](const char* name, long result) {
      if (result >= 0) text += std::string(name) + "\n";
    };
    note("read input", pread(0, &byte, 1, 0));
    note("cut output", ftruncate(1, 0));
    note("write output", pwrite(1, "x", 1, 0));
    note("write input", pwrite(0, "x", 1, 0));
    note("cut input", ftruncate(0, 0));
    note("read output", pread(1, &byte, 1, 0));
    note("write beyond the limit", pwrite(1, "x", 1, 1000));
    note("copy a descriptor", dup(0));
    note("map a file", mmap(nullptr, 1, PROT_READ, MAP_PRIVATE, 0, 0) == MAP_FAILED ? -1 : 0);
    note("run memory", mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                            0) == MAP_FAILED
                           ? -1
                           : 0);
    return text;
  });
  EXPECT_EQ(told, "read input\ncut output\nwrite output\n");
  EXPECT_EQ(readFile(input), "the photo");
  EXPECT_EQ(readFile(output), "x");
}

}  // namespace
