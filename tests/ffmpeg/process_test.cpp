// The program as a process: what it inherits, what it starts, and how both end.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "platform/ffmpeg/files/progress_file.h"
#include "platform/ffmpeg/files/sha256.h"
#include "platform/ffmpeg/process/process_setup.h"
#include "platform/ffmpeg/process/sandbox.h"
#include "tests/ffmpeg/program_run.h"
#include "tests/support/fake_ffmpeg.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// Encodes with a fake encoder that writes its process id and then never ends.
class LongEncode {
 public:
  LongEncode()
      : program({"-i", movieClip(ClipRecipe{}), "-y", "-vcodec", "mpeg4", folder / "o/out.mp4"},
                {"XDG_RUNTIME_DIR=" + makeFolders()}) {}

  // The fake can write in the hidden folder only, whose name it gets with its last argument.
  static std::string script() {
    return "for last; do :; done\n"
           "echo $$ > \"${last#file:}.pid\"\n"
           "echo out_time_us=1500000\n"
           "exec sleep 1000\n";
  }
  std::string makeFolders() const {
    std::filesystem::create_directory(folder / "o");
    std::filesystem::create_directory(folder / "run");
    return folder / "run";
  }
  // Waits for the fake's process id; 0 when it does not come.
  pid_t encoder() {
    pid_t pid = 0;
    waitUntil([&] {
      for (const auto& entry : std::filesystem::directory_iterator(folder / "o")) {
        pid =
            static_cast<pid_t>(strtol(readFile(entry.path() / "output.pid").c_str(), nullptr, 10));
      }
      return pid != 0;
    });
    return pid;
  }
  std::vector<std::string> left() const { return namesIn(folder / "o"); }
  std::string progressFile() const {
    return folder / ("run/tarn-transcode/" + sha256Hex(folder / "o/out.mp4") + ".progress");
  }

  const FakeFfmpeg fake{script()};
  TempDir folder;
  StartedProgram program;
};

bool isGone(pid_t pid) {
  return kill(pid, 0) != 0 && errno == ESRCH;
}

TEST(ProcessTest, ProgressIsVisibleWhileItRuns) {
  LongEncode encode;
  ASSERT_NE(encode.encoder(), 0);
  // Three quarters are made; of the time some more is over, as it also took to begin.
  const std::regex told(R"(\{"pass":1,"passes":1,"position":(1[5-9]..|2000),"duration":2000\}\n)");
  EXPECT_TRUE(waitUntil([&] { return std::regex_match(readFile(encode.progressFile()), told); }))
      << readFile(encode.progressFile());
  kill(encode.program.pid(), SIGTERM);
  encode.program.wait();
  EXPECT_FALSE(std::filesystem::exists(encode.progressFile()));
}

TEST(ProcessTest, AskedToStopItLeavesNothing) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    LongEncode encode;
    const pid_t encoder = encode.encoder();
    ASSERT_NE(encoder, 0);
    kill(encode.program.pid(), signal);
    const RunResult result = encode.program.wait();
    EXPECT_EQ(result.signal, signal);
    EXPECT_THAT(result.err, HasSubstr("ffmpeg: stopped by signal "));
    EXPECT_TRUE(isGone(encoder));
    EXPECT_THAT(encode.left(), IsEmpty());
  }
}

TEST(ProcessTest, KilledItTakesTheEncoderAlongAndLeavesNothing) {
  LongEncode encode;
  const pid_t encoder = encode.encoder();
  ASSERT_NE(encoder, 0);
  kill(encode.program.pid(), SIGKILL);
  EXPECT_EQ(encode.program.wait().signal, SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return isGone(encoder); }));
  EXPECT_TRUE(waitUntil([&] { return encode.left().empty(); }));
  EXPECT_TRUE(waitUntil([&] { return !std::filesystem::exists(encode.progressFile()); }));
}

// A parent that starts an encode, tells its process id and is killed.
TEST(ProcessTest, WhenItsParentDiesNothingIsLeft) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  TempDir folder;
  std::filesystem::create_directory(folder / "o");
  const FakeFfmpeg fake(LongEncode::script());
  const std::string clip = movieClip(ClipRecipe{});
  // Orphans come to us, so that their end can be told from their absence.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t parent = fork();
  if (parent == 0) {
    StartedProgram program({"-i", clip, "-y", "-vcodec", "mpeg4", folder / "o/out.mp4"});
    const pid_t pid = program.pid();
    if (write(ends[1], &pid, sizeof(pid)) != sizeof(pid)) _exit(1);
    program.wait();
    _exit(0);
  }
  pid_t pid = 0;
  ASSERT_EQ(read(ends[0], &pid, sizeof(pid)), static_cast<ssize_t>(sizeof(pid)));
  const auto hasStarted = [&] {
    for (const auto& entry : std::filesystem::directory_iterator(folder / "o")) {
      if (!readFile(entry.path() / "output.pid").empty()) return true;
    }
    return false;
  };
  ASSERT_TRUE(waitUntil(hasStarted));
  kill(parent, SIGKILL);
  waitpid(parent, nullptr, 0);
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(std::filesystem::is_empty(folder / "o"));
  prctl(PR_SET_CHILD_SUBREAPER, 0);
  close(ends[0]);
  close(ends[1]);
}

// What the encoder finds, told by a fake one; it may write in the hidden folder only, and its
// standard error comes to us.
std::string toldByEncoder(const std::string& script, const TempDir& folder) {
  const FakeFfmpeg fake(script + "\nexit 1\n");
  return runFfmpeg({"-i", movieClip(ClipRecipe{}), "-y", "-vcodec", "mpeg4", folder / "out.mp4"})
      .err;
}

TEST(ProcessTest, DescriptorsOfOthersAreClosed) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);  // inherited, as a sibling's would be
  LongEncode encode;
  ASSERT_NE(encode.encoder(), 0);
  close(ends[1]);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 0) << "someone still holds the write end";
  close(ends[0]);
}

TEST(ProcessTest, TheEncoderHasNoInputAndTheDefaultSignals) {
  const TempDir folder;
  const std::string told = toldByEncoder(
      "read -r line || echo no input >&2\n"
      "kill -PIPE $$\n"
      "echo pipe ignored >&2",
      folder);
  EXPECT_THAT(told, HasSubstr("no input\n"));
  EXPECT_THAT(told, HasSubstr("the encoder died of signal 13 "));
}

TEST(ProcessTest, TheEncoderReadsAndWritesOnlyWhatItMust) {
  const TempDir folder;
  const std::string secret = folder / "secret";
  writeFile(secret, "secret words");
  const std::string told =
      toldByEncoder("cat '" + secret +
                        "' >&2\n"
                        "echo x > '" +
                        folder / "elsewhere" +
                        "'\n"
                        "for last; do :; done\n"
                        "echo x > \"${last#file:}\" && echo wrote the output >&2\n"
                        "head -c 4 '" +
                        movieClip(ClipRecipe{}) + "' > /dev/null && echo read the input >&2\n",
                    folder);
  EXPECT_THAT(told, HasSubstr("wrote the output\n"));
  EXPECT_THAT(told, HasSubstr("read the input\n"));
  EXPECT_THAT(told, testing::Not(HasSubstr("secret words")));
  EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

// The outcome of `act` in a process that has entered `sandbox`.
int outcomeIn(const Sandbox& sandbox, const std::function<int()>& act) {
  const pid_t pid = fork();
  if (pid == 0) _exit(sandbox.enter() ? act() : 99);
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SandboxTest, NoSockets) {
  for (const int family : {AF_UNIX, AF_INET, AF_INET6, AF_NETLINK}) {
    EXPECT_EQ(outcomeIn(Sandbox(), [&] { return socket(family, SOCK_DGRAM, 0) < 0 ? errno : 0; }),
              EACCES);
  }
}

TEST(SandboxTest, FilesOnlyAsAllowed) {
  const TempDir folder;
  std::filesystem::create_directory(folder / "in");
  std::filesystem::create_directory(folder / "work");
  writeFile(folder / "in/one", "1");
  writeFile(folder / "in/two", "2");
  Sandbox sandbox;
  sandbox.mayRead(folder / "in/one");
  sandbox.mayChange(folder / "work");
  const auto opens = [&](const std::string& name, int flags) {
    return outcomeIn(sandbox, [&] {
      return open((folder / name).c_str(), flags | O_CLOEXEC, 0600) < 0 ? errno : 0;
    });
  };
  EXPECT_EQ(opens("in/one", O_RDONLY), 0);
  EXPECT_EQ(opens("in/one", O_WRONLY), EACCES);
  EXPECT_EQ(opens("in/two", O_RDONLY), EACCES);
  EXPECT_EQ(opens("in/three", O_WRONLY | O_CREAT), EACCES);
  EXPECT_EQ(opens("work/new", O_WRONLY | O_CREAT), 0);
  EXPECT_EQ(opens("work/new", O_WRONLY | O_TRUNC), 0);
}

TEST(ProcessSetupTest, AParentThatIsGoneIsNoticed) {
  EXPECT_TRUE(endWithParent(0, getppid()));
  EXPECT_FALSE(endWithParent(0, getppid() + 1));
}

TEST(ProcessSetupTest, AnUnreadStandardErrorIsNoticed) {
  const int saved = dup(STDERR_FILENO);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  const bool before = isListenedTo();
  close(ends[0]);
  const bool after = isListenedTo();
  dup2(saved, STDERR_FILENO);
  close(saved);
  EXPECT_TRUE(before);
  EXPECT_FALSE(after);
}

}  // namespace
