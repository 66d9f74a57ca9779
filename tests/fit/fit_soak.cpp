// Many callers at once that cancel and leave at any moment, while workers and the service are
// killed: every job has one end or the bus's error, every output is whole or empty, and nothing is
// left.
//
//     fit_soak SERVICE-FOLDER JOBS CALLERS
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include "tests/fit/fit_caller.h"
#include "tests/support/jpeg_media.h"
#include "tests/support/private_bus.h"
#include "tests/support/processes.h"
#include "tests/support/wait_until.h"

namespace {

namespace fs = std::filesystem;
using tarn::test::PrivateBus;

constexpr uint64_t kMaxBytes = 20000;
constexpr int kJobsPerKill = 12;

struct Tally {
  std::atomic<int> asked = 0;
  std::atomic<int> made = 0;
  std::atomic<int> cancelled = 0;
  std::atomic<int> failed = 0;
  std::atomic<int> busErrors = 0;
  std::atomic<int> left = 0;
  std::atomic<int> wrong = 0;
};

bool isWholeOrEmpty(const std::string& path) {
  const Bytes bytes = readBytes(path);
  return bytes.empty() || (bytes.size() <= kMaxBytes && !decodePixels(bytes).empty());
}

// One job, and what its caller does meanwhile. A fresh caller, where it leaves.
void runJob(const std::string& address, const std::string& in, const std::string& out, int kind,
            unsigned waitUs, Tally* tally) {
  FitCaller caller(address);
  ++tally->asked;
  if (kind == 0) {  // waits for the reply
    const CallOutcome outcome = caller.fit(in, out, kMaxBytes, "{'wait': <true>}");
    const bool isOurs = outcome.errorName.starts_with("com.tarn.");
    ++(outcome.ok ? tally->made : isOurs ? tally->failed : tally->busErrors);
    if (outcome.ok && readBytes(out).empty()) ++tally->wrong;
    return;
  }
  const CallOutcome outcome = caller.fit(in, out, kMaxBytes);
  if (!outcome.ok) {
    ++tally->busErrors;
    return;
  }
  g_usleep(waitUs);
  if (kind == 1) {  // leaves
    ++tally->left;
    return;
  }
  caller.call(outcome.path, "com.tarn.Fit1.Job", "Cancel", nullptr);
  JobEnd end;
  if (!caller.awaitEndOrOwnerChange(outcome.path, &end)) {
    ++tally->busErrors;
    return;
  }
  caller.sync();
  if (caller.endCount() != 1) ++tally->wrong;
  ++(end.success ? tally->made : tally->cancelled);
}

void runCaller(const std::string& address, const std::string& folder, int jobs, unsigned seed,
               Tally* tally) {
  std::minstd_rand random(seed);
  for (int i = 0; i < jobs; ++i) {
    const std::string out = folder + "/out-" + std::to_string(seed) + "-" + std::to_string(i);
    const int kind = static_cast<int>(random() % 3);
    runJob(address, folder + "/in.jpg", out, kind, static_cast<unsigned>(random() % 60000), tally);
    // The worker of one that has left may be about to go.
    if (!waitUntil([&] { return isWholeOrEmpty(out); })) ++tally->wrong;
    fs::remove(out);
  }
}

// A worker for each few jobs that are asked for, and the service now and then.
void killAround(const std::string& service, const Tally& tally, const std::atomic<bool>& isOver) {
  std::minstd_rand random(1);
  for (int next = 1; !isOver; g_usleep(5000)) {
    if (tally.asked < next * kJobsPerKill) continue;
    const auto victims = processesAbout(service + (next % 10 == 0 ? "/fitd" : "/fit-worker"));
    if (victims.empty()) continue;
    kill(victims[random() % victims.size()], SIGKILL);
    ++next;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::string programs = argv[1];
  const int jobs = atoi(argv[2]);
  const int callers = atoi(argv[3]);
  const TempDir dir;
  // In a folder of its own, so that nobody else's workers are killed.
  const std::string service = dir / "service";
  fs::create_directory(service);
  for (const char* program : {"/fitd", "/fit-worker", "/fit-movie"}) {
    fs::copy_file(programs + program, service + program);
  }
  JpegRecipe recipe;
  recipe.width = 600;
  recipe.height = 450;
  recipe.content = Content::Noise;
  writeBytes(dir / "in.jpg", makeJpeg(recipe));
  PrivateBus::Options options;
  options.services = {{"com.tarn.Fit1", service + "/fitd --idle-seconds=1"}};
  PrivateBus bus(options);

  Tally tally;
  std::atomic<bool> isOver = false;
  std::thread killer([&] { killAround(service, tally, isOver); });
  std::vector<std::thread> threads;
  for (int i = 0; i < callers; ++i) {
    threads.emplace_back(runCaller, bus.address(), dir.path(), jobs / callers,
                         static_cast<unsigned>(i + 1), &tally);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  isOver = true;
  killer.join();
  const bool isGone = waitUntil([&] { return processesAbout(service + "/fit").empty(); });
  printf("%d made, %d cancelled, %d failed, %d bus errors, %d left, %d wrong\n", tally.made.load(),
         tally.cancelled.load(), tally.failed.load(), tally.busErrors.load(), tally.left.load(),
         tally.wrong.load());
  if (!isGone) printf("processes are left\n");
  return tally.wrong == 0 && isGone && tally.made > 0 ? 0 : 1;
}
