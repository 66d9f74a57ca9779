// The sink: a whole picture in the file that was there, or nothing.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gst/gst.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/held/held_file.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// The element alone, writing to that file.
class Sink {
 public:
  explicit Sink(const std::string& location) {
    g_object_set(element, "location", location.c_str(), nullptr);
    gst_element_set_bus(element, bus);
    GstPad* sinkPad = gst_element_get_static_pad(element, "sink");
    gst_pad_set_active(source, TRUE);
    gst_pad_link(source, sinkPad);
    gst_object_unref(sinkPad);
    if (gst_element_set_state(element, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) return;
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_BYTES);
    gst_pad_push_event(source, gst_event_new_stream_start("picture"));
    gst_pad_push_event(source, gst_event_new_segment(&segment));
  }
  ~Sink() {
    gst_element_set_state(element, GST_STATE_NULL);
    gst_object_unref(element);
    gst_object_unref(source);
    gst_object_unref(bus);
  }
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  void push(const std::string& text) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, text.size(), nullptr);
    gst_buffer_fill(buffer, 0, text.data(), text.size());
    EXPECT_EQ(gst_pad_push(source, buffer), GST_FLOW_OK);
  }
  bool end() { return gst_pad_push_event(source, gst_event_new_eos()) != FALSE; }
  bool failedWith(GstResourceError code) {
    GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    if (message == nullptr) return false;
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    gst_message_unref(message);
    const bool isThat = g_error_matches(error, GST_RESOURCE_ERROR, code) != FALSE;
    g_error_free(error);
    return isThat;
  }

 private:
  GstBus* const bus = gst_bus_new();
  GstElement* const element =
      GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("filesink", nullptr)));
  GstPad* const source = GST_PAD(gst_object_ref_sink(gst_pad_new("src", GST_PAD_SRC)));
};

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status;
}

class FileSinkTest : public testing::Test {
 protected:
  const TempDir dir;
  const std::string out = dir / "out.jpg";
};

TEST_F(FileSinkTest, FillsTheFileThatIsThereAtTheEnd) {
  writeFile(out, "the old picture");
  chmod(out.c_str(), 0640);
  fs::create_hard_link(out, dir / "other");
  const struct stat before = statusOf(out);
  Sink sink(out);
  EXPECT_EQ(readFile(out), "");
  sink.push("a pic");
  sink.push("ture");
  EXPECT_EQ(readFile(out), "");
  EXPECT_TRUE(sink.end());
  EXPECT_EQ(readFile(out), "a picture");
  const struct stat after = statusOf(out);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(readFile(dir / "other"), "a picture");
}

TEST_F(FileSinkTest, MakesTheFileWithTheUsersMask) {
  const mode_t mask = umask(027);
  const Sink sink(out);
  umask(mask);
  EXPECT_EQ(statusOf(out).st_mode & 0777U, 0640U);
}

TEST_F(FileSinkTest, AnEndWithoutAPictureLeavesNothing) {
  writeFile(out, "the old picture");
  Sink sink(out);
  EXPECT_TRUE(sink.end());
  EXPECT_EQ(readFile(out), "");
}

// A limit of the process stands for the end of the disk.
TEST_F(FileSinkTest, WhatDoesNotFitLeavesNothing) {
  rlimit whole = {};
  getrlimit(RLIMIT_FSIZE, &whole);
  const rlimit little = {10'000, whole.rlim_max};
  Sink sink(out);
  sink.push(std::string(20'000, 'x'));
  setrlimit(RLIMIT_FSIZE, &little);
  const bool ended = sink.end();
  setrlimit(RLIMIT_FSIZE, &whole);
  EXPECT_FALSE(ended);
  EXPECT_TRUE(sink.failedWith(GST_RESOURCE_ERROR_NO_SPACE_LEFT));
  EXPECT_EQ(fs::file_size(out), 0U);
}

TEST_F(FileSinkTest, WhatCannotBeOpenedIsAnError) {
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  for (const std::string& path : {dir / "none/out.jpg", dir.path(), dir / "fifo"}) {
    Sink sink(path);
    EXPECT_FALSE(sink.end());
    EXPECT_TRUE(sink.failedWith(GST_RESOURCE_ERROR_OPEN_WRITE)) << path;
  }
}

class HeldFileTest : public FileSinkTest {
 protected:
  const std::string held = dir.write(kHeldPrefix + std::string("1.jpg"), "");
};

TEST_F(HeldFileTest, IsWrittenWhileItIsHeld) {
  const int fd = open(held.c_str(), O_RDWR);
  ASSERT_TRUE(holdFile(fd));
  {
    Sink sink(held);
    sink.push("a picture");
    EXPECT_TRUE(sink.end());
  }
  EXPECT_EQ(readFile(held), "a picture");
  EXPECT_FALSE(isWithdrawn(held));
  close(fd);
  EXPECT_TRUE(isWithdrawn(held));
}

TEST_F(HeldFileTest, IsRemovedWhenItIsLetGo) {
  const int fd = open(held.c_str(), O_RDWR);
  ASSERT_TRUE(holdFile(fd));
  Sink sink(held);
  sink.push("a picture");
  close(fd);
  EXPECT_FALSE(sink.end());
  EXPECT_FALSE(fs::exists(held));
  EXPECT_TRUE(isWithdrawn(held));
}

TEST_F(HeldFileTest, IsNotBegunWhenNobodyHoldsIt) {
  {
    Sink sink(held);
    EXPECT_FALSE(sink.end());
    EXPECT_TRUE(sink.failedWith(GST_RESOURCE_ERROR_NOT_FOUND));
  }
  EXPECT_FALSE(fs::exists(held));
  const Sink again(held);
  EXPECT_FALSE(fs::exists(held));
}

Sink* gLate = nullptr;
std::string gLatePath;

// Called behind the element's own handler, as what hands requests over is.
void endLate() {
  gLate->end();
  fprintf(stderr, "late: '%s'\n", readFile(gLatePath).c_str());
  Sink next(gLatePath);
  next.push("a new one");
  next.end();
  fprintf(stderr, "next: '%s'\n", readFile(gLatePath).c_str());
  // Of the process that ends here, and of no test that would remove it.
  fs::remove_all(fs::path(gLatePath).parent_path());
}

// The next process may be making the same file by then; this one may serve on while it ends.
TEST_F(FileSinkTest, WhatWasBegunBeforeExitIsNotWrittenAfterIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        atexit(endLate);
        gLatePath = out;
        gLate = new Sink(out);
        gLate->push("a picture");
        exit(3);
      },
      testing::ExitedWithCode(3), "late: ''\nnext: 'a new one'");
}

// A child that ends by exit() while another thread of its parent writes must not wait for it.
TEST_F(FileSinkTest, AForkedChildEndsAtOnce) {
  const Sink sink(out);
  const pid_t child = fork();
  if (child == 0) exit(7);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

}  // namespace
