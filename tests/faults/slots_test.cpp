// Many movies at once: as many run as there are processors, the others in the order they came.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "platform/ffmpeg/process/encode_slots.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

namespace {

const unsigned kSlots = std::max(1U, std::thread::hardware_concurrency());

// The number of the last ticket that anybody took.
int64_t lastTicket(const TempDir& folder) {
  int64_t number = 0;
  std::ifstream file(folder / "slots", std::ios::binary);
  file.read(reinterpret_cast<char*>(&number), sizeof(number));
  return file ? number : 0;
}

// A process that waits for its turn, begins and holds what it got until it is killed.
class Holder {
 public:
  // Returns when it stands in the queue.
  explicit Holder(const TempDir& folder, int64_t bytes = 1) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    const int64_t before = lastTicket(folder);
    process = fork();
    if (process == 0) {
      EncodeSlots slots(folder.path());
      slots.awaitTurn();
      const int64_t got = slots.begin(bytes);
      if (write(ends[1], &got, sizeof(got)) != sizeof(got)) _exit(1);
      for (;;) {
        pause();
      }
    }
    close(ends[1]);
    begun = ends[0];
    fcntl(begun, F_SETFL, O_NONBLOCK);
    EXPECT_TRUE(waitUntil([&] { return lastTicket(folder) != before; }));
  }
  ~Holder() {
    end();
    close(begun);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  void end() {
    if (process <= 0) return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    process = 0;
  }
  bool hasBegun() {
    if (memoryBytes > 0) return true;
    return read(begun, &memoryBytes, sizeof(memoryBytes)) == sizeof(memoryBytes);
  }
  bool begins() {
    return waitUntil([&] { return hasBegun(); });
  }
  int64_t memory() const { return memoryBytes; }

 private:
  pid_t process = 0;
  int begun = -1;
  int64_t memoryBytes = 0;
};

class SlotsTest : public testing::Test {
 protected:
  SlotsTest() {
    for (unsigned i = 0; i < kSlots; ++i) {
      running.push_back(std::make_unique<Holder>(folder));
      EXPECT_TRUE(running.back()->begins());
    }
    for (int i = 0; i < 4; ++i) {
      waiting.push_back(std::make_unique<Holder>(folder));
    }
  }
  const TempDir folder;
  std::vector<std::unique_ptr<Holder>> running;
  std::vector<std::unique_ptr<Holder>> waiting;
};

TEST_F(SlotsTest, TheNextInTurnTakesTheSlotOfTheDead) {
  for (size_t i = 0; i < waiting.size(); ++i) {
    for (size_t later = i; later < waiting.size(); ++later) {
      EXPECT_FALSE(waiting[later]->hasBegun());
    }
    (i == 0 ? running[0] : waiting[i - 1])->end();
    EXPECT_TRUE(waiting[i]->begins());
  }
}

TEST_F(SlotsTest, ADeadOneInTheQueueHoldsNobodyUp) {
  waiting[0]->end();
  waiting[2]->end();
  running[0]->end();
  EXPECT_TRUE(waiting[1]->begins());
  EXPECT_FALSE(waiting[3]->hasBegun());
  waiting[1]->end();
  EXPECT_TRUE(waiting[3]->begins());
}

TEST(SlotsMemoryTest, TogetherNobodyGetsMoreThanThereIs) {
  const TempDir folder;
  Holder small(folder);
  ASSERT_TRUE(small.begins());
  Holder large(folder, 2 * EncodeSlots::kAllBytes);
  Holder next(folder);
  if (kSlots > 1) {
    EXPECT_EQ(small.memory(), EncodeSlots::kAllBytes / kSlots);
    EXPECT_FALSE(large.hasBegun());
  }
  small.end();
  ASSERT_TRUE(large.begins());
  EXPECT_LE(large.memory(), EncodeSlots::kAllBytes);
  EXPECT_GT(large.memory(), EncodeSlots::kAllBytes - kSlots);
  EXPECT_FALSE(next.hasBegun());
  large.end();
  EXPECT_TRUE(next.begins());
}

TEST(SlotsMemoryTest, WithoutAFolderNobodyWaits) {
  std::vector<std::unique_ptr<EncodeSlots>> all;
  for (unsigned i = 0; i <= kSlots; ++i) {
    all.push_back(std::make_unique<EncodeSlots>(""));
    all.back()->awaitTurn();
    EXPECT_GT(all.back()->begin(1), 0);
  }
}

TEST(SlotsMemoryTest, ManyMoviesAtOnceRunAFewAtATime) {
  const TempDir folder;
  std::filesystem::create_directory(folder / "run");
  std::filesystem::create_directory(folder / "o");
  const std::string clip = movieClip(ClipRecipe{});
  std::vector<std::unique_ptr<StartedProgram>> programs;
  const unsigned count = 3 * kSlots;
  for (unsigned i = 0; i < count; ++i) {
    const std::string out = folder / ("o/" + std::to_string(i) + ".mp4");
    const std::vector<std::string> words = {"-i", clip, "-y", "-vcodec", "mpeg4", out};
    programs.push_back(std::make_unique<StartedProgram>(
        words, std::vector<std::string>{"XDG_RUNTIME_DIR=" + folder / "run"}));
  }
  size_t most = 0;
  EXPECT_TRUE(waitUntil(
      [&] {
        const std::vector<std::string> names = namesIn(folder / "o");
        const auto hidden = static_cast<size_t>(std::count_if(
            names.begin(), names.end(), [](const std::string& name) { return name[0] == '.'; }));
        most = std::max(most, hidden);
        return hidden == 0 && names.size() == count;
      },
      std::chrono::seconds(60)));
  EXPECT_LE(most, kSlots);
  EXPECT_GE(most, 1U);
  for (const auto& program : programs) {
    const RunResult result = program->wait();
    EXPECT_EQ(result.exitCode, 0) << result.err;
  }
}

}  // namespace
