#include "platform/gstreamer/photo/picture_memory.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

namespace {

using Answer = PictureMemory::Answer;

struct Asker {
  PictureMemory::Waiter waiter;
  PictureMemory::Share share;
};

std::future<Answer> ask(PictureMemory* memory, size_t bytes, Asker* asker) {
  return std::async(std::launch::async,
                    [=] { return memory->take(bytes, &asker->waiter, &asker->share); });
}

TEST(PictureMemory, GivesWhatThereIs) {
  PictureMemory memory(100);
  Asker asker;
  EXPECT_EQ(memory.take(100, &asker.waiter, &asker.share), Answer::Given);
  EXPECT_EQ(memory.usedBytes(), 100u);
  asker.share = PictureMemory::Share();
  EXPECT_EQ(memory.usedBytes(), 0u);
}

TEST(PictureMemory, RefusesMoreThanThereIs) {
  PictureMemory memory(100);
  Asker asker;
  EXPECT_EQ(memory.take(101, &asker.waiter, &asker.share), Answer::TooMuch);
  EXPECT_EQ(memory.usedBytes(), 0u);
}

TEST(PictureMemory, TheNextOneWaitsForTheOthers) {
  PictureMemory memory(100);
  Asker first;
  Asker second;
  ASSERT_EQ(memory.take(60, &first.waiter, &first.share), Answer::Given);
  std::future<Answer> answer = ask(&memory, 50, &second);
  EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  first.share = PictureMemory::Share();
  EXPECT_EQ(answer.get(), Answer::Given);
  EXPECT_EQ(memory.usedBytes(), 50u);
}

TEST(PictureMemory, AWaiterCanBeToldToStop) {
  PictureMemory memory(100);
  Asker first;
  Asker second;
  Asker third;
  ASSERT_EQ(memory.take(60, &first.waiter, &first.share), Answer::Given);
  std::future<Answer> stopped = ask(&memory, 100, &second);
  memory.cancel(&second.waiter);
  EXPECT_EQ(stopped.get(), Answer::Cancelled);
  // It is in nobody's way, and may ask again.
  EXPECT_EQ(memory.take(40, &third.waiter, &third.share), Answer::Given);
  third.share = PictureMemory::Share();
  memory.allow(&second.waiter);
  EXPECT_EQ(memory.take(40, &second.waiter, &second.share), Answer::Given);
}

TEST(PictureMemory, NeverGivesMoreThanThereIsAtOnce) {
  PictureMemory memory(100);
  std::atomic<int> wrong = 0;
  std::vector<std::future<void>> askers;
  for (size_t i = 0; i < 8; ++i) {
    askers.push_back(std::async(std::launch::async, [&, i] {
      PictureMemory::Waiter waiter;
      for (size_t turn = 0; turn < 200; ++turn) {
        PictureMemory::Share share;
        if (memory.take(10 + (i * 31 + turn * 7) % 90, &waiter, &share) != Answer::Given) ++wrong;
        if (memory.usedBytes() > 100) ++wrong;
      }
    }));
  }
  for (std::future<void>& asker : askers) {
    asker.get();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(memory.usedBytes(), 0u);
}

}  // namespace
